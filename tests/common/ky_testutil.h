// Helpers shared by the test programs: paths of the bundled data and of scratch files,
// and the internal seams of the DLL (found at run time, not declared in include/).
#pragma once

#include <gtest/gtest.h>
#include <windows.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>

namespace kytest {

// Folder of the bundled test data (tests/data), as a Windows path with forward slashes.
inline std::string DataPath(const std::string &name = "") {
  const char *d = getenv("TELLAROK_TESTDATA");
  std::string p = d ? d : "tests/data";
  return name.empty() ? p : p + "/" + name;
}

// A fresh, empty scratch folder for one test program, removed by the caller when wanted.
inline std::string TempDir(const std::string &sub) {
  char tmp[MAX_PATH];
  GetTempPathA(MAX_PATH, tmp);
  std::string dir = std::string(tmp) + "tellarok-tests\\";
  CreateDirectoryA(dir.c_str(), nullptr);
  dir += sub + "\\";
  CreateDirectoryA(dir.c_str(), nullptr);
  return dir;
}

// How many worker threads a test may run beside its main thread. Under the QEMU user-mode
// emulation used where the kernel cannot run 32-bit programs, Wine crashes with more than
// one extra thread at a time, so tests keep to one worker there (the main thread still
// runs concurrently with it).
inline int WorkerThreads(int wanted) {
  const char *e = getenv("TELLAROK_EMULATED_I386");
  return e && *e == '1' ? 1 : wanted;
}

// An export of tellarok.dll by name (the internal seams are found this way).
template <class F>
F Export(const char *name) {
  HMODULE m = GetModuleHandleA("tellarok.dll");
  return m ? reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(m, name))) : nullptr;
}

// A built program's path (TELLAROK_BIN, or the current folder when that is unset).
inline std::string BinPath(const std::string &name) {
  const char *bin = getenv("TELLAROK_BIN");
  return std::string(bin ? bin : ".") + "/" + name;
}

// Starts a program with the given arguments (in folder `dir` when given), waits up to two
// minutes for it and returns its exit code, 0xFFFFFFFF when it could not be started. With
// `out`, what the program writes to its standard output and error is appended there.
inline DWORD RunProgram(const std::string &exe, const std::string &args,
                        std::string *out = nullptr, const char *dir = nullptr) {
  std::string cmd = "\"" + exe + "\"" + (args.empty() ? "" : " " + args);
  STARTUPINFOA si = {};
  si.cb = sizeof si;
  HANDLE rd = nullptr, wr = nullptr;
  if (out) {
    SECURITY_ATTRIBUTES sa = {sizeof sa, nullptr, TRUE};
    if (!CreatePipe(&rd, &wr, &sa, 0)) return 0xFFFFFFFF;
    SetHandleInformation(rd, HANDLE_FLAG_INHERIT, 0);
    si.dwFlags = STARTF_USESTDHANDLES;
    si.hStdOutput = si.hStdError = wr;
  }
  PROCESS_INFORMATION pi;
  const BOOL started = CreateProcessA(exe.c_str(), &cmd[0], nullptr, nullptr, out ? TRUE : FALSE,
                                      0, nullptr, dir, &si, &pi);
  // The child holds its own copy of the write end; ours must go for the reads to end.
  if (wr) CloseHandle(wr);
  if (!started) {
    if (rd) CloseHandle(rd);
    return 0xFFFFFFFF;
  }
  if (out) {
    char buf[4096];
    DWORD got = 0;
    while (ReadFile(rd, buf, sizeof buf, &got, nullptr) && got) out->append(buf, got);
    CloseHandle(rd);
  }
  WaitForSingleObject(pi.hProcess, 120000);
  DWORD code = 0xFFFFFFFF;
  GetExitCodeProcess(pi.hProcess, &code);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);
  return code;
}

typedef int(WINAPI *MessageBoxHook)(HWND, const char *, const char *, UINT);
inline MessageBoxHook SetMessageBoxHook(MessageBoxHook hook) {
  auto f = Export<MessageBoxHook(WINAPI *)(MessageBoxHook)>("KyInternal_SetMessageBoxHook");
  return f ? f(hook) : nullptr;
}

// GoogleTest's own printer also passes every failure to OutputDebugStringA, which raises a
// debug exception; under the QEMU emulation Wine cannot unwind it and the program dies at its
// first failure, hiding the rest. This printer forwards everything to the default one except
// the failures, which it prints itself. Installed before main() runs.
class FailurePrinter : public ::testing::TestEventListener {
public:
  explicit FailurePrinter(::testing::TestEventListener *inner) : inner_(inner) {}
  ~FailurePrinter() override { delete inner_; }
  void OnTestProgramStart(const ::testing::UnitTest &u) override { inner_->OnTestProgramStart(u); }
  void OnTestIterationStart(const ::testing::UnitTest &u, int i) override {
    inner_->OnTestIterationStart(u, i);
  }
  void OnEnvironmentsSetUpStart(const ::testing::UnitTest &u) override {
    inner_->OnEnvironmentsSetUpStart(u);
  }
  void OnEnvironmentsSetUpEnd(const ::testing::UnitTest &u) override {
    inner_->OnEnvironmentsSetUpEnd(u);
  }
  void OnTestSuiteStart(const ::testing::TestSuite &s) override { inner_->OnTestSuiteStart(s); }
  void OnTestStart(const ::testing::TestInfo &t) override { inner_->OnTestStart(t); }
  void OnTestPartResult(const ::testing::TestPartResult &r) override {
    if (r.type() == ::testing::TestPartResult::kSuccess) return;
    printf("%s:%d: %s\n%s\n", r.file_name() ? r.file_name() : "unknown", r.line_number(),
           r.skipped() ? "Skipped" : "Failure", r.message());
    fflush(stdout);
  }
  void OnTestEnd(const ::testing::TestInfo &t) override { inner_->OnTestEnd(t); }
  void OnTestSuiteEnd(const ::testing::TestSuite &s) override { inner_->OnTestSuiteEnd(s); }
  void OnEnvironmentsTearDownStart(const ::testing::UnitTest &u) override {
    inner_->OnEnvironmentsTearDownStart(u);
  }
  void OnEnvironmentsTearDownEnd(const ::testing::UnitTest &u) override {
    inner_->OnEnvironmentsTearDownEnd(u);
  }
  void OnTestIterationEnd(const ::testing::UnitTest &u, int i) override {
    inner_->OnTestIterationEnd(u, i);
  }
  void OnTestProgramEnd(const ::testing::UnitTest &u) override { inner_->OnTestProgramEnd(u); }

private:
  ::testing::TestEventListener *inner_;
};

inline bool InstallFailurePrinter() {
  auto &listeners = ::testing::UnitTest::GetInstance()->listeners();
  ::testing::TestEventListener *def = listeners.Release(listeners.default_result_printer());
  if (def) listeners.Append(new FailurePrinter(def));
  return true;
}
inline const bool kFailurePrinterInstalled = InstallFailurePrinter();

} // namespace kytest

