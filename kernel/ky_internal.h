// tellarok private declarations shared by the library's families: the process-wide state
// of the module frame, the export guard, and the seams that tests may replace.
// Never included by clients.
#pragma once

#include <windows.h>
#include <new>
#include "ky_list.h"
#include "ky_metric.h"

namespace ky {

typedef int (WINAPI *EnumDisplayMonitorsFn)(HDC, LPCRECT, MONITORENUMPROC, LPARAM);
typedef HMONITOR (WINAPI *MonitorFromRectFn)(LPCRECT, DWORD);
typedef HMONITOR (WINAPI *MonitorFromPointFn)(POINT, DWORD);
typedef BOOL (WINAPI *GetMonitorInfoAFn)(HMONITOR, LPMONITORINFO);
typedef HMONITOR (WINAPI *MonitorFromWindowFn)(HWND, DWORD);

struct MonitorEntryPoints {
  EnumDisplayMonitorsFn enumDisplayMonitors;
  MonitorFromRectFn monitorFromRect;
  MonitorFromPointFn monitorFromPoint;
  GetMonitorInfoAFn getMonitorInfoA;
  MonitorFromWindowFn monitorFromWindow;
};

// Language handle: the locale and the string tables that KyGetString2 searches.
struct Language;

// Process-wide state: written at attach, at detach, or on the user-interface thread.
struct ModuleState {
  HINSTANCE module;            // this DLL; cleared at detach
  HMODULE host;                // the host executable
  DWORD hostCompanion;         // companion word of the host handle, cleared at attach
  BOOL win95;                  // Windows 95 family
  DWORD cpuFeatures;           // KyGetCPUSupport(0)
  BOOL utilityProcess;         // host is RunDLL32.exe: no UI and no settings
  volatile LONG threadCount;   // threads attached, the attaching one included
  HKYMETRIC kernelSettings;    // "Tellaro" 1.0, section "Kernel"
  Language *language;          // user's default locale and the kernel's strings
  BOOL hiColor;                // screen has at least 16 bits per pixel
  int firstCursorId;           // first host cursor identifier (100)
  MonitorEntryPoints monitors; // USER32's or the single-monitor replacements
  HKYLIST tokenList;           // the formatter's token list (thread-safe heap list)
  HKYLIST scratchTable;        // per-thread 128 KiB scratch buffers
  ATOM explorerClass;          // "KyKrn_ExplorerEx_Class"
  DWORD syncCompanion;         // answer of the sync-output companion connector (always 0)
};
extern ModuleState g;

constexpr DWORD kVersion = 0x01000015;
constexpr DWORD kScratchSize = 0x20000;

// ---- start-up helpers owned by their families (called by the module frame) ----
void TimerStartup();           // reads the performance-counter frequency
void TimerFinishStartup();
void TimerRelease();
DWORD TimerNow();             // milliseconds since the service started
LONGLONG TimerBase();         // performance-counter value of the service's start
DWORD DetectCpuFeatures();
void ResolveMonitorEntryPoints();
void RestoreMonitorEntryPoints();
void DrawCacheLoadDefaults();  // copies the 54 default values into the live table
void DrawCacheFlush();         // deletes every cached drawing object
void DrawCacheRelease();
Language *LanguageOpen(LCID lcid);
void LanguageClose(Language *lang);
void ControlsInitialize();
void ControlsTerminate();
void ClearSharedPatternTable();

// Thread scratch buffers: the table is created at process attach; a thread's record and
// buffer are created on its first request and freed when it detaches.
void CreateScratchTable();
void *ThreadScratch(DWORD *outSize);  // null when the table is missing or insertion fails
void FreeThreadScratch(DWORD thread);
void FreeAllScratch();

// Locale conventions read at start-up (used by the number formatter).
char LocaleThousandSeparator();
char LocaleDecimalSeparator();

// Text formatter internals: copies text into dst (size characters, always terminated)
// expanding only its "$(Name)" tokens; '%' and the other '$' forms stay as they are.
LONG ExpandTokens(char *dst, LONG size, const char *text);

// ---- seams ----
// Message boxes: tests install a hook so that nothing waits for a click.
typedef int (WINAPI *MessageBoxHook)(HWND owner, const char *text, const char *caption, UINT style);
extern MessageBoxHook g_messageBoxHook;
int ShowMessageBox(HWND owner, const char *text, const char *caption, UINT style);

// ---- export guard ----
// Runs f() and turns any escaping exception into a status code, so none crosses an export.
template <class F>
inline HRESULT GuardHr(F &&f) noexcept {
  try {
    return f();
  } catch (const std::bad_alloc &) {
    return E_OUTOFMEMORY;
  } catch (...) {
    return E_FAIL;
  }
}

template <class R, class F>
inline R Guard(R onError, F &&f) noexcept {
  try {
    return f();
  } catch (...) {
    return onError;
  }
}

// Copies text into a caller's buffer of `size` characters, always terminated when size > 0.
// Returns the characters copied (without the terminator).
int CopyText(char *dst, int size, const char *src);

} // namespace ky
