// PLACEHOLDER until the text formatter lands: plain printf conversions only.
#include "ky_internal.h"
#include "ky_text.h"
#include <stdio.h>
extern "C" LONG WINAPI KyVPrintF(char *buffer, LONG size, const char *format, va_list args) {
  if (!buffer || size <= 0) return 0;
  int n = vsnprintf(buffer, size, format ? format : "", args);
  buffer[size - 1] = 0;
  return n < 0 ? 0 : (n >= size ? size - 1 : n);
}
extern "C" LONG __cdecl KyPrintF(char *buffer, LONG size, const char *format, ...) {
  va_list a;
  va_start(a, format);
  LONG n = KyVPrintF(buffer, size, format, a);
  va_end(a);
  return n;
}
