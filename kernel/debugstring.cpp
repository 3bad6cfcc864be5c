// KyDebugString: diagnostic text to a log device (a file, a serial port or a driver taking
// DeviceIoControl) or straight onto the screen.
#include "ky_internal.h"
#include "ky_kernel.h"

#include <stdlib.h>
#include <string.h>

namespace {

CRITICAL_SECTION *DebugLock() {
  static CRITICAL_SECTION cs;
  static LONG state = 0;  // 0 new, 1 initialising, 2 ready
  if (InterlockedCompareExchange(&state, 1, 0) == 0) {
    InitializeCriticalSection(&cs);
    InterlockedExchange(&state, 2);
  }
  while (state != 2) Sleep(0);
  return &cs;
}

// ---- log device ----
struct LogDevice {
  bool tried = false;
  HANDLE file = INVALID_HANDLE_VALUE;
  DWORD ioctl = 0;
} g_log;

HANDLE OpenLog(const char *name) {
  return CreateFileA(name, GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
}

void OpenLogDevice() {
  g_log.tried = true;
  char path[MAX_PATH];
  GetProfileStringA("Debug", "LogToFilePath", "COM1", path, sizeof path);
  HANDLE h = OpenLog(path);
  if (lstrcmpiA(path, "COM1") == 0) {
    if (h == INVALID_HANDLE_VALUE) h = OpenLog("AUX");
    if (h != INVALID_HANDLE_VALUE) {
      DCB dcb;
      ZeroMemory(&dcb, sizeof dcb);
      dcb.DCBlength = sizeof dcb;
      if (GetCommState(h, &dcb)) {
        dcb.BaudRate = CBR_115200;
        dcb.ByteSize = 8;
        dcb.Parity = NOPARITY;
        SetCommState(h, &dcb);
      }
    }
  } else if (h != INVALID_HANDLE_VALUE) {
    SetFilePointer(h, 0, nullptr, FILE_END);  // a log file grows at its end
  }
  g_log.file = h;
  char num[32];
  GetProfileStringA("Debug", "DeviceIoctl", "0", num, sizeof num);
  g_log.ioctl = strtoul(num, nullptr, 0);
}

void WriteLog(const char *text, BOOL newLine) {
  if (!g_log.tried) OpenLogDevice();
  if (g_log.file == INVALID_HANDLE_VALUE) return;
  size_t n = strlen(text);
  char *buf = static_cast<char *>(malloc(n + 3));
  if (!buf) return;
  memcpy(buf, text, n);
  if (g_log.ioctl) {
    if (newLine) buf[n++] = '\n';
    DWORD ret = 0;
    DeviceIoControl(g_log.file, g_log.ioctl, buf, static_cast<DWORD>(n), nullptr, 0, &ret,
                    nullptr);
  } else {
    if (newLine) {
      buf[n++] = '\r';
      buf[n++] = '\n';
    }
    DWORD written = 0;
    WriteFile(g_log.file, buf, static_cast<DWORD>(n), &written, nullptr);
  }
  free(buf);
}

// ---- screen ----
struct ScreenLog {
  bool ready = false;
  RECT area{};
  int lineHeight = 0;
  POINT cursor{};
} g_screen;

void FillRectColour(HDC dc, const RECT &r, COLORREF c) {
  HBRUSH b = CreateSolidBrush(c);
  FillRect(dc, &r, b);
  DeleteObject(b);
}

void PrepareScreen(HDC dc) {
  g_screen.ready = true;
  RECT clip;
  GetClipBox(dc, &clip);
  SIZE zero = {0, 0};
  GetTextExtentPoint32A(dc, "0", 1, &zero);
  g_screen.lineHeight = zero.cy > 0 ? zero.cy : 12;
  int lines = GetProfileIntA("Debug", "LogToScreenLines", 5);
  if (lines < 1) lines = 1;
  RECT a;
  a.left = 1;
  a.right = clip.right - 80;
  a.bottom = clip.bottom;
  a.top = a.bottom - lines * g_screen.lineHeight - 2;
  if (a.top < clip.top) a.top = clip.top;
  if (a.right <= a.left) a.right = a.left + 1;
  FillRectColour(dc, a, RGB(192, 192, 192));
  HBRUSH black = static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH));
  FrameRect(dc, &a, black);
  InflateRect(&a, -1, -1);
  g_screen.area = a;
  g_screen.cursor = {a.left, a.top};
}

void DrawOnScreen(const char *text, BOOL newLine) {
  HDC dc = GetDC(nullptr);
  if (!dc) return;
  HGDIOBJ oldFont = SelectObject(dc, GetStockObject(ANSI_FIXED_FONT));
  if (!g_screen.ready) PrepareScreen(dc);
  const RECT &a = g_screen.area;
  const int lh = g_screen.lineHeight;
  int n = lstrlenA(text);
  SIZE ext = {0, lh};
  GetTextExtentPoint32A(dc, text, n, &ext);
  POINT &c = g_screen.cursor;
  if (c.x >= a.right || c.y + lh > a.bottom) c = {a.left, a.top};
  RECT cell = {c.x, c.y, c.x + ext.cx, c.y + lh};
  if (cell.right > a.right) cell.right = a.right;
  SetBkColor(dc, RGB(255, 255, 255));
  SetTextColor(dc, RGB(0, 0, 0));
  ExtTextOutA(dc, c.x, c.y, ETO_OPAQUE | ETO_CLIPPED, &cell, text, n, nullptr);
  // With room for more than two lines, clear the rest of the cursor's line to grey so that
  // the newest text stands out from what an earlier pass left there.
  if ((a.bottom - a.top) / lh > 2 && cell.right < a.right) {
    RECT rest = {cell.right, c.y, a.right, c.y + lh};
    FillRectColour(dc, rest, RGB(192, 192, 192));
  }
  if (newLine) {
    c = {a.left, c.y + lh};
  } else {
    c.x = cell.right;
  }
  if (c.x >= a.right || c.y + lh > a.bottom) c = {a.left, a.top};
  SelectObject(dc, oldFont);
  ReleaseDC(nullptr, dc);
}

} // namespace

extern "C" void WINAPI KyDebugString(const char *text, BOOL newLine, LONG destination) {
  if (!text) text = "";
  ky::Guard<int>(0, [&] {
    EnterCriticalSection(DebugLock());
    if (destination == KYDEBUG_LOGDEVICE)
      WriteLog(text, newLine);
    else
      DrawOnScreen(text, newLine);
    LeaveCriticalSection(DebugLock());
    return 0;
  });
}
