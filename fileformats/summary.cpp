// Summary lists in memory: item lookup, setting, copying, comparing, and the stream form.
#include <string.h>

#include "ky_internal.h"
#include "ky_summary.h"
#include "ky_status.h"
#include "meta_io.h"

using namespace ky::meta;

namespace {

char *DupText(const char *s) {
  size_t n = strlen(s) + 1;
  char *p = static_cast<char *>(GlobalNew(n));
  if (p) memcpy(p, s, n);
  return p;
}

LONG FindItem(const SUMMARYLIST *t, DWORD id) {
  if (!t || (LONG)t->count < 1 || !t->items) return -1;
  for (DWORD i = 0; i < t->count; ++i)
    if (t->items[i].id == id) return (LONG)i;
  return -1;
}

HRESULT StreamWrite(IStream *s, const void *p, ULONG n, HRESULT *last) {
  ULONG done = 0;
  HRESULT hr = s->Write(p, n, &done);
  *last = hr;
  return hr;
}

}  // namespace

extern "C" {

HRESULT KYAPI KySummary_Free(SUMMARYLIST *table) {
  if (!table || !table->items) return S_OK;
  for (DWORD i = 0; i < table->count; ++i) GlobalDelete(table->items[i].text);
  GlobalDelete(table->items);
  table->items = nullptr;
  table->count = 0;
  return S_OK;
}

LONG KYAPI KySummary_GetItemIndex(const SUMMARYLIST *table, DWORD id) {
  LONG i = FindItem(table, id);
  return i < 0 ? KYERR_NOT_FOUND : i;
}

const char *KYAPI KySummary_GetItemText(const SUMMARYLIST *table, DWORD id) {
  LONG i = FindItem(table, id);
  return i < 0 ? nullptr : table->items[i].text;
}

HRESULT KYAPI KySummary_SetItem(SUMMARYLIST *table, DWORD id, const char *text) {
  if (!table) return E_POINTER;
  LONG i = FindItem(table, id);
  if (i < 0) {
    DWORD n = table->items ? table->count : 0;
    void *grown = GlobalResize(table->items, (n + 1) * sizeof(KYSUMMARYITEM));
    if (!grown) return E_OUTOFMEMORY;
    table->items = static_cast<KYSUMMARYITEM *>(grown);
    table->items[n].id = id;
    table->items[n].text = nullptr;
    table->count = n + 1;
    if (!text) return S_OK;
    table->items[n].text = DupText(text);
    return table->items[n].text ? S_OK : E_OUTOFMEMORY;
  }
  KYSUMMARYITEM &it = table->items[i];
  if (!text) {
    GlobalDelete(it.text);
    it.text = nullptr;
    return S_OK;
  }
  if (it.text == text) return S_OK;  // set to its own text: nothing changes
  size_t n = strlen(text) + 1;
  void *p = GlobalResize(it.text, n);
  if (!p) return E_OUTOFMEMORY;
  it.text = static_cast<char *>(p);
  memcpy(it.text, text, n);
  return S_OK;
}

HRESULT KYAPI KySummary_Copy(SUMMARYLIST *dst, const SUMMARYLIST *src) {
  if (!dst || !src) return E_POINTER;
  dst->items = nullptr;
  dst->count = src->items ? src->count : 0;
  if (dst->count == 0) return S_OK;
  dst->items = static_cast<KYSUMMARYITEM *>(GlobalNew(dst->count * sizeof(KYSUMMARYITEM)));
  if (!dst->items) {
    dst->count = 0;
    return E_OUTOFMEMORY;
  }
  for (DWORD i = 0; i < dst->count; ++i) {
    dst->items[i].id = src->items[i].id;
    if (!src->items[i].text) continue;
    dst->items[i].text = DupText(src->items[i].text);
    if (!dst->items[i].text) {
      KySummary_Free(dst);
      return E_OUTOFMEMORY;
    }
  }
  return S_OK;
}

BOOL KYAPI KySummary_Compare(const SUMMARYLIST *a, const SUMMARYLIST *b) {
  if (!a || !b || a->count != b->count) return FALSE;
  if (a->count && (!a->items || !b->items)) return a->items == b->items;
  for (DWORD i = 0; i < a->count; ++i) {
    const char *x = a->items[i].text, *y = b->items[i].text;
    if (!x && !y) continue;
    if (!x || !y || strcmp(x, y) != 0) return FALSE;
  }
  return TRUE;
}

}  // extern "C"

HRESULT __stdcall _summarylisttag::Persist(IStream *stream, BOOL) {
  return ky::GuardHr([&]() -> HRESULT {
    if (count == 0 || !items) return S_OK;
    if (!stream) return E_POINTER;
    HRESULT last = S_OK;
    DWORD head[2] = {8, count};
    if (FAILED(StreamWrite(stream, head, 8, &last))) return last;
    for (DWORD i = 0; i < count; ++i) {
      DWORD rec[2] = {items[i].id, 0};
      WCHAR *wide = nullptr;
      if (items[i].text) {
        int chars = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, items[i].text, -1, nullptr, 0);
        if (chars <= 0) chars = 1;
        wide = static_cast<WCHAR *>(calloc(chars, sizeof(WCHAR)));
        if (!wide) return E_OUTOFMEMORY;
        MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, items[i].text, -1, wide, chars);
        wide[chars - 1] = 0;
        rec[1] = (DWORD)chars * 2;
      }
      if (FAILED(StreamWrite(stream, rec, 8, &last)) ||
          (wide && FAILED(StreamWrite(stream, wide, rec[1], &last)))) {
        free(wide);
        return last;
      }
      free(wide);
    }
    return last;
  });
}

HRESULT __stdcall _summarylisttag::Create(IStream *stream, BOOL, _summarylisttag *table) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!table) return E_INVALIDARG;
    if (!stream) return E_POINTER;
    DWORD head[2] = {0, 0};
    ULONG got = 0;
    HRESULT hr = stream->Read(head, 8, &got);
    if (FAILED(hr)) return hr;
    table->count = 0;
    table->items = nullptr;
    if (got < 8 || head[1] == 0) return S_OK;  // nothing persisted: an empty table
    // The count comes from the stream: refuse one that cannot be an array in this process.
    if (head[1] > 0x0FFFFFFF) return E_OUTOFMEMORY;
    table->items = static_cast<KYSUMMARYITEM *>(GlobalNew(head[1] * sizeof(KYSUMMARYITEM)));
    if (!table->items) return E_OUTOFMEMORY;
    table->count = head[1];
    for (DWORD i = 0; i < table->count; ++i) {
      DWORD rec[2] = {0, 0};
      hr = stream->Read(rec, 8, &got);
      if (FAILED(hr)) return hr;
      table->items[i].id = rec[0];
      DWORD chars = rec[1] / 2;
      if (chars == 0) continue;
      if (rec[1] > 0x10000000) return E_OUTOFMEMORY;  // no text of this process is that long
      // All L bytes are read (an odd length keeps the stream in step); one more character of
      // room keeps the text terminated whatever the stream held.
      WCHAR *wide = static_cast<WCHAR *>(calloc(chars + 2, sizeof(WCHAR)));
      if (!wide) return E_OUTOFMEMORY;
      hr = stream->Read(wide, rec[1], &got);
      if (FAILED(hr)) {
        free(wide);
        return hr;
      }
      char *text = static_cast<char *>(GlobalNew(chars));
      if (!text) {
        free(wide);
        return E_OUTOFMEMORY;
      }
      wide[chars] = 0;
      if (wide[0]) WideCharToMultiByte(CP_ACP, 0, wide, -1, text, (int)chars, nullptr, nullptr);
      text[chars - 1] = 0;
      free(wide);
      table->items[i].text = text;
    }
    return S_OK;
  });
}
