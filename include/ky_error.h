/* tellarok error handler: status texts, user messages, detail lines, dumps, and the
 * library's message box. */
#ifndef TELLAROK_KY_ERROR_H
#define TELLAROK_KY_ERROR_H

#include "ky_base.h"

/* One status text: a 32-bit status code followed by a pointer to its text. Client tables
 * are arrays of these. */
typedef struct tKYERRORTEXT {
  HRESULT code;
  const char *text;
} tKYERRORTEXT;
KY_CHECK_SIZE(tKYERRORTEXT, 8);

#define KYERR_MESSAGE_CHARS 2048 /* the shared message buffer */
#define KYERR_DETAIL_CHARS  8192 /* the detail lines, "\r\n" after each */
#define KYERR_MAX_TABLES    32   /* client tables that may be registered */

/* KyMsgBox_Custom: both bits set in the style (with a details text) offer a Details button. */
#define KYMB_DETAILS        0xC000u

/* Flags answered by KyErrorHandler_DumpStack. */
#define KYDUMP_UNREADABLE   0x1u /* a stack word could not be read */
#define KYDUMP_LOW_MODULE   0x2u /* a word points into a module based at or below 0x10000000 */
#define KYDUMP_HIGH_MODULE  0x4u /* a word points into a module based above 0x10000000 */

KY_BEGIN_DECLS
/* Registers a client table of `count` status texts, searched before the built-in ones in the
 * order of registration. The table is not copied: it must live as long as the process.
 * S_OK; 1 when 32 tables exist already (not added); E_POINTER for a null table or a count
 * below 1. Not thread-safe (register at start-up). */
KY_IMPORT HRESULT KYAPI KyErrorHandler_AddErrorTable(const tKYERRORTEXT *table, LONG count);
/* The text of a status code (client tables first, then the built-in table) or null. */
KY_IMPORT const char *KYAPI KyErrorHandler_GetHresultString(HRESULT code);
/* Composes the operation's sentence (its "%s" replaced by arg, or by "" when null) followed
 * by the status text, or "Error 0x%08x (message missing)" when the code has none, in the
 * shared 2048-character buffer, which the next call overwrites. Tokens such as $(AppName)
 * are expanded in both parts. User-interface thread only. */
KY_IMPORT const char *KYAPI KyErrorHandler_GetErrorMessage(LONG operation, HRESULT code,
                                                         const char *arg);
/* Shows the composed message in KyMsgBox_Custom ("Warning: " in front with the warning
 * flag), with a Details button when detail lines exist, and clears the error state.
 * Answers the box's answer; 1 without a box for 0x8004E00C (cancelled by the user). */
KY_IMPORT int KYAPI KyErrorHandler_MsgBox(HWND owner, UINT style, LONG operation, HRESULT code,
                                        const char *arg, BOOL warning);
/* Clears the whole error state (message, details, their owner thread, last error). S_OK. */
KY_IMPORT HRESULT KYAPI KyErrorHandler_DetailsInit(void);
/* Adds one detail line, formatted with KyVPrintF when the format has '%' or '$'. The first
 * thread to add a line after a clearing owns the details: other threads get E_FAIL.
 * E_POINTER for a null format; E_FAIL when the details would reach 8192 characters
 * (the line is dropped, earlier lines stay). Stores code as the last error. */
KY_IMPORT HRESULT KYAPI_CDECL KyErrorHandler_DetailsAddString(HRESULT code, const char *format, ...);
/* The status code given with the latest detail line (0 after a clearing). */
KY_IMPORT HRESULT KYAPI KyErrorHandler_GetLastError(void);
/* Status code of a platform error number (GetLastError); E_FAIL for numbers not known. */
KY_IMPORT HRESULT KYAPI KyErrorHandler_TranslateWin32Error(DWORD error);
/* Status code of a common-dialog error number (CommDlgExtendedError). */
KY_IMPORT HRESULT KYAPI KyErrorHandler_TranslateCommDlgError(DWORD error);

/* Diagnostic dumps for the details view. Each empties the buffer first, never writes past
 * `size` characters (terminator included), and answers the characters written. Memory that
 * cannot be read is shown as dots, never touched. */
/* Hex and characters, 8 bytes a line: " %08X: " then "%02X " per byte then the characters. */
KY_IMPORT LONG KYAPI KyErrorHandler_DumpHex(char *buffer, LONG size, const void *address,
                                          LONG count);
/* 32-bit words, 4 a line: " %08X: " then "%08X " per word. */
KY_IMPORT LONG KYAPI KyErrorHandler_DumpHexDWords(char *buffer, LONG size, const void *address,
                                                LONG count);
/* One line per stack word, with the allocation the word points into and its module's name.
 * flags (KYDUMP_*) and moduleCount (words pointing into modules based at or below
 * 0x10000000) may be null. */
KY_IMPORT LONG KYAPI KyErrorHandler_DumpStack(char *buffer, LONG size, const void *address,
                                            LONG count, DWORD *flags, LONG *moduleCount);
/* The exception, its module, the thread, the registers, the code bytes and the stack of
 * an exception caught by a filter or handler. frame is the address of the final 4-word
 * dump (0: the context's EBP, which shows the saved frame pointer, the return address and
 * the first two arguments of the faulting function). */
KY_IMPORT LONG KYAPI KyErrorHandler_DumpExceptionRecord(char *buffer, LONG size,
                                                      const char *threadName,
                                                      EXCEPTION_POINTERS *exception,
                                                      DWORD frame);

/* The library's message box: shows text with the buttons (MB_TYPEMASK), icon (MB_ICONMASK)
 * and default button (MB_DEFMASK) of style, captioned with $(AppName). When style has both
 * KYMB_DETAILS bits and details is not null, a Details button reveals the details in a
 * read-only scrolling box. Answers the button's identifier (IDOK, IDCANCEL, ...; closing
 * the box answers IDCANCEL, or IDOK for a box without a Cancel button), or 0 when no box
 * could be shown. */
KY_IMPORT int KYAPI KyMsgBox_Custom(HWND owner, UINT style, const char *details, const char *text);
KY_END_DECLS

#endif
