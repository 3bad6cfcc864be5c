// Module frame: thread count, per-thread scratch buffers, the utility-process rule, debug
// text, processor support, language strings and preference changes.
#include <gtest/gtest.h>
#include <windows.h>

#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "ky_testutil.h"
#include "tellarok.h"

namespace {

typedef void *(WINAPI *ScratchFn)(DWORD *);
typedef LONG(WINAPI *CountFn)();

struct ScratchProbe {
  HANDLE release;
  void *first = nullptr, *second = nullptr;
  DWORD size = 0;
  bool zeroed = false;
};

DWORD WINAPI ScratchThread(void *p) {
  auto *probe = static_cast<ScratchProbe *>(p);
  auto scratch = kytest::Export<ScratchFn>("KyInternal_GetThreadScratch");
  probe->first = scratch(&probe->size);
  if (probe->first) {
    auto *b = static_cast<const BYTE *>(probe->first);
    probe->zeroed = b[0] == 0 && b[probe->size / 2] == 0 && b[probe->size - 1] == 0;
    memset(probe->first, 0xAB, probe->size);  // the whole buffer is ours to write
  }
  probe->second = scratch(nullptr);
  WaitForSingleObject(probe->release, INFINITE);
  return 0;
}

DWORD RunHostAs(const std::string &exeName) {
  std::string dir = kytest::TempDir("host-" + exeName);
  std::string exe = dir + exeName;
  EXPECT_TRUE(CopyFileA(kytest::BinPath("kernel_host.exe").c_str(), exe.c_str(), FALSE));
  EXPECT_TRUE(CopyFileA(kytest::BinPath("tellarok.dll").c_str(), (dir + "tellarok.dll").c_str(),
                        FALSE));
  return kytest::RunProgram(exe, "", nullptr, dir.c_str());
}

} // namespace

TEST(Threads, CountAndScratchBuffersFollowThreads) {
  auto records = kytest::Export<CountFn>("KyInternal_GetScratchRecordCount");
  ASSERT_NE(records, nullptr);
  const LONG threadsBefore = KyKernelGetThreadCount();
  const LONG recordsBefore = records();
  EXPECT_GE(threadsBefore, 1);

  const int kThreads = kytest::WorkerThreads(3);
  HANDLE release = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::vector<ScratchProbe> probes(kThreads);
  std::vector<HANDLE> threads;
  for (auto &p : probes) {
    p.release = release;
    threads.push_back(CreateThread(nullptr, 0, ScratchThread, &p, 0, nullptr));
  }
  // Wait until every thread has its buffer.
  for (int spin = 0; spin < 2000 && records() < recordsBefore + kThreads; ++spin) Sleep(5);
  EXPECT_EQ(KyKernelGetThreadCount(), threadsBefore + kThreads);
  EXPECT_EQ(records(), recordsBefore + kThreads);
  for (int i = 0; i < kThreads; ++i) {
    EXPECT_NE(probes[i].first, nullptr);
    EXPECT_EQ(probes[i].first, probes[i].second) << "a second request gives the same buffer";
    EXPECT_EQ(probes[i].size, 0x20000u);
    EXPECT_TRUE(probes[i].zeroed);
    for (int j = 0; j < i; ++j) EXPECT_NE(probes[i].first, probes[j].first);
  }
  SetEvent(release);
  WaitForMultipleObjects(kThreads, threads.data(), TRUE, INFINITE);
  for (HANDLE t : threads) CloseHandle(t);
  CloseHandle(release);
  EXPECT_EQ(KyKernelGetThreadCount(), threadsBefore);
  EXPECT_EQ(records(), recordsBefore) << "records of ended threads are removed";
}

// Host flags (kernel_host.cpp): 1 utility process, 2 settings opened, 4|0x20 window class
// registered, 8|16 token list and language handle. RunDll32 in any case skips settings and classes; a similar name does not.
TEST(UtilityProcess, RunDll32InAnyCaseSkipsSettingsAndWindowClasses) {
  const struct { const char *name; DWORD flags; } hosts[] = {
      {"RunDll32.EXE", 1 | 8 | 16}, {"rundll32.exe", 1 | 8 | 16}, {"RUNDLL32.EXE", 1 | 8 | 16},
      {"Rundll.exe", 2 | 4 | 0x20 | 8 | 16}};
  for (const auto &h : hosts) {
    DWORD flags = RunHostAs(h.name);
    ASSERT_LT(flags, 0x100u) << h.name << " could not load the library";
    EXPECT_EQ(h.flags, flags & (1 | 2 | 4 | 8 | 16 | 0x20)) << h.name;
  }
}

TEST(DebugString, LogDeviceIsTheProfileFileWithLineEnds) {
  std::string path = kytest::TempDir("debug") + "log.txt";
  DeleteFileA(path.c_str());
  ASSERT_TRUE(WriteProfileStringA("Debug", "LogToFilePath", path.c_str()));
  WriteProfileStringA("Debug", "DeviceIoctl", "0");
  KyDebugString("first", TRUE, KYDEBUG_LOGDEVICE);
  KyDebugString("second", FALSE, KYDEBUG_LOGDEVICE);
  KyDebugString(nullptr, TRUE, KYDEBUG_LOGDEVICE);
  WriteProfileStringA("Debug", "LogToFilePath", nullptr);
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                         OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(h, INVALID_HANDLE_VALUE);
  char buf[64] = {};
  DWORD got = 0;
  ReadFile(h, buf, sizeof buf - 1, &got, nullptr);
  CloseHandle(h);
  EXPECT_EQ(std::string(buf, got), "first\r\nsecond\r\n");
}

TEST(DebugString, ScreenOutputWrapsWithoutFailing) {
  for (int i = 0; i < 40; ++i) KyDebugString("screen text", i % 3 == 0, KYDEBUG_SCREEN);
}

TEST(Processor, FeaturesAndLevelAgree) {
  LONG f = KyGetCPUSupport(KYCPU_FEATURES);
  EXPECT_TRUE(f & KYCPU_SSE2) << "the library itself is built for SSE2";
  LONG level = KyGetCPUSupport(KYCPU_LEVEL);
  EXPECT_GE(level, 3);
  EXPECT_LE(level, 5);
  EXPECT_EQ(level == 5, (f & KYCPU_SSSE3) != 0);
  EXPECT_EQ(KyGetCPUSupport(7), -1);
  EXPECT_FALSE(KyIsWin95());
}

TEST(Language, KernelStringsAndUnknownIds) {
  char buf[64];
  EXPECT_EQ(KyGetString2(4008, buf, sizeof buf), 6);
  EXPECT_STREQ(buf, "Stereo");
  EXPECT_EQ(KyGetString2(4010, buf, sizeof buf), 19);
  EXPECT_STREQ(buf, "$d Hz$, %d-bit$, %s");
  EXPECT_EQ(KyGetString2(4000, buf, 3), 2) << "cut to the buffer and terminated";
  EXPECT_STREQ(buf, "PC");
  EXPECT_EQ(KyGetString2(3999, buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(KyGetString2(4008, nullptr, 10), 0);
  EXPECT_EQ(KyLang_AddStringTable(nullptr, 1, 1), E_INVALIDARG);
  EXPECT_NE(KyLang_GetLocale(), 0u);
}

TEST(Preferences, ColourChangeRebuildsTheDrawingCache) {
  typedef DWORD(WINAPI * ColorFn)(LONG);
  typedef HBRUSH(WINAPI * BrushFn)(LONG);
  auto color = kytest::Export<ColorFn>("KyGetCacheColor");
  auto brush = kytest::Export<BrushFn>("KyGetCacheBrush");
  ASSERT_TRUE(color && brush);
  DWORD c0 = color(0);
  HBRUSH b = brush(0);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(brush(0), b) << "cached";
  KyKernel_UserPrefChanges(nullptr, WM_PAINT, 0, 0);
  EXPECT_EQ(GetObjectType(b), (DWORD)OBJ_BRUSH) << "other messages change nothing";
  KyKernel_UserPrefChanges(nullptr, WM_SYSCOLORCHANGE, 0, 0);
  EXPECT_EQ(GetObjectType(b), 0u) << "cached objects are deleted";
  EXPECT_EQ(color(0), c0) << "defaults reloaded";
  EXPECT_NE(brush(0), nullptr);
  EXPECT_EQ(color(54), (DWORD)CLR_INVALID);
}
