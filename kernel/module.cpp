// The module frame: what happens when tellarok is loaded into a process, when threads come
// and go, and when it is unloaded.
#include "ky_internal.h"
#include "ky_kernel.h"

#include <string.h>

namespace ky {

ModuleState g;

namespace {

const char kExplorerClass[] = "KyKrn_ExplorerEx_Class";

LRESULT CALLBACK ExplorerWndProc(HWND w, UINT m, WPARAM wp, LPARAM lp) {
  return DefWindowProcA(w, m, wp, lp);
}

// The sync-output companion connector. The companion is a separate module that this
// library never ships, so the connector always answers 0 ("no companion") and the MIDI
// time-code functions use their in-library implementation. It still receives the two
// names it would load (base name + ".w95", base name + own extension).
DWORD ConnectSyncCompanion(const char *w95Name, const char *ownName, HINSTANCE module,
                           BOOL attach) {
  (void)w95Name;
  (void)ownName;
  (void)module;
  (void)attach;
  return 0;
}

void SyncCompanion(BOOL attach) {
  char own[MAX_PATH] = "";
  GetModuleFileNameA(g.module, own, MAX_PATH);
  char w95[MAX_PATH];
  lstrcpynA(w95, own, MAX_PATH);
  char *slash = strrchr(w95, '\\');
  char *dot = strrchr(w95, '.');
  if (dot && (!slash || dot > slash)) *dot = 0;
  if (lstrlenA(w95) + 4 < MAX_PATH) lstrcatA(w95, ".w95");
  DWORD answer = ConnectSyncCompanion(w95, own, g.module, attach);
  g.syncCompanion = attach ? answer : 0;
}

// True when the file name part of `path` is "RunDLL32.exe", in any mix of case.
bool IsUtilityHost(const char *path) {
  const char *name = path;
  for (const char *p = path; *p; ++p)
    if (*p == '\\' || *p == '/' || *p == ':') name = p + 1;
  return lstrcmpiA(name, "RunDLL32.exe") == 0;
}

// Kernel core start-up. Answers 1 when the token list and the language handle exist.
int CoreStartup(HINSTANCE module) {
  TimerStartup();
  OSVERSIONINFOA vi;
  ZeroMemory(&vi, sizeof vi);
  vi.dwOSVersionInfoSize = sizeof vi;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
  GetVersionExA(&vi);
#pragma GCC diagnostic pop
  g.win95 = vi.dwPlatformId == VER_PLATFORM_WIN32_WINDOWS;
  g.module = module;
  g.cpuFeatures = KyGetCPUSupport(0);
  g.firstCursorId = 100;
  g.host = GetModuleHandleA(nullptr);
  g.hostCompanion = 0;
  ResolveMonitorEntryPoints();
  DrawCacheLoadDefaults();
  KyList_CreateExZ(&g.tokenList, 4, 16, 16, KYLIST_THREADSAFE | KYLIST_HEAPITEMS, 0, 0, 0);
  g.language = LanguageOpen(GetUserDefaultLCID());
  TimerFinishStartup();
  return g.tokenList && g.language ? 1 : 0;
}

void CoreShutdown() {
  if (g.language) LanguageClose(g.language);
  g.language = nullptr;
  KyList_Destroy(g.tokenList);
  g.tokenList = nullptr;
  RestoreMonitorEntryPoints();
  TimerRelease();
  DrawCacheRelease();
  g.module = nullptr;
}

BOOL Startup(HINSTANCE module) {
  // The core's answer is tested as a status (failure only when negative), so a module
  // whose language table or token list failed still loads; callers see missing texts.
  (void)CoreStartup(module);

  char host[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, host, MAX_PATH);
  if (IsUtilityHost(host)) {
    g.utilityProcess = TRUE;
    return TRUE;
  }
  KyMetric_Open(&g.kernelSettings, "Tellaro", kVersion, "Kernel");
  ControlsInitialize();
  WNDCLASSA wc;
  ZeroMemory(&wc, sizeof wc);
  wc.lpfnWndProc = ExplorerWndProc;
  wc.hInstance = module;
  wc.hCursor = LoadCursorA(nullptr, IDC_ARROW);
  wc.lpszClassName = kExplorerClass;
  g.explorerClass = RegisterClassA(&wc);
  ClearSharedPatternTable();
  SyncCompanion(TRUE);
  // The video signal-processing references are kept in by KyKernel_ForceRefs being
  // exported; nothing needs to run for them here.
  return TRUE;
}

BOOL Shutdown() {
  if (!g.utilityProcess) {
    SyncCompanion(FALSE);
    if (g.explorerClass) UnregisterClassA(kExplorerClass, g.module);
    g.explorerClass = 0;
    ControlsTerminate();
  }
  KyMetric_Close(g.kernelSettings);
  g.kernelSettings = nullptr;
  CoreShutdown();
  return TRUE;
}

} // namespace

} // namespace ky

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID) {
  using namespace ky;
  switch (reason) {
  case DLL_PROCESS_ATTACH: {
    BOOL ok = Guard<BOOL>(TRUE, [&] { return Startup(module); });
    CreateScratchTable();
    InterlockedIncrement(&g.threadCount);
    return ok;
  }
  case DLL_THREAD_ATTACH:
    InterlockedIncrement(&g.threadCount);
    return TRUE;
  case DLL_THREAD_DETACH:
    InterlockedDecrement(&g.threadCount);
    FreeThreadScratch(GetCurrentThreadId());
    return TRUE;
  case DLL_PROCESS_DETACH:
    InterlockedDecrement(&g.threadCount);
    FreeAllScratch();
    return Guard<BOOL>(TRUE, [] { return Shutdown(); });
  default:
    return TRUE;
  }
}
