// Item lists: a contiguous array of fixed-size slots in one moveable global block that stays
// locked for the list's life, behind an 84-byte header from the run-time heap.
#include "ky_internal.h"
#include <malloc.h>
#include <stdlib.h>
#include <string.h>

namespace {

constexpr LONG kDefaultSlots = 16;
constexpr LONG kMinSlots = 4;
constexpr LONG kMinGrowth = 4;
constexpr LONG kMaxGrowth = 0x10400;
constexpr DWORD kHeapAllocFlags = HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY;
constexpr DWORD kHeapFreeFlags = HEAP_NO_SERIALIZE;
constexpr size_t kStackMove = 512;

bool IsArray(HKYLIST l) { return (l->options & KYLIST_ARRAY) != 0; }
bool IsHeap(HKYLIST l) { return (l->options & KYLIST_HEAPITEMS) != 0; }

// Rounds a slot count up to whole growth steps (in 64 bits: counts near the top of the
// 32-bit range must not wrap).
LONGLONG RoundToSteps(LONGLONG slots, LONG step) { return ((slots + step - 1) / step) * step; }

// Bytes of a block of `slots` slots (never less than one slot), or 0 when the slot count or
// the byte size does not fit: such a request is answered as an allocation failure instead of
// allocating a wrapped-around, too small block.
SIZE_T BlockBytes(LONGLONG slots, ULONG slotSize) {
  if (slots > 0x7FFFFFFF) return 0;
  ULONGLONG bytes = static_cast<ULONGLONG>(slots > 1 ? slots : 1) * slotSize;
  return bytes > 0x7FFFFFFF ? 0 : static_cast<SIZE_T>(bytes);
}

BYTE *SlotAt(HKYLIST l, LONG i) { return l->items + static_cast<size_t>(i) * l->slotSize; }
void *&PointerAt(HKYLIST l, LONG i) { return *reinterpret_cast<void **>(SlotAt(l, i)); }

// What callbacks and searches see: the inline item of an array list, else the slot's value.
void *ItemAt(HKYLIST l, LONG i) { return IsArray(l) ? SlotAt(l, i) : PointerAt(l, i); }

// Entry rule: thread-safe lists are locked for the whole operation; other lists refuse
// callers other than the owner once KYLIST_ANYTHREAD has been cleared.
class Entry {
public:
  explicit Entry(HKYLIST l) : l_(l) {
    if (l->options & KYLIST_THREADSAFE) {
      EnterCriticalSection(&l->lock);
      locked_ = true;
      ok_ = true;
    } else {
      ok_ = (l->options & KYLIST_ANYTHREAD) || l->ownerThread == GetCurrentThreadId();
    }
  }
  ~Entry() {
    if (locked_) LeaveCriticalSection(&l_->lock);
  }
  Entry(const Entry &) = delete;
  Entry &operator=(const Entry &) = delete;
  bool ok() const { return ok_; }

private:
  HKYLIST l_;
  bool locked_ = false;
  bool ok_ = false;
};

// Runs body on an entered list; a null list answers onNull, a refused entry onFail.
template <class R, class F>
R WithList(HKYLIST l, R onNull, R onFail, F &&body) noexcept {
  return ky::Guard<R>(onFail, [&]() -> R {
    if (!l) return onNull;
    Entry e(l);
    if (!e.ok()) return onFail;
    return body();
  });
}

template <class F>
HRESULT WithListHr(HKYLIST l, F &&body) noexcept {
  return ky::GuardHr([&]() -> HRESULT {
    if (!l) return E_POINTER;
    Entry e(l);
    if (!e.ok()) return E_FAIL;
    return body();
  });
}

// ---- heap items: the private heap when there is one, else the run-time heap ----
void *ItemAlloc(HKYLIST l, LONG size) {
  if (size < 0) return nullptr;
  if (l->privateHeap) return HeapAlloc(l->privateHeap, l->heapAllocFlags, size);
  return calloc(1, size);
}

void *ItemRealloc(HKYLIST l, void *p, LONG size) {
  if (size < 0) return nullptr;
  if (l->privateHeap) return HeapReAlloc(l->privateHeap, l->heapAllocFlags, p, size);
  size_t old = p ? _msize(p) : 0;
  void *q = realloc(p, size ? size : 1);
  if (q && static_cast<size_t>(size) > old) memset(static_cast<BYTE *>(q) + old, 0, size - old);
  return q;
}

void ItemFree(HKYLIST l, void *p) {
  if (!p) return;
  if (l->privateHeap)
    HeapFree(l->privateHeap, l->heapFreeFlags, p);
  else
    free(p);
}

LONG ItemSize(HKYLIST l, void *p) {
  if (!p) return 0;
  if (l->privateHeap) return static_cast<LONG>(HeapSize(l->privateHeap, l->heapFreeFlags, p));
  return static_cast<LONG>(_msize(p));
}

// ---- the slot block ----
// Reallocates the block to hold `slots` slots (never less than one slot's bytes). New slots
// are zero. On failure the block, items and allocated stay as they were.
HRESULT ResizeBlock(HKYLIST l, LONGLONG slots) {
  SIZE_T bytes = BlockBytes(slots, l->slotSize);
  if (!bytes) return E_OUTOFMEMORY;
  HGLOBAL h = GlobalHandle(l->items);
  GlobalUnlock(h);
  HGLOBAL nh = GlobalReAlloc(h, bytes, GMEM_ZEROINIT);
  if (!nh) {
    l->items = static_cast<BYTE *>(GlobalLock(h));
    return E_OUTOFMEMORY;
  }
  l->items = static_cast<BYTE *>(GlobalLock(nh));
  l->allocated = static_cast<LONG>(slots);
  return S_OK;
}

HRESULT Grow(HKYLIST l, LONG slots) {
  if (slots <= 0) slots = l->growth;
  return ResizeBlock(l, l->allocated + RoundToSteps(slots, l->growth));
}

HRESULT Shrink(HKYLIST l, LONG slots) {
  LONG freeSlots = l->allocated - l->count;
  if (slots < 0) slots = freeSlots;
  LONGLONG reduction = RoundToSteps(slots, l->growth);
  if (reduction > freeSlots) reduction -= l->growth;
  // A request far beyond the free slots would otherwise cut into the items.
  if (reduction > freeSlots) reduction = freeSlots;
  if (reduction < 1) return S_OK;
  return ResizeBlock(l, l->allocated - reduction);
}

HRESULT Insert(HKYLIST l, LONG index, const void *items, LONG count) {
  if (items) {
    if (count == -0x7FFFFFFF - 1) return E_OUTOFMEMORY;  // a run no block can hold
    if (count < 0)
      count = -count;
    else if (IsHeap(l))
      return E_FAIL;
  } else {
    if (count != -1 || !l->pendingItem) return E_FAIL;
    items = &l->pendingItem;
    count = 1;
  }
  if (index < 0 || index >= l->count) index = l->count;
  // Items taken from this list's own slots would move with the growth or the shift below:
  // copy them aside first.
  void *copy = nullptr;
  const BYTE *block = l->items;
  const size_t blockBytes = static_cast<size_t>(l->allocated) * l->slotSize;
  if (static_cast<const BYTE *>(items) >= block &&
      static_cast<const BYTE *>(items) < block + blockBytes) {
    const size_t within = static_cast<size_t>(block + blockBytes - static_cast<const BYTE *>(items));
    if (static_cast<ULONGLONG>(count) * l->slotSize > within) return E_INVALIDARG;
    copy = malloc(static_cast<size_t>(count) * l->slotSize);
    if (!copy) return E_OUTOFMEMORY;
    memcpy(copy, items, static_cast<size_t>(count) * l->slotSize);
    items = copy;
  }
  // Only a full list grows, by the run rounded up to whole steps; callers inserting long
  // runs grow the list first. A run longer than the free slots of a list that is not full
  // would otherwise be written past the block, so that list grows by the shortfall (in
  // whole steps) instead.
  LONG freeSlots = l->allocated - l->count;
  if (freeSlots <= 0 || count > freeSlots) {
    HRESULT hr = Grow(l, freeSlots <= 0 ? count : count - freeSlots);
    if (FAILED(hr)) {
      free(copy);
      return hr;
    }
  }
  size_t bytes = static_cast<size_t>(count) * l->slotSize;
  memmove(SlotAt(l, index) + bytes, SlotAt(l, index),
          static_cast<size_t>(l->count - index) * l->slotSize);
  memcpy(SlotAt(l, index), items, bytes);
  free(copy);
  l->pendingItem = nullptr;
  l->count += count;
  return S_OK;
}

HRESULT Delete(HKYLIST l, LONG index, LONG count, BOOL shrink) {
  if (index < 0 && count < 0) {
    if (!l->pendingItem) return E_FAIL;
    ItemFree(l, l->pendingItem);
    l->pendingItem = nullptr;
    return S_OK;
  }
  if (count < 0) count = l->count - index;
  if (count < 1) return S_OK;
  if (index < 0 || index >= l->count) return E_FAIL;
  if (count > l->count - index) count = l->count - index;
  if (IsHeap(l))
    for (LONG i = index; i < index + count; ++i) ItemFree(l, PointerAt(l, i));
  memmove(SlotAt(l, index), SlotAt(l, index + count),
          static_cast<size_t>(l->count - index - count) * l->slotSize);
  memset(SlotAt(l, l->count - count), 0, static_cast<size_t>(count) * l->slotSize);
  l->count -= count;
  if (shrink && l->allocated - l->count > l->growth) return Shrink(l, l->allocated - l->count);
  return S_OK;
}

HRESULT AllocPending(HKYLIST l, LONG size, void **out) {
  if (!IsHeap(l) || l->pendingItem) return E_FAIL;
  void *p = ItemAlloc(l, size);
  if (!p) return E_OUTOFMEMORY;
  l->pendingItem = p;
  if (out) *out = p;
  return S_OK;
}

// Normalises a start/count range; false when start lies beyond the end.
bool NormaliseRange(HKYLIST l, LONG &start, LONG &count) {
  if (start < 0) start = 0;
  if (start > l->count) return false;
  if (count < 0 || count > l->count - start) count = l->count - start;
  return true;
}

// Halving search shared by both sorted searches. Returns the index of an equal item, or
// -1 with `insertAt` set to where the key belongs.
LONG SortedSearch(HKYLIST l, const void *key, LONG lo, LONG n, KyListCompareProc compare,
                  LONG &insertAt) {
  insertAt = lo;
  while (n > 0) {
    LONG half = n / 2;
    LONG mid = (half == 0) ? lo : lo + ((n & 1) ? half : half - 1);
    LONG c = compare(l->sortCriteria, const_cast<void *>(key), ItemAt(l, mid));
    if (c == 0) {
      insertAt = mid;
      return mid;
    }
    insertAt = c > 0 ? mid + 1 : mid;
    if (half == 0) break;
    if (c < 0) {
      n = (n & 1) ? half : half - 1;
    } else {
      lo = mid + 1;
      n = half;
    }
  }
  return -1;
}

void SwapItems(HKYLIST l, LONG a, LONG b) {
  if (a == b) return;
  DWORD *pa = reinterpret_cast<DWORD *>(SlotAt(l, a));
  DWORD *pb = reinterpret_cast<DWORD *>(SlotAt(l, b));
  for (ULONG i = 0; i < l->slotSize / 4; ++i) {
    DWORD t = pa[i];
    pa[i] = pb[i];
    pb[i] = t;
  }
}

// Heap-sort sift on 1-based positions within a heap of `size` items.
void Sift(HKYLIST l, LONG criteria, KyListCompareProc compare, LONG pos, LONG size) {
  for (;;) {
    LONG child = 2 * pos;
    if (child + 1 <= size &&
        compare(criteria, ItemAt(l, child), ItemAt(l, child - 1)) > 0)
      ++child;
    if (compare(criteria, ItemAt(l, child - 1), ItemAt(l, pos - 1)) > 0)
      SwapItems(l, child - 1, pos - 1);
    if (2 * child >= size) return;
    pos = child;
  }
}

} // namespace

extern "C" HRESULT WINAPI KyList_CreateExZ(HKYLIST *out, LONG itemSize, LONG initialSlots,
                                           LONG growth, DWORD options, DWORD, DWORD, DWORD) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!out) return E_POINTER;
    *out = nullptr;
    if ((options & KYLIST_ARRAY) && (options & KYLIST_HEAPITEMS)) return E_FAIL;
    auto *l = static_cast<HKYLIST>(calloc(1, sizeof(tKYLIST)));
    if (!l) return E_OUTOFMEMORY;
    l->signature = KYLIST_SIGNATURE;
    if (options & KYLIST_ARRAY) {
      if (itemSize < 0) itemSize = 0;
      l->slotSize = (static_cast<ULONG>(itemSize) + 3) & ~3u;
      if (l->slotSize == 0) l->slotSize = 4;
    } else {
      l->slotSize = 4;
    }
    if (initialSlots <= 0) initialSlots = kDefaultSlots;
    if (initialSlots < kMinSlots) initialSlots = kMinSlots;
    if (growth <= 0) growth = kDefaultSlots;
    if (growth < kMinGrowth) growth = kMinGrowth;
    if (growth > kMaxGrowth) growth = kMaxGrowth;
    l->growth = growth;
    const LONGLONG slots = RoundToSteps(initialSlots, growth);
    const SIZE_T bytes = BlockBytes(slots, l->slotSize);
    l->allocated = static_cast<LONG>(slots);
    HGLOBAL h = bytes ? GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes) : nullptr;
    l->items = h ? static_cast<BYTE *>(GlobalLock(h)) : nullptr;
    if (!l->items) {
      if (h) GlobalFree(h);
      free(l);
      return E_OUTOFMEMORY;
    }
    if (options & KYLIST_THREADSAFE) InitializeCriticalSection(&l->lock);
    l->ownerThread = GetCurrentThreadId();
    l->options = options | KYLIST_ANYTHREAD;
    if (options & KYLIST_HEAPITEMS) {
      l->heapAllocFlags = kHeapAllocFlags;
      l->heapFreeFlags = kHeapFreeFlags;
      if (options & KYLIST_PRIVATEHEAP) {
        l->privateHeap = HeapCreate(HEAP_NO_SERIALIZE, 4096, 0);
        if (!l->privateHeap) {
          KyList_Destroy(l);
          return E_OUTOFMEMORY;
        }
      }
    }
    *out = l;
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyList_Destroy(HKYLIST l) {
  if (!l) return S_OK;
  HRESULT hr = WithListHr(l, [&]() -> HRESULT {
    if (IsHeap(l)) {
      if (l->privateHeap) {
        HeapDestroy(l->privateHeap);
        l->privateHeap = nullptr;
        memset(l->items, 0, static_cast<size_t>(l->count) * l->slotSize);
      } else {
        for (LONG i = 0; i < l->count; ++i) free(PointerAt(l, i));
        free(l->pendingItem);
      }
      l->pendingItem = nullptr;
    }
    HGLOBAL h = GlobalHandle(l->items);
    GlobalUnlock(h);
    GlobalFree(h);
    l->items = nullptr;
    l->count = 0;
    return S_OK;
  });
  if (FAILED(hr)) return hr;
  if (l->options & KYLIST_THREADSAFE) DeleteCriticalSection(&l->lock);
  l->signature = 0;
  free(l);
  return S_OK;
}

// True when every byte of [p, p + n) lies in committed, readable pages. Asked of the memory
// manager rather than probed with a caught fault, so no access violation is ever raised.
static bool IsReadable(const void *p, size_t n) {
  const auto *at = static_cast<const BYTE *>(p);
  const BYTE *end = at + n;
  while (at < end) {
    MEMORY_BASIC_INFORMATION mbi;
    if (VirtualQuery(at, &mbi, sizeof mbi) != sizeof mbi) return false;
    const DWORD readable = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                           PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
    if (mbi.State != MEM_COMMIT || !(mbi.Protect & readable) || (mbi.Protect & PAGE_GUARD))
      return false;
    at = static_cast<const BYTE *>(mbi.BaseAddress) + mbi.RegionSize;
  }
  return true;
}

extern "C" LONG WINAPI KyList_IsList(const void *p, LONG size) {
  return ky::Guard<LONG>(0, [&]() -> LONG {
    if (size != KYLIST_HEADER_SIZE || !p) return 0;
    if (!IsReadable(p, KYLIST_HEADER_SIZE)) return 0;
    return static_cast<const tKYLIST *>(p)->signature == KYLIST_SIGNATURE ? 1 : 0;
  });
}

extern "C" LONG WINAPI KyList_IsValidIndexSlow(HKYLIST l, LONG index) {
  return WithList<LONG>(l, 0, 0, [&]() -> LONG { return index >= 0 && index < l->count; });
}

extern "C" HRESULT WINAPI KyList_InsertList(HKYLIST l, LONG index, const void *items,
                                            LONG count) {
  return WithListHr(l, [&] { return Insert(l, index, items, count); });
}

extern "C" HRESULT WINAPI KyList_DeleteList(HKYLIST l, LONG index, LONG count, BOOL shrink) {
  return WithListHr(l, [&] { return Delete(l, index, count, shrink); });
}

extern "C" HRESULT WINAPI KyList_MoveRange(HKYLIST l, LONG from, LONG to, LONG count) {
  return WithListHr(l, [&]() -> HRESULT {
    if (from < 0) return E_INVALIDARG;
    if (to < 0) to = 0;
    if (count < 0) count = l->count - (from > to ? from : to);
    if (static_cast<LONGLONG>(from) + count > l->count ||
        static_cast<LONGLONG>(to) + count > l->count)
      return E_FAIL;
    if (count < 1 || from == to) return S_OK;
    size_t ss = l->slotSize;
    size_t bytes = static_cast<size_t>(count) * ss;
    BYTE stackBuf[kStackMove];
    BYTE *buf = stackBuf;
    HGLOBAL h = nullptr;
    if (bytes > kStackMove) {
      h = GlobalAlloc(GMEM_MOVEABLE, bytes);
      buf = h ? static_cast<BYTE *>(GlobalLock(h)) : nullptr;
      if (!buf) {
        if (h) GlobalFree(h);
        return E_OUTOFMEMORY;
      }
    }
    memcpy(buf, SlotAt(l, from), bytes);
    if (from < to)
      memmove(SlotAt(l, from), SlotAt(l, from + count), static_cast<size_t>(to - from) * ss);
    else
      memmove(SlotAt(l, to + count), SlotAt(l, to), static_cast<size_t>(from - to) * ss);
    memcpy(SlotAt(l, to), buf, bytes);
    if (h) {
      GlobalUnlock(h);
      GlobalFree(h);
    }
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyList_ArrayForceItemCount(HKYLIST l, LONG count, BOOL shrink) {
  return WithListHr(l, [&]() -> HRESULT {
    if (!IsArray(l) || count < 0) return E_FAIL;
    if (count > l->count && count > l->allocated) {
      HRESULT hr = Grow(l, count - l->allocated);
      if (FAILED(hr)) return hr;
    }
    l->count = count;
    // Passed on as a deletion of no items, which returns before shrinking: forcing the
    // count never releases memory.
    return Delete(l, count, 0, shrink);
  });
}

extern "C" HRESULT WINAPI KyList_GrowAllocated(HKYLIST l, LONG slots) {
  return WithListHr(l, [&] { return Grow(l, slots); });
}

extern "C" HRESULT WINAPI KyList_ShrinkAllocated(HKYLIST l, LONG slots) {
  return WithListHr(l, [&] { return Shrink(l, slots); });
}

extern "C" HRESULT WINAPI KyList_AllocItem(HKYLIST l, LONG size, void **outItem) {
  if (outItem) *outItem = nullptr;
  return WithListHr(l, [&] { return AllocPending(l, size, outItem); });
}

extern "C" HRESULT WINAPI KyList_AllocAndInsertItem(HKYLIST l, const void *source, LONG size,
                                                    LONG index, LONG *outIndex) {
  if (outIndex) *outIndex = -1;
  return WithListHr(l, [&]() -> HRESULT {
    if (index < 0 || index > l->count) index = l->count;
    void *item = nullptr;
    HRESULT hr = AllocPending(l, size, &item);
    if (FAILED(hr)) return hr;
    if (source && size > 0) memcpy(item, source, size);
    hr = Insert(l, index, nullptr, -1);
    if (FAILED(hr)) {
      ItemFree(l, item);
      l->pendingItem = nullptr;
      return hr;
    }
    if (outIndex) *outIndex = index;
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyList_ReAllocItem(HKYLIST l, LONG index, LONG size) {
  return WithListHr(l, [&]() -> HRESULT {
    if (!IsHeap(l) || index < 0 || index >= l->count) return E_FAIL;
    void *p = ItemRealloc(l, PointerAt(l, index), size);
    if (!p) return E_OUTOFMEMORY;
    PointerAt(l, index) = p;
    return S_OK;
  });
}

extern "C" LONG WINAPI KyList_AllocSize(HKYLIST l, LONG index) {
  return WithList<LONG>(l, 0, 0, [&]() -> LONG {
    if (index >= 0) {
      if (IsArray(l)) return static_cast<LONG>(l->slotSize);
      return index < l->count ? ItemSize(l, PointerAt(l, index)) : 0;
    }
    LONG total = 0;
    if (!IsArray(l))
      for (LONG i = 0; i < l->count; ++i) total += ItemSize(l, PointerAt(l, i));
    total += static_cast<LONG>(GlobalSize(GlobalHandle(l->items)));
    return total + KYLIST_HEADER_SIZE;
  });
}

extern "C" HRESULT WINAPI KyList_MoveItemsBetweenHeapLists(HKYLIST dst, LONG dstIndex,
                                                           HKYLIST src, LONG srcIndex,
                                                           LONG count) {
  return WithListHr(dst, [&]() -> HRESULT {
    return WithListHr(src, [&]() -> HRESULT {
      if (dst == src || !IsHeap(dst) || !IsHeap(src) || dst->pendingItem) return E_FAIL;
      if (dstIndex < 0 || dstIndex > dst->count) dstIndex = dst->count;
      if (count < 0) count = src->count;
      if (count == 0) return S_OK;
      if (srcIndex < 0 || static_cast<LONGLONG>(srcIndex) + count > src->count) return E_FAIL;
      // Without its heap flag the source gives up the pointers instead of freeing them.
      src->options &= ~KYLIST_HEAPITEMS;
      HRESULT hr = S_OK;
      for (LONG i = srcIndex + count - 1; i >= srcIndex; --i) {
        dst->pendingItem = PointerAt(src, i);
        hr = Insert(dst, dstIndex, nullptr, -1);
        if (FAILED(hr)) {
          dst->pendingItem = nullptr;
          break;
        }
        Delete(src, i, 1, FALSE);
      }
      src->options |= KYLIST_HEAPITEMS;
      return hr;
    });
  });
}

extern "C" LONG WINAPI KyList_FindSpecificItemRange(HKYLIST l, LONG start, LONG count,
                                                    const void *item) {
  return WithList<LONG>(l, -1, -1, [&]() -> LONG {
    if (!NormaliseRange(l, start, count)) return -1;
    for (LONG i = start; i < start + count; ++i) {
      if (IsArray(l) ? (item && memcmp(SlotAt(l, i), item, l->slotSize) == 0)
                     : PointerAt(l, i) == item)
        return i;
    }
    return -1;
  });
}

extern "C" LONG WINAPI KyList_FindItemRange(HKYLIST l, LONG start, LONG count, LONG param,
                                            KyListMatchProc match) {
  return WithList<LONG>(l, -1, -1, [&]() -> LONG {
    if (!match || !NormaliseRange(l, start, count)) return -1;
    for (LONG i = start; i < start + count; ++i)
      if (match(param, ItemAt(l, i)) == 0) return i;
    return -1;
  });
}

extern "C" LONG WINAPI KyList_FindSortedItemRange(HKYLIST l, const void *key, LONG start,
                                                  LONG count, KyListCompareProc compare) {
  return WithList<LONG>(l, -1, -1, [&]() -> LONG {
    if (!compare || !NormaliseRange(l, start, count) || count <= 0) return -1;
    LONG insertAt;
    return SortedSearch(l, key, start, count, compare, insertAt);
  });
}

extern "C" LONG WINAPI KyList_FindSortedInsertIndexRange(HKYLIST l, const void *key, LONG start,
                                                         LONG count,
                                                         KyListCompareProc compare) {
  return WithList<LONG>(l, -1, -1, [&]() -> LONG {
    if (!compare || !NormaliseRange(l, start, count)) return -1;
    if (count <= 0) return 0;  // an empty range answers 0, not start
    LONG insertAt;
    SortedSearch(l, key, start, count, compare, insertAt);
    return insertAt;
  });
}

extern "C" HRESULT WINAPI KyList_Sort(HKYLIST l, LONG criteria, KyListCompareProc compare) {
  return WithListHr(l, [&]() -> HRESULT {
    l->sortCriteria = criteria;
    if (!compare || l->count < 2) return S_OK;
    // Selection sort: only a strictly greater candidate replaces the maximum, so equal
    // items end up in reverse of their earlier order.
    for (LONG end = l->count - 1; end >= 1; --end) {
      LONG best = 0;
      for (LONG j = 1; j <= end; ++j)
        if (compare(criteria, ItemAt(l, j), ItemAt(l, best)) > 0) best = j;
      SwapItems(l, best, end);
    }
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyList_HeapSort(HKYLIST l, LONG criteria, KyListCompareProc compare) {
  return WithListHr(l, [&]() -> HRESULT {
    l->sortCriteria = criteria;
    LONG n = l->count;
    if (!compare || n < 2) return S_OK;
    for (LONG pos = n / 2; pos >= 2; --pos) Sift(l, criteria, compare, pos, n);
    for (LONG size = n; size >= 2; --size) {
      Sift(l, criteria, compare, 1, size);
      SwapItems(l, 0, size - 1);
    }
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyList_SortTo(HKYLIST dst, HKYLIST src, LONG criteria,
                                        KyListCompareProc compare) {
  if (!dst) return E_POINTER;
  return WithListHr(src, [&]() -> HRESULT {
    // Sorting a list into itself would never reach the end of the growing source, and a
    // destination with wider slots would read past the source's slots: both are refused.
    if (dst == src || dst->slotSize > src->slotSize) return E_INVALIDARG;
    dst->sortCriteria = criteria;
    for (LONG i = 0; i < src->count; ++i) {
      LONG at = KyList_FindSortedInsertIndexRange(dst, ItemAt(src, i), 0, -1, compare);
      KyList_InsertList(dst, at, SlotAt(src, i), 1);
    }
    return S_OK;
  });
}

extern "C" LONG WINAPI KyList_SetUserData(HKYLIST l, LONG value) {
  return WithList<LONG>(l, -1, -1, [&] { return InterlockedExchange(&l->userData, value); });
}

extern "C" LONG WINAPI KyList_GetUserData(HKYLIST l) {
  return WithList<LONG>(l, -1, -1, [&] { return l->userData; });
}

extern "C" DWORD WINAPI KyList_GetCreateOptions(HKYLIST l) {
  return WithList<DWORD>(l, 0, 0, [&] { return l->options; });
}

extern "C" LONG WINAPI KyList_GetSortCriteria(HKYLIST l) {
  return WithList<LONG>(l, 0, 0, [&] { return l->sortCriteria; });
}

extern "C" DWORD WINAPI KyList_GetThreadOwner(HKYLIST l) { return l ? l->ownerThread : 0; }

extern "C" HRESULT WINAPI KyList_SetThreadOwner(HKYLIST l, DWORD threadId) {
  if (!l) return E_POINTER;
  l->ownerThread = threadId ? threadId : GetCurrentThreadId();
  return S_OK;
}

extern "C" LONG WINAPI KyList_GetFileAndLine(HKYLIST, char *buffer, LONG size) {
  if (buffer && size > 0) buffer[0] = 0;
  return -1;
}
