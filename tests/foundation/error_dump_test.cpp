// Diagnostic dumps on real memory: readable bytes, a page that cannot be read, stack words
// pointing into modules, and a real access violation caught and dumped.
#include <gtest/gtest.h>
#include "ky_testutil.h"
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>
#include "ky_error.h"

namespace {

std::string Hex8(const void *p) {
  char b[16];
  snprintf(b, sizeof b, "%08X", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(p)));
  return b;
}

std::vector<std::string> Lines(const std::string &s) {
  std::vector<std::string> out;
  for (size_t at = 0, e; at < s.size(); at = e + 2) {
    e = s.find("\r\n", at);
    if (e == std::string::npos) e = s.size();
    out.push_back(s.substr(at, e - at));
  }
  return out;
}

// Two pages: the first readable, the second reserved only, so reads there would fault.
struct Edge {
  BYTE *base = nullptr;
  DWORD page = 0;
  Edge() {
    SYSTEM_INFO si;
    GetSystemInfo(&si);
    page = si.dwPageSize;
    base = static_cast<BYTE *>(VirtualAlloc(nullptr, 2 * page, MEM_RESERVE, PAGE_NOACCESS));
    if (base) VirtualAlloc(base, page, MEM_COMMIT, PAGE_READWRITE);
  }
  ~Edge() {
    if (base) VirtualFree(base, 0, MEM_RELEASE);
  }
  BYTE *Boundary() const { return base + page; }
};

// Bytes and double words, with characters, blanks and unreadable memory shown as dots.
TEST(ErrorDump, HexBytesAndDWords) {
  const BYTE data[12] = {'H', 'i', '!', 0x00, 0x7F, 0x20, 0x7E, 0xFF, 'a', 'b', 'c', 0x0A};
  char buf[512];
  LONG n = KyErrorHandler_DumpHex(buf, sizeof buf, data, 12);
  std::string want = " " + Hex8(data) + ": 48 69 21 00 7F 20 7E FF Hi!.. ~.\r\n" + " " +
                     Hex8(data + 8) + ": 61 62 63 0A             abc.\r\n";
  EXPECT_EQ(want, buf);
  EXPECT_EQ(static_cast<LONG>(want.size()), n);
  // Exactly 8 bytes: one line; a count of 0: the address and blanks.
  KyErrorHandler_DumpHex(buf, sizeof buf, data, 8);
  EXPECT_EQ(1u, Lines(buf).size());
  KyErrorHandler_DumpHex(buf, sizeof buf, data, 0);
  EXPECT_EQ(" " + Hex8(data) + ": " + std::string(24, ' ') + "\r\n", std::string(buf));

  const DWORD words[5] = {0x12345678, 0xDEADBEEF, 0, 1, 0xFFFFFFFF};
  EXPECT_EQ(0, KyErrorHandler_DumpHexDWords(buf, sizeof buf, words, 0));
  EXPECT_STREQ("", buf);
  KyErrorHandler_DumpHexDWords(buf, sizeof buf, words, 5);
  EXPECT_EQ(" " + Hex8(words) + ": 12345678 DEADBEEF 00000000 00000001 \r\n " + Hex8(words + 4) +
                ": FFFFFFFF \r\n",
            std::string(buf));

  Edge e;
  ASSERT_NE(nullptr, e.base);
  BYTE *last4 = e.Boundary() - 4;
  memcpy(last4, "WXYZ", 4);
  KyErrorHandler_DumpHex(buf, sizeof buf, last4, 8);
  EXPECT_EQ(" " + Hex8(last4) + ": 57 58 59 5A .. .. .. .. WXYZ....\r\n", std::string(buf));
  *reinterpret_cast<DWORD *>(last4) = 0xCAFEF00D;
  KyErrorHandler_DumpHexDWords(buf, sizeof buf, last4, 2);
  EXPECT_EQ(" " + Hex8(last4) + ": CAFEF00D ........ \r\n", std::string(buf));
}

TEST(ErrorDump, HexStopsBeginningLinesBelow50CharactersOfRoom) {
  BYTE data[64] = {};
  char buf[200];
  memset(buf, 0x5A, sizeof buf);
  EXPECT_EQ(0, KyErrorHandler_DumpHex(buf, 49, data, 64));
  EXPECT_EQ(0, buf[0]);
  EXPECT_EQ(0x5A, buf[1]);
  LONG one = KyErrorHandler_DumpHex(buf, 50, data, 64);
  EXPECT_EQ(45, one);  // " %08X: " + 8 x "%02X " + 8 characters + "\r\n"
  EXPECT_EQ(2u, Lines(std::string(buf, static_cast<size_t>(KyErrorHandler_DumpHex(buf, 95, data, 64)))).size());
  EXPECT_EQ(3u, Lines(std::string(buf, static_cast<size_t>(KyErrorHandler_DumpHex(buf, 140, data, 64)))).size());
}

TEST(ErrorDump, StackWordsNameTheirAllocationAndModule) {
  HMODULE exe = GetModuleHandleA(nullptr);
  HMODULE dll = GetModuleHandleA("tellarok.dll");
  ASSERT_NE(nullptr, dll);
  BYTE *code = reinterpret_cast<BYTE *>(exe) + 0x1010;
  BYTE *dllCode = reinterpret_cast<BYTE *>(dll) + 0x1020;
  void *heap = VirtualAlloc(nullptr, 4096, MEM_COMMIT, PAGE_READWRITE);
  ASSERT_NE(nullptr, heap);
  Edge e;
  ASSERT_NE(nullptr, e.base);
  DWORD *words = reinterpret_cast<DWORD *>(e.Boundary()) - 4;
  words[0] = static_cast<DWORD>(reinterpret_cast<UINT_PTR>(code));
  words[1] = static_cast<DWORD>(reinterpret_cast<UINT_PTR>(heap)) + 0x24;
  words[2] = 0;  // points nowhere
  words[3] = static_cast<DWORD>(reinterpret_cast<UINT_PTR>(dllCode));
  char buf[1024];
  DWORD flags = 99;
  LONG modules = 99;
  KyErrorHandler_DumpStack(buf, sizeof buf, words, 5, &flags, &modules);
  std::vector<std::string> l = Lines(buf);
  ASSERT_EQ(5u, l.size()) << buf;
  EXPECT_EQ(" " + Hex8(words) + ": " + Hex8(code) + "  " + Hex8(exe) + " + 1010 (foundation_test.exe)", l[0]);
  EXPECT_EQ(" " + Hex8(words + 1) + ": " + Hex8(static_cast<BYTE *>(heap) + 0x24) + "  " +
                Hex8(heap) + " + 24 ",
            l[1]);
  EXPECT_EQ(" " + Hex8(words + 2) + ": 00000000 ", l[2]);
  EXPECT_EQ(" " + Hex8(words + 3) + ": " + Hex8(dllCode) + "  " + Hex8(dll) + " + 1020 (tellarok.dll)", l[3]);
  EXPECT_EQ(" " + Hex8(words + 4) + ": ........ ", l[4]);
  bool dllLow = reinterpret_cast<UINT_PTR>(dll) <= 0x10000000;
  EXPECT_EQ(KYDUMP_UNREADABLE | KYDUMP_LOW_MODULE | (dllLow ? 0u : KYDUMP_HIGH_MODULE), flags);
  EXPECT_EQ(dllLow ? 2 : 1, modules);
  // Room rules: nothing below 56 characters; later lines need 58.
  flags = 99;
  EXPECT_EQ(0, KyErrorHandler_DumpStack(buf, 55, words, 1, &flags, nullptr));
  EXPECT_EQ(0u, flags);
  LONG n = KyErrorHandler_DumpStack(buf, 56, words + 2, 3, nullptr, nullptr);
  EXPECT_EQ(1u, Lines(std::string(buf, static_cast<size_t>(n))).size());
  EXPECT_EQ(0, KyErrorHandler_DumpStack(buf, sizeof buf, words, 0, nullptr, nullptr));
  VirtualFree(heap, 0, MEM_RELEASE);
}

// ---- a real access violation ----
// The fault runs in a child copy of this program, so that a platform that cannot deliver
// the exception loses only the child. The child reads through ECX with a 2-byte
// instruction (8B 01); its vectored handler dumps the exception and skips the instruction.

BYTE *g_bad = nullptr;
char g_dump[8192];
LONG g_dumpLength = -1;

__attribute__((noinline)) DWORD ReadThroughEcx(const void *p) {
  DWORD v;
  asm volatile("movl (%%ecx), %%eax" : "=a"(v) : "c"(p) : "memory");
  return v;
}

LONG WINAPI CatchOurFault(EXCEPTION_POINTERS *ep) {
  EXCEPTION_RECORD *r = ep->ExceptionRecord;
  if (r->ExceptionCode != EXCEPTION_ACCESS_VIOLATION || r->NumberParameters < 2 ||
      r->ExceptionInformation[1] != reinterpret_cast<ULONG_PTR>(g_bad + 0x10))
    return EXCEPTION_CONTINUE_SEARCH;
  g_dumpLength = KyErrorHandler_DumpExceptionRecord(g_dump, sizeof g_dump, "faulter", ep, 0);
  ep->ContextRecord->Eip += 2;
  ep->ContextRecord->Eax = 0x600DF00D;
  return EXCEPTION_CONTINUE_EXECUTION;
}

LONG WINAPI EndAtOnce(EXCEPTION_POINTERS *) { ExitProcess(3); }

TEST(ErrorDumpChild, DISABLED_FaultAndDump) {
  const char *out = getenv("TELLAROK_FAULT_OUT");
  ASSERT_NE(nullptr, out);
  // Should the handler not run, end at once instead of starting the platform's debugger.
  SetErrorMode(SEM_FAILCRITICALERRORS | SEM_NOGPFAULTERRORBOX);
  SetUnhandledExceptionFilter(EndAtOnce);
  g_bad = static_cast<BYTE *>(VirtualAlloc(nullptr, 0x10000, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_NE(nullptr, g_bad);
  void *veh = AddVectoredExceptionHandler(1, CatchOurFault);
  DWORD v = ReadThroughEcx(g_bad + 0x10);
  RemoveVectoredExceptionHandler(veh);
  EXPECT_EQ(0x600DF00Du, v);
  FILE *f = fopen(out, "wb");
  ASSERT_NE(nullptr, f);
  fprintf(f, "%08X %08X %ld\n", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(g_bad + 0x10)),
          static_cast<unsigned>(reinterpret_cast<UINT_PTR>(&ReadThroughEcx)), g_dumpLength);
  fwrite(g_dump, 1, strlen(g_dump), f);
  fclose(f);
}

TEST(ErrorDump, RealAccessViolationIsCaughtAndDumped) {
  std::string out = kytest::TempDir("errors") + "fault.txt";
  DeleteFileA(out.c_str());
  char exe[MAX_PATH];
  GetModuleFileNameA(nullptr, exe, MAX_PATH);
  std::string cmd = std::string("\"") + exe +
                    "\" --gtest_also_run_disabled_tests --gtest_filter=ErrorDumpChild.*";
  SetEnvironmentVariableA("TELLAROK_FAULT_OUT", out.c_str());
  STARTUPINFOA si = {};
  si.cb = sizeof si;
  PROCESS_INFORMATION pi;
  ASSERT_TRUE(CreateProcessA(nullptr, &cmd[0], nullptr, nullptr, FALSE, 0, nullptr, nullptr, &si, &pi));
  SetEnvironmentVariableA("TELLAROK_FAULT_OUT", nullptr);
  DWORD waited = WaitForSingleObject(pi.hProcess, 30000);
  if (waited != WAIT_OBJECT_0) TerminateProcess(pi.hProcess, 1);
  CloseHandle(pi.hThread);
  CloseHandle(pi.hProcess);

  FILE *f = waited == WAIT_OBJECT_0 ? fopen(out.c_str(), "rb") : nullptr;
  if (!f) {
    const char *emu = getenv("TELLAROK_EMULATED_I386");
    if (emu && *emu == '1')
      GTEST_SKIP() << "the emulated platform did not deliver the access violation to the handler";
    FAIL() << "the child program did not survive its access violation";
  }
  std::string text;
  char chunk[4096];
  for (size_t got; (got = fread(chunk, 1, sizeof chunk, f)) > 0;) text.append(chunk, got);
  fclose(f);
  DeleteFileA(out.c_str());

  unsigned bad = 0, fn = 0;
  long length = 0;
  ASSERT_EQ(3, sscanf(text.c_str(), "%8X %8X %ld", &bad, &fn, &length));
  std::string dump = text.substr(text.find('\n') + 1);
  EXPECT_EQ(static_cast<long>(dump.size()), length);
  std::vector<std::string> l = Lines(dump);
  ASSERT_GE(l.size(), 20u) << dump;

  unsigned ip = 0;
  char name[64] = "";
  ASSERT_EQ(1, sscanf(l[0].c_str(), "Exception 0xC0000005 (access violation) READ:0x%*X IP:0x%X", &ip)) << l[0];
  char first[128];
  snprintf(first, sizeof first, "Exception 0xC0000005 (access violation) READ:0x%X IP:0x%X", bad, ip);
  EXPECT_EQ(first, l[0]);
  EXPECT_GE(ip, fn);
  EXPECT_LT(ip, fn + 64);
  unsigned base = 0, offset = 0;
  ASSERT_EQ(3, sscanf(l[1].c_str(), "In Module '%63[^']' at Address 0x%X + 0x%X", name, &base, &offset)) << l[1];
  EXPECT_STREQ("foundation_test.exe", name);
  EXPECT_EQ(ip, base + offset);
  char ecx[32], eip[32], bytes[40];
  snprintf(ecx, sizeof ecx, " ECX=%08x DS=", bad);
  snprintf(eip, sizeof eip, " EIP=%08x EFLGS=", ip);
  snprintf(bytes, sizeof bytes, " %08X: 8B 01 ", ip);
  // Each line's opening (the second line of the 16 code bytes starts with a blank).
  const struct { size_t line; std::string start; } openings[] = {
      {2, "Thread: faulter ID=0x"}, {3, "Registers:"}, {5, " EBX="}, {6, ecx}, {7, " EDX="},
      {8, "Bytes at CS:EIP:"}, {9, bytes}, {10, " "}, {11, "Stack Dump:"}};
  for (const auto &o : openings) EXPECT_EQ(0u, l[o.line].find(o.start)) << l[o.line];
  EXPECT_NE(std::string::npos, l[2].find(" Stack=0x")) << l[2];
  EXPECT_NE(std::string::npos, l[4].find(eip)) << l[4];
  EXPECT_EQ("Registers:", l[3]);
  EXPECT_EQ("Bytes at CS:EIP:", l[8]);
  EXPECT_EQ("Stack Dump:", l[11]);
  size_t sep = 0;
  for (size_t i = 12; i < l.size(); ++i)
    if (l[i] == "- - -") sep = i;
  ASSERT_GT(sep, 12u) << dump;
  EXPECT_EQ(sep + 5, l.size()) << "the final dump has 4 words";
  // The stack dump shows some return address into this program.
  EXPECT_NE(std::string::npos, dump.find("(foundation_test.exe)"));
}

} // namespace
