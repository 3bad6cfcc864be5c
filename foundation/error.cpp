// Error handler: status texts, composed user messages, detail lines and the translation of
// platform error numbers into status codes.
//
// The message buffer, the details and the table registry are process-wide and unlocked:
// messages are composed and shown on the user-interface thread, and the details belong to
// the one thread that added the first line since the last clearing.
#include "error_internal.h"
#include "ky_text.h"
#include <string.h>

namespace ky {
namespace {

// Process-wide error state; KyErrorHandler_DetailsInit clears all of it.
struct ErrorState {
  HRESULT lastError;
  char message[KYERR_MESSAGE_CHARS];
  volatile LONG detailsThread;  // thread that owns the details, 0 = none yet
  DWORD detailLines;
  char details[KYERR_DETAIL_CHARS];
};
ErrorState g_error;
char g_staging[KYERR_DETAIL_CHARS];  // one detail line being formatted

struct ClientTable {
  const tKYERRORTEXT *pairs;
  LONG count;
};
ClientTable g_clientTables[KYERR_MAX_TABLES];
LONG g_clientTableCount;

const char kUnknownOperation[] = "An error occurred during the current operation.";
constexpr HRESULT kCancelled = KYERR_CANCELLED;

const char *OperationFormat(LONG operation) {
  for (size_t i = 0; i < kOperationCount; ++i)
    if (kOperationTable[i].operation == operation) return kOperationTable[i].format;
  return kUnknownOperation;
}

void ClearState() {
  ZeroMemory(&g_error, sizeof g_error);
  g_staging[0] = 0;
}

// Claims the details for the calling thread; false when another thread owns them.
bool OwnDetails() {
  LONG me = static_cast<LONG>(GetCurrentThreadId());
  LONG owner = InterlockedCompareExchange(&g_error.detailsThread, me, 0);
  return owner == 0 || owner == me;
}

HRESULT AddDetail(HRESULT code, const char *format, va_list *args) {
  if (!OwnDetails()) return E_FAIL;
  if (!format) return E_POINTER;
  const char *line = format;
  if (strpbrk(format, "%$")) {
    KyVPrintF(g_staging, sizeof g_staging, format, *args);
    line = g_staging;
  }
  size_t have = strlen(g_error.details);
  size_t add = strlen(line);
  if (have + add + 2 >= sizeof g_error.details) return E_FAIL;
  memcpy(g_error.details + have, line, add);
  memcpy(g_error.details + have + add, "\r\n", 3);
  ++g_error.detailLines;
  g_error.lastError = code;
  return S_OK;
}

const char *StatusText(HRESULT code) {
  for (LONG t = 0; t < g_clientTableCount; ++t) {
    const ClientTable &ct = g_clientTables[t];
    for (LONG i = 0; i < ct.count; ++i)
      if (ct.pairs[i].code == code) return ct.pairs[i].text;
  }
  for (size_t i = 0; i < kStatusCount; ++i)
    if (kStatusTable[i].code == code) return kStatusTable[i].text;
  return nullptr;
}

// Composes the message into the shared buffer: the operation's sentence, then the status
// text (tokens expanded, so "$(AppName)" in a status text reads as the product's name) or
// the "message missing" line, cut to the space left.
const char *ComposeMessage(LONG operation, HRESULT code, const char *arg) {
  char *buf = g_error.message;
  const LONG size = sizeof g_error.message;
  LONG n = KyPrintF(buf, size, OperationFormat(operation), arg ? arg : "");
  if (n >= size - 1) return buf;
  const char *text = StatusText(code);
  if (text)
    ExpandTokens(buf + n, size - n, text);
  else
    KyPrintF(buf + n, size - n, "Error 0x%08x (message missing)", static_cast<unsigned>(code));
  buf[size - 1] = 0;
  return buf;
}

} // namespace
} // namespace ky

using namespace ky;

extern "C" HRESULT WINAPI KyErrorHandler_AddErrorTable(const tKYERRORTEXT *table, LONG count) {
  if (!table || count < 1) return E_POINTER;
  if (g_clientTableCount >= KYERR_MAX_TABLES) return 1;
  g_clientTables[g_clientTableCount].pairs = table;
  g_clientTables[g_clientTableCount].count = count;
  ++g_clientTableCount;
  return S_OK;
}

extern "C" const char *WINAPI KyErrorHandler_GetHresultString(HRESULT code) {
  return Guard<const char *>(nullptr, [&] { return StatusText(code); });
}

extern "C" const char *WINAPI KyErrorHandler_GetErrorMessage(LONG operation, HRESULT code,
                                                             const char *arg) {
  return Guard<const char *>(g_error.message, [&] { return ComposeMessage(operation, code, arg); });
}

extern "C" int WINAPI KyErrorHandler_MsgBox(HWND owner, UINT style, LONG operation, HRESULT code,
                                            const char *arg, BOOL warning) {
  return Guard<int>(0, [&]() -> int {
    if (code == kCancelled) return 1;
    const char *message = ComposeMessage(operation, code, arg);
    style &= ~KYMB_DETAILS;
    char *details = nullptr;
    if (g_error.detailLines && g_error.details[0]) {
      details = static_cast<char *>(HeapAlloc(GetProcessHeap(), 0, KYERR_DETAIL_CHARS));
      if (details) {
        CopyText(details, KYERR_DETAIL_CHARS, g_error.details);
        style |= KYMB_DETAILS;
      }
    }
    static const char kWarning[] = "Warning: ";
    char *shown = static_cast<char *>(
        HeapAlloc(GetProcessHeap(), 0, sizeof kWarning + KYERR_MESSAGE_CHARS));
    int answer = 0;
    if (shown) {
      KyPrintF(shown, sizeof kWarning + KYERR_MESSAGE_CHARS, "%s%s", warning ? kWarning : "",
               message);
      ClearState();
      answer = KyMsgBox_Custom(owner, style, details, shown);
      HeapFree(GetProcessHeap(), 0, shown);
    } else {
      ClearState();
    }
    if (details) HeapFree(GetProcessHeap(), 0, details);
    return answer;
  });
}

extern "C" HRESULT WINAPI KyErrorHandler_DetailsInit() {
  ClearState();
  return S_OK;
}

extern "C" HRESULT __cdecl KyErrorHandler_DetailsAddString(HRESULT code, const char *format, ...) {
  va_list a;
  va_start(a, format);
  HRESULT hr = GuardHr([&] { return AddDetail(code, format, &a); });
  va_end(a);
  return hr;
}

extern "C" HRESULT WINAPI KyErrorHandler_GetLastError() { return g_error.lastError; }

extern "C" HRESULT WINAPI KyErrorHandler_TranslateWin32Error(DWORD error) {
  for (size_t i = 0; i < kPlatformCount; ++i)
    if (kPlatformTable[i].error == error) return kPlatformTable[i].status;
  return E_FAIL;
}

extern "C" HRESULT WINAPI KyErrorHandler_TranslateCommDlgError(DWORD error) {
  switch (error) {
  case 0:
    return S_OK;
  case 1: case 3: case 4: case 11: case 0x3003: case 0x4001: case 0xFFFF:
    return E_INVALIDARG;
  case 2: case 5: case 7: case 8: case 9: case 10: case 0x3001:
    return E_OUTOFMEMORY;
  case 6:
    return KYERR_RESOURCE_MISSING;
  case 0x3002:
    return KYERR_BAD_FILENAME;
  default:
    return E_FAIL;
  }
}
