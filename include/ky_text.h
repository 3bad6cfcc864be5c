/* tellarok text formatter and number/token text. */
#ifndef TELLAROK_KY_TEXT_H
#define TELLAROK_KY_TEXT_H

#include <stdarg.h>
#include "ky_base.h"

KY_BEGIN_DECLS
/* Formats into buffer (size characters, always terminated, never overrun) and returns the
 * characters written without the terminator (0 for a null buffer or size < 1).
 * Format syntax:
 *   %...       the platform's printf conversions (d i u o x X c C s S e E f F g G a A p %,
 *              flags "-+ #0", width/precision as digits or '*', lengths hh h l ll L I I32 I64
 *              j z t w); %S and %ls take wide texts; %p gives 8 upper-case hex digits;
 *              %n stores nothing; widths and precisions above 1024 count as 1024.
 *   $(Name)    the value of a named format token (see KyFormatToken_Set); "AppName" is the
 *              host program's name without extension until set. Unknown names stay as they are.
 *   $d $i $u   a decimal number grouped with the locale's thousands separator ("44,100");
 *              $I64d / $lld / $I64u / $llu take 64-bit arguments.
 *   $,         the locale's list separator ("," in English: "$d Hz$, %d-bit$, %s" gives
 *              "44,100 Hz, 16-bit, Stereo").
 *   $$         one '$'; any other '$' is copied as it stands.
 * Thread-safe. */
KY_IMPORT LONG KYAPI_CDECL KyPrintF(char *buffer, LONG size, const char *format, ...);
KY_IMPORT LONG KYAPI KyVPrintF(char *buffer, LONG size, const char *format, va_list args);

/* Named format tokens, kept in the module's token list (thread-safe). Names compare without
 * regard to ASCII case, have 1 to 63 characters and no ')'.
 * Set: adds or replaces (the value is copied): S_OK, E_POINTER, E_INVALIDARG, E_OUTOFMEMORY,
 *   E_FAIL when the token list does not exist.
 * Remove: S_OK, S_FALSE when no such token, E_POINTER.
 * Get: copies the value into buffer (terminated, cut to size) and returns its full length,
 *   or -1 when the name is unknown. */
KY_IMPORT HRESULT KYAPI KyFormatToken_Set(const char *name, const char *value);
KY_IMPORT HRESULT KYAPI KyFormatToken_Remove(const char *name);
KY_IMPORT LONG KYAPI KyFormatToken_Get(const char *name, char *buffer, LONG size);

/* Reads one signed decimal number from the front of text: blanks (spaces, tabs) are skipped,
 * then an optional sign and the digits; values beyond the 32-bit range saturate. Returns 0
 * when no digit follows (also for null text). *end (end may be null) receives the position
 * after the last digit, or text itself when no number was read. */
KY_IMPORT LONG KYAPI KyTextToLongToken(const char *text, const char **end);
KY_END_DECLS

#endif
