// The library's text formatter: printf conversions plus the "$" forms that every user text
// of the library relies on (named tokens, grouped numbers, the list separator).
//
// Syntax of a format text:
//   %[flags][width][.precision][length]conv   as the platform's printf: conversions
//       d i u o x X c C s S e E f F g G a A p %, flags "-+ #0", width and precision as
//       digits or "*", lengths hh h l ll L I I32 I64 j z t w. %s with "l"/"w" and %S take a
//       wide text (converted with the ANSI code page); %c with "l"/"w" and %C a wide
//       character; a null text prints "(null)"; %p prints 8 upper-case hex digits; "L" takes
//       a double (long double is a double for this platform's compilers); %n stores nothing
//       (it consumes its pointer) so that a format can never write through an argument.
//       Floating-point exponents have at least two digits ("2.5e+00"), as in C99. Widths
//       and precisions above 1024 count as 1024. An unknown conversion is copied as it
//       stands and consumes no argument.
//   $(Name)   the value of the named token (names compare without regard to ASCII case);
//       "AppName" answers the host program's file name without its extension until a
//       client sets it. An unknown name, or a "$(" without ")" within 64 characters, is
//       copied as it stands. A value is inserted as it is: tokens in it are not expanded.
//   $d $i $u  a decimal number with the locale's thousands separator every three digits
//       ("$d" of 44100 gives "44,100"); "$I64d", "$lld", "$I64u", "$llu" take 64-bit
//       arguments, "$ld"/"$lu"/"$hd"/"$hu" are accepted as in printf.
//   $,        the locale's list separator (LOCALE_SLIST, "," when unknown); so
//       "$d Hz$, %d-bit$, %s" gives "44,100 Hz, 16-bit, Stereo".
//   $$        one "$".
//   Any other "$" is copied as it stands.
// The output never exceeds the caller's buffer: it is cut at size - 1 characters and always
// terminated; the answer is the number of characters written without the terminator.
#include "ky_internal.h"
#include "ky_text.h"
#include <limits.h>
#include <stdio.h>
#include <string.h>
#include <wchar.h>

namespace ky {
namespace {

constexpr int kMaxField = 1024;     // widths and precisions are capped here
constexpr int kMaxTokenName = 64;   // longest token name looked for after "$("

// Bounded writer into the caller's buffer.
struct Out {
  char *buf;
  LONG size;
  LONG len = 0;
  Out(char *b, LONG s) : buf(b), size(s) {}
  bool Full() const { return len >= size - 1; }
  void Put(char c) {
    if (len < size - 1) buf[len++] = c;
  }
  void Put(const char *s, size_t n) {
    while (n-- && len < size - 1) buf[len++] = *s++;
  }
  void Pad(char c, int n) {
    while (n-- > 0 && len < size - 1) buf[len++] = c;
  }
  LONG Finish() {
    buf[len] = 0;
    return len;
  }
};

bool SameNameAscii(const char *a, size_t alen, const char *b) {
  size_t i = 0;
  for (; i < alen && b[i]; ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return i == alen && b[i] == 0;
}

// A token item of the token list: "name\0value\0".
const char *TokenValue(const char *item) { return item + strlen(item) + 1; }

// Index of the named token in the list, or -1. The caller holds the list's lock.
LONG FindTokenLocked(const char *name, size_t nameLen) {
  HKYLIST l = g.tokenList;
  for (LONG i = 0; i < l->count; ++i) {
    const char *item = reinterpret_cast<char **>(l->items)[i];
    if (item && SameNameAscii(name, nameLen, item)) return i;
  }
  return -1;
}

// Host program's file name without folder and extension ("AppName" until a client sets it).
int HostName(char *dst, int size) {
  char path[MAX_PATH] = "";
  GetModuleFileNameA(nullptr, path, MAX_PATH);
  const char *name = path;
  for (const char *p = path; *p; ++p)
    if (*p == '\\' || *p == '/' || *p == ':') name = p + 1;
  char tmp[MAX_PATH];
  CopyText(tmp, MAX_PATH, name);
  char *dot = strrchr(tmp, '.');
  if (dot) *dot = 0;
  return CopyText(dst, size, tmp);
}

// Appends the value of a token to out; false when the name is unknown.
bool ExpandToken(Out &out, const char *name, size_t nameLen) {
  if (g.tokenList) {
    EnterCriticalSection(&g.tokenList->lock);
    LONG i = FindTokenLocked(name, nameLen);
    if (i >= 0) {
      const char *v = TokenValue(reinterpret_cast<char **>(g.tokenList->items)[i]);
      out.Put(v, strlen(v));
    }
    LeaveCriticalSection(&g.tokenList->lock);
    if (i >= 0) return true;
  }
  if (SameNameAscii(name, nameLen, "AppName")) {
    char host[MAX_PATH];
    int n = HostName(host, MAX_PATH);
    out.Put(host, static_cast<size_t>(n));
    return true;
  }
  return false;
}

void PutGrouped(Out &out, unsigned long long v, bool negative) {
  char digits[32];
  int n = 0;
  do {
    digits[n++] = static_cast<char>('0' + v % 10);
    v /= 10;
  } while (v);
  char sep = LocaleThousandSeparator();
  if (negative) out.Put('-');
  for (int i = n - 1; i >= 0; --i) {
    out.Put(digits[i]);
    if (i > 0 && i % 3 == 0 && sep) out.Put(sep);
  }
}

void PutListSeparator(Out &out) {
  char sep[8];
  if (GetLocaleInfoA(LOCALE_USER_DEFAULT, LOCALE_SLIST, sep, sizeof sep) > 1)
    out.Put(sep, strlen(sep));
  else
    out.Put(',');
}

enum class Len { None, HH, H, L, LL, BigL, W };

// Reads a length modifier at p; advances p.
Len ParseLength(const char *&p) {
  if (p[0] == 'h' && p[1] == 'h') { p += 2; return Len::HH; }
  if (p[0] == 'h') { p += 1; return Len::H; }
  if (p[0] == 'l' && p[1] == 'l') { p += 2; return Len::LL; }
  if (p[0] == 'l') { p += 1; return Len::L; }
  if (p[0] == 'L') { p += 1; return Len::BigL; }
  if (p[0] == 'w') { p += 1; return Len::W; }
  if (p[0] == 'j') { p += 1; return Len::LL; }
  if (p[0] == 'z' || p[0] == 't') { p += 1; return Len::None; }
  if (p[0] == 'I' && p[1] == '6' && p[2] == '4') { p += 3; return Len::LL; }
  if (p[0] == 'I' && p[1] == '3' && p[2] == '2') { p += 3; return Len::None; }
  if (p[0] == 'I') { p += 1; return Len::None; }
  return Len::None;
}

// Handles "$..." at p (p points after the '$'); returns the position after the form.
const char *DollarForm(Out &out, const char *p, va_list *args) {
  if (*p == '$') {
    out.Put('$');
    return p + 1;
  }
  if (*p == ',') {
    PutListSeparator(out);
    return p + 1;
  }
  if (*p == '(') {
    const char *name = p + 1;
    const char *close = name;
    while (*close && *close != ')' && close - name < kMaxTokenName) ++close;
    if (*close == ')' && ExpandToken(out, name, static_cast<size_t>(close - name)))
      return close + 1;
    out.Put('$');
    return p;
  }
  const char *q = p;
  Len len = ParseLength(q);
  if (*q == 'd' || *q == 'i' || *q == 'u') {
    bool isSigned = *q != 'u';
    unsigned long long mag;
    bool negative = false;
    if (len == Len::LL) {
      long long v = va_arg(*args, long long);
      if (isSigned && v < 0) {
        negative = true;
        mag = 0ull - static_cast<unsigned long long>(v);
      } else {
        mag = static_cast<unsigned long long>(v);
      }
    } else {
      int v = va_arg(*args, int);
      if (len == Len::H) v = isSigned ? static_cast<short>(v) : static_cast<unsigned short>(v);
      if (len == Len::HH) v = isSigned ? static_cast<signed char>(v) : static_cast<unsigned char>(v);
      if (isSigned && v < 0) {
        negative = true;
        mag = 0ull - static_cast<unsigned long long>(static_cast<long long>(v));
      } else {
        mag = static_cast<unsigned int>(v);
      }
    }
    PutGrouped(out, mag, negative);
    return q + 1;
  }
  out.Put('$');
  return p;
}

// Right-aligned text is padded with '0' under the "0" flag, as the platform's printf does for
// %s and %c; left-aligned text always with blanks.
void PutPadded(Out &out, const char *s, size_t n, int width, bool left, bool zero = false) {
  int pad = width - static_cast<int>(n);
  if (!left) out.Pad(zero ? '0' : ' ', pad);
  out.Put(s, n);
  if (left) out.Pad(' ', pad);
}

// Converts up to maxChars wide characters of w (or all when maxChars < 0) to the ANSI code
// page and appends them with padding.
void PutWide(Out &out, const wchar_t *w, int precision, int width, bool left, bool zero) {
  if (!w) w = L"(null)";
  int wl = static_cast<int>(wcslen(w));
  if (precision >= 0 && precision < wl) wl = precision;
  char stackBuf[512];
  char *tmp = stackBuf;
  int need = wl ? WideCharToMultiByte(CP_ACP, 0, w, wl, nullptr, 0, nullptr, nullptr) : 0;
  if (need > static_cast<int>(sizeof stackBuf))
    tmp = static_cast<char *>(HeapAlloc(GetProcessHeap(), 0, static_cast<SIZE_T>(need)));
  int n = 0;
  if (tmp && need > 0) n = WideCharToMultiByte(CP_ACP, 0, w, wl, tmp, need, nullptr, nullptr);
  if (tmp) PutPadded(out, tmp, static_cast<size_t>(n), width, left, zero);
  if (tmp && tmp != stackBuf) HeapFree(GetProcessHeap(), 0, tmp);
}

// Handles "%..." at p (p points after the '%'); returns the position after the conversion.
const char *PercentForm(Out &out, const char *start, const char *p, va_list *args) {
  char flags[8];
  int nflags = 0;
  bool left = false;
  bool zero = false;
  while (*p == '-' || *p == '+' || *p == ' ' || *p == '#' || *p == '0') {
    if (*p == '-') left = true;
    if (*p == '0') zero = true;
    if (nflags < 7 && !memchr(flags, *p, static_cast<size_t>(nflags))) flags[nflags++] = *p;
    ++p;
  }
  flags[nflags] = 0;
  int width = -1, precision = -1;
  if (*p == '*') {
    width = va_arg(*args, int);
    if (width < 0) {
      left = true;
      if (nflags < 7 && !memchr(flags, '-', static_cast<size_t>(nflags))) {
        flags[nflags++] = '-';
        flags[nflags] = 0;
      }
      width = width == INT_MIN ? kMaxField : -width;
    }
    ++p;
  } else {
    while (*p >= '0' && *p <= '9') {
      width = (width < 0 ? 0 : width) * 10 + (*p - '0');
      if (width > kMaxField) width = kMaxField;
      ++p;
    }
  }
  if (*p == '.') {
    ++p;
    precision = 0;
    if (*p == '*') {
      precision = va_arg(*args, int);
      if (precision < 0) precision = -1;  // a negative precision counts as none
      ++p;
    } else {
      while (*p >= '0' && *p <= '9') {
        precision = precision * 10 + (*p - '0');
        if (precision > kMaxField) precision = kMaxField;
        ++p;
      }
    }
  }
  if (width > kMaxField) width = kMaxField;
  if (precision > kMaxField) precision = kMaxField;
  Len len = ParseLength(p);
  char conv = *p;

  // The conversion text handed to snprintf: flags, width, precision, length, conversion.
  char spec[48];
  auto makeSpec = [&](const char *length, char c) {
    int n = snprintf(spec, sizeof spec, "%%%s", flags);
    if (width >= 0) n += snprintf(spec + n, sizeof spec - n, "%d", width);
    if (precision >= 0) n += snprintf(spec + n, sizeof spec - n, ".%d", precision);
    snprintf(spec + n, sizeof spec - n, "%s%c", length, c);
  };
  // Big enough for any capped width or precision plus the longest double.
  char tmp[kMaxField + 400];

#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  switch (conv) {
  case '%':
    out.Put('%');
    return p + 1;
  case 'd':
  case 'i':
  case 'u':
  case 'o':
  case 'x':
  case 'X': {
    int n;
    if (len == Len::LL) {
      makeSpec("ll", conv);
      n = snprintf(tmp, sizeof tmp, spec, va_arg(*args, long long));
    } else {
      int v = va_arg(*args, int);
      bool isSigned = conv == 'd' || conv == 'i';
      if (len == Len::H) v = isSigned ? static_cast<short>(v) : static_cast<unsigned short>(v);
      if (len == Len::HH) v = isSigned ? static_cast<signed char>(v) : static_cast<unsigned char>(v);
      makeSpec("", conv);
      n = snprintf(tmp, sizeof tmp, spec, v);
    }
    if (n > 0) out.Put(tmp, static_cast<size_t>(n < static_cast<int>(sizeof tmp) ? n : sizeof tmp - 1));
    return p + 1;
  }
  case 'e':
  case 'E':
  case 'f':
  case 'F':
  case 'g':
  case 'G':
  case 'a':
  case 'A': {
    makeSpec("", conv);
    int n = snprintf(tmp, sizeof tmp, spec, va_arg(*args, double));
    if (n > 0) out.Put(tmp, static_cast<size_t>(n < static_cast<int>(sizeof tmp) ? n : sizeof tmp - 1));
    return p + 1;
  }
  case 'p': {
    int n = snprintf(tmp, sizeof tmp, "%08X", static_cast<unsigned>(reinterpret_cast<UINT_PTR>(va_arg(*args, void *))));
    PutPadded(out, tmp, static_cast<size_t>(n), width, left);
    return p + 1;
  }
  case 'c':
  case 'C': {
    int v = va_arg(*args, int);
    if (conv == 'C' || len == Len::L || len == Len::W) {
      wchar_t w[2] = {static_cast<wchar_t>(v), 0};
      PutWide(out, w, -1, width, left, zero);
    } else {
      char c = static_cast<char>(v);
      PutPadded(out, &c, 1, width, left, zero);
    }
    return p + 1;
  }
  case 's':
  case 'S': {
    if (conv == 'S' || len == Len::L || len == Len::W) {
      PutWide(out, va_arg(*args, const wchar_t *), precision, width, left, zero);
    } else {
      const char *s = va_arg(*args, const char *);
      if (!s) s = "(null)";
      size_t n = 0;
      // With a precision the text need not be terminated: read no further than it.
      while ((precision < 0 || n < static_cast<size_t>(precision)) && s[n]) ++n;
      PutPadded(out, s, n, width, left, zero);
    }
    return p + 1;
  }
  case 'n':
    (void)va_arg(*args, void *);
    return p + 1;
  default:
    // Unknown or missing conversion: copy the text from the '%' as it stands.
    out.Put(start, static_cast<size_t>(p - start));
    return p;
  }
#pragma GCC diagnostic pop
}

LONG FormatText(char *buffer, LONG size, const char *format, va_list *args) {
  if (!buffer || size <= 0) return 0;
  Out out(buffer, size);
  const char *p = format ? format : "";
  while (*p && !out.Full()) {
    if (*p == '%') {
      p = PercentForm(out, p, p + 1, args);
    } else if (*p == '$') {
      p = DollarForm(out, p + 1, args);
    } else {
      const char *run = p;
      while (*p && *p != '%' && *p != '$') ++p;
      out.Put(run, static_cast<size_t>(p - run));
    }
  }
  return out.Finish();
}

} // namespace

LONG ExpandTokens(char *dst, LONG size, const char *text) {
  if (!dst || size <= 0) return 0;
  Out out(dst, size);
  const char *p = text ? text : "";
  while (*p && !out.Full()) {
    if (p[0] == '$' && p[1] == '(') {
      p = DollarForm(out, p + 1, nullptr);
    } else {
      out.Put(*p++);
    }
  }
  return out.Finish();
}

} // namespace ky

using namespace ky;

extern "C" LONG WINAPI KyVPrintF(char *buffer, LONG size, const char *format, va_list args) {
  return Guard<LONG>(0, [&]() -> LONG {
    va_list copy;
    va_copy(copy, args);
    LONG n = FormatText(buffer, size, format, &copy);
    va_end(copy);
    return n;
  });
}

extern "C" LONG __cdecl KyPrintF(char *buffer, LONG size, const char *format, ...) {
  va_list a;
  va_start(a, format);
  LONG n = KyVPrintF(buffer, size, format, a);
  va_end(a);
  return n;
}

extern "C" HRESULT WINAPI KyFormatToken_Set(const char *name, const char *value) {
  return GuardHr([&]() -> HRESULT {
    if (!name || !value) return E_POINTER;
    size_t nl = strlen(name), vl = strlen(value);
    if (nl == 0 || nl >= static_cast<size_t>(kMaxTokenName) || strchr(name, ')'))
      return E_INVALIDARG;
    if (!g.tokenList) return E_FAIL;
    LONG size = static_cast<LONG>(nl + vl + 2);
    char *item = static_cast<char *>(HeapAlloc(GetProcessHeap(), 0, static_cast<SIZE_T>(size)));
    if (!item) return E_OUTOFMEMORY;
    memcpy(item, name, nl + 1);
    memcpy(item + nl + 1, value, vl + 1);
    EnterCriticalSection(&g.tokenList->lock);
    LONG i = FindTokenLocked(name, nl);
    HRESULT hr = S_OK;
    if (i >= 0) hr = KyList_DeleteList(g.tokenList, i, 1, FALSE);
    if (SUCCEEDED(hr)) hr = KyList_AllocAndInsertItem(g.tokenList, item, size, -1, nullptr);
    LeaveCriticalSection(&g.tokenList->lock);
    HeapFree(GetProcessHeap(), 0, item);
    return hr;
  });
}

extern "C" HRESULT WINAPI KyFormatToken_Remove(const char *name) {
  return GuardHr([&]() -> HRESULT {
    if (!name) return E_POINTER;
    if (!g.tokenList) return S_FALSE;
    EnterCriticalSection(&g.tokenList->lock);
    LONG i = FindTokenLocked(name, strlen(name));
    HRESULT hr = i >= 0 ? KyList_DeleteList(g.tokenList, i, 1, FALSE) : S_FALSE;
    LeaveCriticalSection(&g.tokenList->lock);
    return hr;
  });
}

extern "C" LONG WINAPI KyFormatToken_Get(const char *name, char *buffer, LONG size) {
  return Guard<LONG>(-1, [&]() -> LONG {
    if (buffer && size > 0) buffer[0] = 0;
    if (!name) return -1;
    // Expand into a generous buffer, then copy what fits; the answer is the full length.
    char *full = static_cast<char *>(HeapAlloc(GetProcessHeap(), 0, 0x10000));
    if (!full) return -1;
    Out out(full, 0x10000);
    bool found = ExpandToken(out, name, strlen(name));
    LONG n = found ? out.Finish() : -1;
    if (found && buffer && size > 0) CopyText(buffer, size, full);
    HeapFree(GetProcessHeap(), 0, full);
    return n;
  });
}
