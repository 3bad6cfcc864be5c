// Multi-monitor entry points: USER32's when it has them, else single-monitor replacements
// that treat the whole screen as the one monitor (handle 0x12340042, as the platform's own
// compatibility stubs do).
#include "ky_internal.h"

namespace ky {

namespace {
const HMONITOR kPrimary = reinterpret_cast<HMONITOR>(0x12340042);

BOOL WINAPI OneEnumDisplayMonitors(HDC dc, LPCRECT clip, MONITORENUMPROC proc, LPARAM data) {
  RECT screen = {0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
  RECT r = screen;
  if (clip && !IntersectRect(&r, &screen, clip)) return TRUE;
  if (dc) {
    RECT box;
    if (GetClipBox(dc, &box) == ERROR || !IntersectRect(&r, &r, &box)) return TRUE;
  }
  return proc ? proc(kPrimary, dc, &r, data) : FALSE;
}

HMONITOR WINAPI OneMonitorFromPoint(POINT pt, DWORD flags) {
  if ((flags & (MONITOR_DEFAULTTOPRIMARY | MONITOR_DEFAULTTONEAREST)) ||
      (pt.x >= 0 && pt.y >= 0 && pt.x < GetSystemMetrics(SM_CXSCREEN) &&
       pt.y < GetSystemMetrics(SM_CYSCREEN)))
    return kPrimary;
  return nullptr;
}

HMONITOR WINAPI OneMonitorFromRect(LPCRECT rc, DWORD flags) {
  if (flags & (MONITOR_DEFAULTTOPRIMARY | MONITOR_DEFAULTTONEAREST)) return kPrimary;
  RECT screen = {0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN)};
  RECT r;
  return rc && IntersectRect(&r, &screen, rc) ? kPrimary : nullptr;
}

HMONITOR WINAPI OneMonitorFromWindow(HWND w, DWORD flags) {
  if (flags & (MONITOR_DEFAULTTOPRIMARY | MONITOR_DEFAULTTONEAREST)) return kPrimary;
  RECT r;
  return w && GetWindowRect(w, &r) ? OneMonitorFromRect(&r, flags) : nullptr;
}

BOOL WINAPI OneGetMonitorInfoA(HMONITOR m, LPMONITORINFO info) {
  if (m != kPrimary || !info || info->cbSize < sizeof(MONITORINFO)) return FALSE;
  SetRect(&info->rcMonitor, 0, 0, GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
  if (!SystemParametersInfoA(SPI_GETWORKAREA, 0, &info->rcWork, 0)) info->rcWork = info->rcMonitor;
  info->dwFlags = MONITORINFOF_PRIMARY;
  if (info->cbSize >= sizeof(MONITORINFOEXA))
    lstrcpynA(reinterpret_cast<MONITORINFOEXA *>(info)->szDevice, "DISPLAY", CCHDEVICENAME);
  return TRUE;
}

const MonitorEntryPoints kSingle = {OneEnumDisplayMonitors, OneMonitorFromRect,
                                    OneMonitorFromPoint, OneGetMonitorInfoA,
                                    OneMonitorFromWindow};

template <class F>
void Take(HMODULE user, const char *name, F &slot) {
  FARPROC p = user ? GetProcAddress(user, name) : nullptr;
  if (p) slot = reinterpret_cast<F>(reinterpret_cast<void *>(p));
}
} // namespace

void ResolveMonitorEntryPoints() {
  g.monitors = kSingle;
  HMODULE user = GetModuleHandleA("USER32");
  Take(user, "EnumDisplayMonitors", g.monitors.enumDisplayMonitors);
  Take(user, "MonitorFromRect", g.monitors.monitorFromRect);
  Take(user, "MonitorFromPoint", g.monitors.monitorFromPoint);
  Take(user, "GetMonitorInfoA", g.monitors.getMonitorInfoA);
  Take(user, "MonitorFromWindow", g.monitors.monitorFromWindow);
}

void RestoreMonitorEntryPoints() { g.monitors = kSingle; }

} // namespace ky
