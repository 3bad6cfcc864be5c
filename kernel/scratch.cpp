// Per-thread 128 KiB scratch buffers (used by the wave-file stream reader): one record per
// thread in a thread-safe array list, each buffer a locked, zero-filled global block.
#include "ky_internal.h"
#include "ky_kernel.h"

namespace ky {

namespace {
struct ScratchRecord {
  DWORD thread;
  DWORD size;
  void *buffer;
};
static_assert(sizeof(ScratchRecord) == 12);

void FreeBlock(void *p) {
  if (!p) return;
  HGLOBAL h = GlobalHandle(p);
  GlobalUnlock(h);
  GlobalFree(h);
}

LONG FindThread(HKYLIST t, DWORD thread) {
  auto *r = reinterpret_cast<ScratchRecord *>(t->items);
  for (LONG i = 0; i < t->count; ++i)
    if (r[i].thread == thread) return i;
  return -1;
}
} // namespace

void CreateScratchTable() {
  if (!g.scratchTable)
    KyList_CreateExZ(&g.scratchTable, sizeof(ScratchRecord), 16, 16,
                     KYLIST_THREADSAFE | KYLIST_ARRAY, 0, 0, 0);
}

void *ThreadScratch(DWORD *outSize) {
  if (outSize) *outSize = 0;
  HKYLIST t = g.scratchTable;
  if (!t) return nullptr;
  DWORD me = GetCurrentThreadId();
  void *result = nullptr;
  EnterCriticalSection(&t->lock);
  LONG i = FindThread(t, me);
  if (i >= 0) {
    result = reinterpret_cast<ScratchRecord *>(t->items)[i].buffer;
  } else {
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, kScratchSize);
    void *p = h ? GlobalLock(h) : nullptr;
    if (p) {
      ScratchRecord rec = {me, kScratchSize, p};
      if (SUCCEEDED(KyList_InsertList(t, -1, &rec, 1)))
        result = p;
      else
        FreeBlock(p);
    } else if (h) {
      GlobalFree(h);
    }
  }
  LeaveCriticalSection(&t->lock);
  if (result && outSize) *outSize = kScratchSize;
  return result;
}

void FreeThreadScratch(DWORD thread) {
  HKYLIST t = g.scratchTable;
  if (!t) return;
  EnterCriticalSection(&t->lock);
  LONG i = FindThread(t, thread);
  if (i >= 0) {
    FreeBlock(reinterpret_cast<ScratchRecord *>(t->items)[i].buffer);
    KyList_DeleteList(t, i, 1, FALSE);
  }
  LeaveCriticalSection(&t->lock);
}

void FreeAllScratch() {
  HKYLIST t = g.scratchTable;
  if (!t) return;
  for (LONG i = t->count - 1; i >= 0; --i)
    FreeBlock(reinterpret_cast<ScratchRecord *>(t->items)[i].buffer);
  g.scratchTable = nullptr;
  KyList_Destroy(t);
}

} // namespace ky

// Internal seam: lets tests reach the calling thread's scratch buffer.
extern "C" void *WINAPI KyInternal_GetThreadScratch(DWORD *outSize) {
  return ky::Guard<void *>(nullptr, [&] { return ky::ThreadScratch(outSize); });
}

extern "C" LONG WINAPI KyInternal_GetScratchRecordCount() {
  HKYLIST t = ky::g.scratchTable;
  return t ? t->count : -1;
}
