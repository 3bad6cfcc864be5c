// KyTextToLongToken: the number reader of the text services.
#include "ky_internal.h"
#include "ky_text.h"

#include <limits.h>

extern "C" LONG WINAPI KyTextToLongToken(const char *text, const char **end) {
  if (end) *end = text;
  if (!text) return 0;
  const char *p = text;
  while (*p == ' ' || *p == '\t') ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  if (*p < '0' || *p > '9') return 0; // no number: nothing read, *end stays at the text
  // Accumulate as a negative value so that LONG_MIN is reachable; saturate on overflow.
  long long value = 0;
  bool saturated = false;
  for (; *p >= '0' && *p <= '9'; ++p) {
    if (!saturated) {
      value = value * 10 - (*p - '0');
      if (value < static_cast<long long>(LONG_MIN)) saturated = true;
    }
  }
  if (end) *end = p;
  if (negative) return saturated ? LONG_MIN : static_cast<LONG>(value);
  if (saturated || value < -static_cast<long long>(LONG_MAX)) return LONG_MAX;
  return static_cast<LONG>(-value);
}
