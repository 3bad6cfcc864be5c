// PLACEHOLDER until the item-list implementation lands: just enough for the frame to link.
#include "ky_internal.h"
#include <stdlib.h>
#include <string.h>
extern "C" HRESULT WINAPI KyList_CreateExZ(HKYLIST *out, LONG itemSize, LONG, LONG, DWORD options, DWORD, DWORD, DWORD) {
  *out = nullptr;
  auto *l = static_cast<HKYLIST>(calloc(1, sizeof(tKYLIST)));
  l->slotSize = (options & KYLIST_ARRAY) ? ((itemSize + 3) & ~3) : 4;
  l->allocated = 256;
  l->items = static_cast<BYTE *>(calloc(256, l->slotSize));
  if (options & KYLIST_THREADSAFE) InitializeCriticalSection(&l->lock);
  l->options = options | KYLIST_ANYTHREAD;
  *out = l;
  return S_OK;
}
extern "C" HRESULT WINAPI KyList_Destroy(HKYLIST l) { if (!l) return S_OK; free(l->items); free(l); return S_OK; }
extern "C" HRESULT WINAPI KyList_InsertList(HKYLIST l, LONG, const void *items, LONG count) {
  memcpy(l->items + l->count * l->slotSize, items, count * l->slotSize); l->count += count; return S_OK; }
extern "C" HRESULT WINAPI KyList_DeleteList(HKYLIST l, LONG index, LONG count, BOOL) {
  memmove(l->items + index * l->slotSize, l->items + (index + count) * l->slotSize, (l->count - index - count) * l->slotSize);
  l->count -= count; return S_OK; }
