// Version handshake, thread count, preference changes and the library's message box.
#include "ky_internal.h"
#include "ky_kernel.h"

#include <stdio.h>

namespace ky {

MessageBoxHook g_messageBoxHook = nullptr;

int ShowMessageBox(HWND owner, const char *text, const char *caption, UINT style) {
  MessageBoxHook hook = g_messageBoxHook;
  if (hook) return hook(owner, text, caption, style);
  return MessageBoxA(owner, text, caption, style);
}

int CopyText(char *dst, int size, const char *src) {
  if (!dst || size <= 0) return 0;
  if (!src) src = "";
  int n = 0;
  while (n < size - 1 && src[n]) {
    dst[n] = src[n];
    ++n;
  }
  dst[n] = 0;
  return n;
}

} // namespace ky

using namespace ky;

extern "C" DWORD WINAPI KyKernel_GetVersion() { return kVersion; }

extern "C" HRESULT WINAPI KyKernel_CheckVersion(HWND owner, const char *clientName,
                                                DWORD required, LONG revision, DWORD) {
  return GuardHr([&]() -> HRESULT {
    char client[MAX_PATH];
    CopyText(client, sizeof client, clientName);
    OSVERSIONINFOA vi;
    ZeroMemory(&vi, sizeof vi);
    vi.dwOSVersionInfoSize = sizeof vi;
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"
    GetVersionExA(&vi);
#pragma GCC diagnostic pop
    char text[MAX_PATH + 128];
    if (vi.dwMajorVersion < 4) {
      CopyText(text, sizeof text, "This product requires Windows 95 or Windows NT 4.0 or later.");
    } else if (revision != KY_HANDSHAKE_REVISION) {
      snprintf(text, sizeof text,
               "The version of the Orvanel Kernel is incompatible with the following client:\n\n%s.",
               client);
    } else if (required > kVersion) {
      CopyText(text, sizeof text, "The version of the Orvanel Kernel is too old.");
    } else {
      return S_OK;
    }
    KyMessageBox(owner, text, "Orvanel Kernel", MB_ICONINFORMATION);
    return E_FAIL;
  });
}

extern "C" LONG WINAPI KyKernelGetThreadCount() { return g.threadCount; }

extern "C" void WINAPI KyKernel_UserPrefChanges(HWND, UINT message, WPARAM, LPARAM) {
  if (message != WM_SYSCOLORCHANGE) return;
  Guard<int>(0, [] {
    HDC dc = GetDC(nullptr);
    g.hiColor = dc && GetDeviceCaps(dc, BITSPIXEL) >= 16;
    if (dc) ReleaseDC(nullptr, dc);
    DrawCacheFlush();
    DrawCacheLoadDefaults();
    return 0;
  });
}

extern "C" int WINAPI KyMessageBox(HWND owner, const char *text, const char *caption, UINT style) {
  return Guard<int>(0, [&] { return ShowMessageBox(owner, text ? text : "", caption, style); });
}

extern "C" BOOL WINAPI KyIsWin95() { return g.win95; }

// Internal seam: tests replace the message box so that nothing waits for a click.
// Returns the previous hook.
extern "C" MessageBoxHook WINAPI KyInternal_SetMessageBoxHook(MessageBoxHook hook) {
  return reinterpret_cast<MessageBoxHook>(
      InterlockedExchangePointer(reinterpret_cast<void *volatile *>(&g_messageBoxHook),
                                 reinterpret_cast<void *>(hook)));
}

// Internal seam: whether the kernel settings were opened and the window class registered
// (both skipped in a utility process).
extern "C" DWORD WINAPI KyInternal_GetFrameFlags() {
  return (g.utilityProcess ? 1u : 0u) | (g.kernelSettings ? 2u : 0u) |
         (g.explorerClass ? 4u : 0u) | (g.tokenList ? 8u : 0u) | (g.language ? 16u : 0u);
}
