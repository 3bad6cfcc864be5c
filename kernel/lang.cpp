// The language handle: the user's locale, its number conventions, and the string tables
// that KyGetString2 searches (the kernel's own table of 167 strings from identifier 4000
// first, then tables that clients add).
#include "ky_internal.h"
#include "ky_kernel.h"

#include <stdlib.h>

namespace ky {

struct StringTable {
  HMODULE module;
  UINT first;
  UINT count;
};

struct Language {
  LCID lcid;
  char thousand;
  char decimal;
  int tableCount;
  int tableCapacity;
  StringTable *tables;
  CRITICAL_SECTION lock;
};

namespace {
constexpr UINT kKernelFirstString = 4000;
constexpr UINT kKernelStringCount = 167;

bool AddTable(Language *l, HMODULE module, UINT first, UINT count) {
  EnterCriticalSection(&l->lock);
  bool ok = true;
  if (l->tableCount == l->tableCapacity) {
    int cap = l->tableCapacity ? l->tableCapacity * 2 : 4;
    auto *t = static_cast<StringTable *>(realloc(l->tables, cap * sizeof(StringTable)));
    if (t) {
      l->tables = t;
      l->tableCapacity = cap;
    } else {
      ok = false;
    }
  }
  if (ok) l->tables[l->tableCount++] = {module, first, count};
  LeaveCriticalSection(&l->lock);
  return ok;
}

char LocaleChar(LCID lcid, LCTYPE type, char fallback) {
  char buf[8];
  return GetLocaleInfoA(lcid, type, buf, sizeof buf) > 1 ? buf[0] : fallback;
}
} // namespace

Language *LanguageOpen(LCID lcid) {
  auto *l = static_cast<Language *>(calloc(1, sizeof(Language)));
  if (!l) return nullptr;
  InitializeCriticalSection(&l->lock);
  l->lcid = lcid;
  if (!AddTable(l, g.module, kKernelFirstString, kKernelStringCount)) {
    LanguageClose(l);
    return nullptr;
  }
  l->thousand = LocaleChar(lcid, LOCALE_STHOUSAND, ',');
  l->decimal = LocaleChar(lcid, LOCALE_SDECIMAL, '.');
  return l;
}

void LanguageClose(Language *l) {
  if (!l) return;
  DeleteCriticalSection(&l->lock);
  free(l->tables);
  free(l);
}

char LocaleThousandSeparator() { return g.language ? g.language->thousand : ','; }
char LocaleDecimalSeparator() { return g.language ? g.language->decimal : '.'; }

} // namespace ky

using namespace ky;

extern "C" LONG WINAPI KyLoadString(HMODULE module, UINT id, char *buffer, LONG size) {
  if (!buffer || size <= 0) return 0;
  buffer[0] = 0;
  return LoadStringA(module ? module : g.module, id, buffer, size);
}

extern "C" LONG WINAPI KyGetString2(UINT id, char *buffer, LONG size) {
  if (!buffer || size <= 0) return 0;
  buffer[0] = 0;
  Language *l = g.language;
  if (!l) return 0;
  LONG n = 0;
  EnterCriticalSection(&l->lock);
  for (int i = 0; i < l->tableCount && n == 0; ++i) {
    const StringTable &t = l->tables[i];
    if (id >= t.first && id - t.first < t.count) n = LoadStringA(t.module, id, buffer, size);
  }
  LeaveCriticalSection(&l->lock);
  return n;
}

extern "C" HRESULT WINAPI KyLang_AddStringTable(HMODULE module, UINT firstId, UINT count) {
  if (!module) return E_INVALIDARG;
  if (!g.language) return E_FAIL;
  return AddTable(g.language, module, firstId, count) ? S_OK : E_OUTOFMEMORY;
}

extern "C" LCID WINAPI KyLang_GetLocale() { return g.language ? g.language->lcid : 0; }
