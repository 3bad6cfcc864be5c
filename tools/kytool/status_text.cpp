// kytool: status texts shared by the commands.
#include "kytool.h"

#include <stdio.h>
#include <windows.h>

namespace kytool {

// The error handler's text is found at run time, so that the tool works with any build of the
// library; leading blank lines of the message are dropped.
std::string StatusText(long status) {
  typedef const char *(WINAPI * StatusTextFn)(HRESULT);
  static StatusTextFn fn = reinterpret_cast<StatusTextFn>(reinterpret_cast<void *>(
      GetProcAddress(GetModuleHandleA("tellarok.dll"), "KyErrorHandler_GetHresultString")));
  const char *t = fn ? fn(static_cast<HRESULT>(status)) : nullptr;
  char code[16];
  snprintf(code, sizeof code, "0x%08lX", static_cast<unsigned long>(status));
  if (!t) return code;
  while (*t == '\n' || *t == '\r') ++t;
  return std::string(code) + ": " + t;
}

}  // namespace kytool
