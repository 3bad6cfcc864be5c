/* tellarok text formatter and number/token text. */
#ifndef TELLAROK_KY_TEXT_H
#define TELLAROK_KY_TEXT_H

#include <stdarg.h>
#include "ky_base.h"

KY_BEGIN_DECLS
/* Formats like the platform's printf family into buffer (size characters, always
 * terminated, never overrun) and expands the library's named tokens; returns the
 * characters written without the terminator. */
KY_IMPORT LONG KYAPI_CDECL KyPrintF(char *buffer, LONG size, const char *format, ...);
KY_IMPORT LONG KYAPI KyVPrintF(char *buffer, LONG size, const char *format, va_list args);
/* Reads one signed decimal number from the front of text: blanks (spaces, tabs) are skipped,
 * then an optional sign and the digits; values beyond the 32-bit range saturate. Returns 0
 * when no digit follows (also for null text). *end (end may be null) receives the position
 * after the last digit, or text itself when no number was read. */
KY_IMPORT LONG KYAPI KyTextToLongToken(const char *text, const char **end);
KY_END_DECLS

#endif
