/* tellarok module frame: version handshake, thread count, debug text, processor features,
 * the library's message box and the language string tables.
 *
 * The version word holds the major version in bits 24-31, the minor in bits 16-23 and the
 * build in bits 0-15; this library is KY_KERNEL_VERSION (1.0 build 21). */
#ifndef TELLAROK_KY_KERNEL_H
#define TELLAROK_KY_KERNEL_H

#include "ky_base.h"

#define KY_KERNEL_VERSION 0x01000015u
#define KY_HANDSHAKE_REVISION 2

/* KyDebugString destinations. */
#define KYDEBUG_SCREEN 0
#define KYDEBUG_LOGDEVICE 2

/* KyGetCPUSupport(KYCPU_FEATURES) bits. */
#define KYCPU_FEATURES 0
#define KYCPU_MMX    0x0001u
#define KYCPU_SSE    0x0002u
#define KYCPU_SSE2   0x0004u
#define KYCPU_SSE3   0x0008u
#define KYCPU_SSSE3  0x0010u
#define KYCPU_SSE41  0x0020u
#define KYCPU_POPCNT 0x0040u
#define KYCPU_CMOV   0x0080u
/* KyGetCPUSupport(KYCPU_LEVEL): 0 plain x86, 1 MMX, 2 SSE, 3 SSE2, 4 SSE3, 5 SSSE3 or later. */
#define KYCPU_LEVEL 15

KY_BEGIN_DECLS
/* Returns KY_KERNEL_VERSION. */
KY_IMPORT DWORD KYAPI KyKernel_GetVersion(void);
/* Checks that this library serves a client: the platform must be Windows 95 / NT 4.0 or
 * later, the handshake revision must be 2 and `required` must not exceed this library's
 * version word (plain unsigned comparison, build included). On a mismatch shows one of three
 * messages in a box captioned "Orvanel Kernel" and returns E_FAIL; else S_OK, silently. */
KY_IMPORT HRESULT KYAPI KyKernel_CheckVersion(HWND owner, const char *clientName, DWORD required,
                                              LONG revision, DWORD reserved);
/* Threads attached to the module, the process's first thread included. */
KY_IMPORT LONG KYAPI KyKernelGetThreadCount(void);
/* Forward a top-level window's messages: WM_SYSCOLORCHANGE refreshes the colour state and
 * the drawing-object cache; every other message is ignored. */
KY_IMPORT void KYAPI KyKernel_UserPrefChanges(HWND window, UINT message, WPARAM wParam,
                                              LPARAM lParam);
/* Exists only to keep every family in the module; never call it. */
KY_IMPORT void KYAPI KyKernel_ForceRefs(void);
/* Writes text to the log device (destination 2; profile section "Debug", keys
 * "LogToFilePath" and "DeviceIoctl") or draws it on the screen (any other destination). */
KY_IMPORT void KYAPI KyDebugString(const char *text, BOOL newLine, LONG destination);
/* Processor support: KYCPU_FEATURES gives the feature bits, KYCPU_LEVEL the level 0..5;
 * any other query answers -1. */
KY_IMPORT LONG KYAPI KyGetCPUSupport(LONG query);
/* 1 on the Windows 95 family, else 0. */
KY_IMPORT BOOL KYAPI KyIsWin95(void);
/* The library's message box: MessageBoxA's arguments and answer. */
KY_IMPORT int KYAPI KyMessageBox(HWND owner, const char *text, const char *caption, UINT style);

/* Language string tables. KyGetString2 copies string `id` of the library's tables (the
 * kernel's strings start at 4000) into buffer (size characters, always terminated) and
 * returns its length, or 0 when the string is unknown (buffer then empty). */
KY_IMPORT LONG KYAPI KyGetString2(UINT id, char *buffer, LONG size);
/* Loads string `id` from module `module` (null: this library); as LoadStringA. */
KY_IMPORT LONG KYAPI KyLoadString(HMODULE module, UINT id, char *buffer, LONG size);
/* Adds `count` strings of `module` starting at `firstId` to the tables KyGetString2 searches
 * (searched after the earlier ones). S_OK, E_INVALIDARG for a null module, E_OUTOFMEMORY. */
KY_IMPORT HRESULT KYAPI KyLang_AddStringTable(HMODULE module, UINT firstId, UINT count);
/* The locale of the language handle (the user's default at start-up). */
KY_IMPORT LCID KYAPI KyLang_GetLocale(void);
KY_END_DECLS

#endif
