// Helpers shared by the test programs: paths of the bundled data and of scratch files,
// and the internal seams of the DLL (found at run time, not declared in include/).
#pragma once

#include <windows.h>
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

typedef int(WINAPI *MessageBoxHook)(HWND, const char *, const char *, UINT);
inline MessageBoxHook SetMessageBoxHook(MessageBoxHook hook) {
  auto f = Export<MessageBoxHook(WINAPI *)(MessageBoxHook)>("KyInternal_SetMessageBoxHook");
  return f ? f(hook) : nullptr;
}

} // namespace kytest
