// Item lists: creation arithmetic, growth and shrink, the pending-item protocol, moves,
// sorts, searches, and the entry rule under real threads.
#include <gtest/gtest.h>

#include "ky_testutil.h"
#include <windows.h>
#include <algorithm>
#include <cstdio>
#include <random>
#include <vector>
#include "ky_list.h"

namespace {

// Owns a list for the length of a test.
struct List {
  HKYLIST l = nullptr;
  HRESULT hr;
  List(LONG itemSize, LONG initial, LONG growth, DWORD options) {
    hr = KyList_CreateExZ(&l, itemSize, initial, growth, options, 0, 0, 0);
  }
  ~List() { KyList_Destroy(l); }
  HKYLIST operator->() const { return l; }
  operator HKYLIST() const { return l; }
};

LONG *Ints(HKYLIST l) { return reinterpret_cast<LONG *>(l->items); }
void **Ptrs(HKYLIST l) { return reinterpret_cast<void **>(l->items); }

void Append(HKYLIST l, std::initializer_list<LONG> values) {
  for (LONG v : values) ASSERT_EQ(S_OK, KyList_InsertList(l, -1, &v, 1));
}

std::vector<LONG> Contents(HKYLIST l) { return std::vector<LONG>(Ints(l), Ints(l) + l->count); }

// The first word of each heap item.
std::vector<LONG> HeapContents(HKYLIST l) {
  std::vector<LONG> out;
  for (LONG i = 0; i < l->count; ++i) out.push_back(*static_cast<LONG *>(Ptrs(l)[i]));
  return out;
}

LONG KYAPI CompareInts(LONG, void *a, void *b) {
  LONG x = *static_cast<LONG *>(a), y = *static_cast<LONG *>(b);
  return x < y ? -1 : (x > y ? 1 : 0);
}

// Pairs compared on their first word only, so equal keys can be told apart by the second.
LONG KYAPI CompareFirst(LONG, void *a, void *b) { return CompareInts(0, a, b); }

// Pointer-list values compared directly.
LONG KYAPI CompareValues(LONG, void *a, void *b) {
  LONG x = static_cast<LONG>(reinterpret_cast<INT_PTR>(a));
  LONG y = static_cast<LONG>(reinterpret_cast<INT_PTR>(b));
  return x < y ? -1 : (x > y ? 1 : 0);
}

LONG KYAPI MatchInt(LONG param, void *item) { return *static_cast<LONG *>(item) == param ? 0 : 1; }

// ---- creation ----
TEST(ListCreate, SlotSizeInitialAndGrowthArithmetic) {
  const struct { LONG itemSize, initial, growth; DWORD options; ULONG slotSize; LONG allocated, step; } cases[] = {
      {4, -1, -1, KYLIST_ARRAY, 4, 16, 16},
      {4, 1, 1, KYLIST_ARRAY, 4, 4, 4},
      {5, 16, 16, KYLIST_ARRAY, 8, 16, 16},
      {4, 16, 100000, KYLIST_ARRAY, 4, 66560, 66560},
      {4, 20, 16, KYLIST_ARRAY, 4, 32, 16},
      {100, 0, 0, KYLIST_HEAPITEMS, 4, 16, 16},
      {7, 5, 0, 0, 4, 16, 16},
  };
  for (const auto &c : cases) {
    List l(c.itemSize, c.initial, c.growth, c.options);
    ASSERT_EQ(S_OK, l.hr);
    EXPECT_EQ(c.slotSize, l->slotSize) << c.itemSize;
    EXPECT_EQ(c.allocated, l->allocated) << c.initial << " " << c.growth;
    EXPECT_EQ(c.step, l->growth);
    EXPECT_EQ(0, l->count);
    EXPECT_EQ(c.options | KYLIST_ANYTHREAD, KyList_GetCreateOptions(l));
    EXPECT_EQ(GetCurrentThreadId(), KyList_GetThreadOwner(l));
    EXPECT_GE(GlobalSize(GlobalHandle(l->items)), SIZE_T(c.allocated) * c.slotSize);
  }
}

TEST(ListCreate, HeapFlagsAndPrivateHeap) {
  HKYLIST l = reinterpret_cast<HKYLIST>(1);
  EXPECT_EQ(E_FAIL, KyList_CreateExZ(&l, 4, 0, 0, 0x6, 0, 0, 0));  // array and heap together
  EXPECT_EQ(nullptr, l);
  List h(0, 0, 0, KYLIST_HEAPITEMS | KYLIST_PRIVATEHEAP);
  ASSERT_EQ(S_OK, h.hr);
  EXPECT_NE(nullptr, h->privateHeap);
  EXPECT_EQ(9u, h->heapAllocFlags);
  EXPECT_EQ(1u, h->heapFreeFlags);
  List p(0, 0, 0, KYLIST_PRIVATEHEAP);  // a pointer list gets no heap
  EXPECT_EQ(nullptr, p->privateHeap);
}

TEST(ListCreate, IsListChecksSizeReadabilityAndSignature) {
  List l(4, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(1, KyList_IsList(l, 84));
  EXPECT_EQ(0, KyList_IsList(l, 83));
  EXPECT_EQ(0, KyList_IsList(reinterpret_cast<void *>(8), 85));  // size checked first
  EXPECT_EQ(0, KyList_IsList(nullptr, 84));
  char zeros[84] = {};
  EXPECT_EQ(0, KyList_IsList(zeros, 84));
  // A reserved page, and a header that starts readable and runs into a no-access page.
  auto *pages = static_cast<BYTE *>(VirtualAlloc(nullptr, 8192, MEM_RESERVE, PAGE_NOACCESS));
  ASSERT_NE(nullptr, pages);
  EXPECT_EQ(0, KyList_IsList(pages, 84));
  ASSERT_NE(nullptr, VirtualAlloc(pages, 4096, MEM_COMMIT, PAGE_READWRITE));
  EXPECT_EQ(0, KyList_IsList(pages + 4096 - 40, 84));
  VirtualFree(pages, 0, MEM_RELEASE);
}

TEST(ListCreate, NullListHandling) {
  EXPECT_EQ(S_OK, KyList_Destroy(nullptr));
  EXPECT_EQ(0, KyList_IsValidIndexSlow(nullptr, 0));
  EXPECT_TRUE(FAILED(KyList_InsertList(nullptr, 0, "abcd", 1)));
  EXPECT_TRUE(FAILED(KyList_DeleteList(nullptr, 0, 1, TRUE)));
  EXPECT_TRUE(FAILED(KyList_Sort(nullptr, 0, CompareInts)));
  EXPECT_EQ(-1, KyList_FindItemRange(nullptr, 0, -1, 0, MatchInt));
  EXPECT_EQ(-1, KyList_GetUserData(nullptr));
  char buf[8] = "x";
  EXPECT_EQ(-1, KyList_GetFileAndLine(nullptr, buf, sizeof buf));
  EXPECT_EQ(0, buf[0]);
}

// ---- growth and shrink ----
TEST(ListGrowth, OnlyAFullListGrowsByWholeSteps) {
  // prefilled 16 = full; the others have free slots: a run that fits adds none, a longer
  // one adds only its shortfall in whole steps, and the earlier items stay intact.
  struct { LONG prefilled, inserted, added; } cases[] = {
      {16, 1, 16}, {16, 20, 32}, {16, 16, 16}, {16, 17, 32},
      {10, 6, 0},  {10, 20, 16}, {10, 40, 48}};
  for (auto c : cases) {
    List l(4, 16, 16, KYLIST_ARRAY);
    std::vector<LONG> run(64, 7);
    for (LONG i = 0; i < c.prefilled; ++i) run[i] = i;
    ASSERT_EQ(S_OK, KyList_InsertList(l, -1, run.data(), c.prefilled));
    ASSERT_EQ(16, l->allocated);
    ASSERT_EQ(S_OK, KyList_InsertList(l, 0, run.data() + 20, c.inserted));
    EXPECT_EQ(16 + c.added, l->allocated) << c.prefilled << "+" << c.inserted;
    EXPECT_EQ(c.prefilled + c.inserted, l->count);
    EXPECT_EQ(c.prefilled - 1, Ints(l)[l->count - 1]);
  }
}

// Sizes whose byte count passes 32 bits must fail, not wrap into a tiny block; ranges whose
// end passes 32 bits must be refused, not wrap into a "valid" one.
TEST(ListGrowth, SizesAndRangesBeyond32BitsFailCleanly) {
  HKYLIST bad = reinterpret_cast<HKYLIST>(1);
  EXPECT_EQ(E_OUTOFMEMORY, KyList_CreateExZ(&bad, 4, 0x40000001, 16, KYLIST_ARRAY, 0, 0, 0));
  EXPECT_EQ(nullptr, bad);
  EXPECT_EQ(E_OUTOFMEMORY, KyList_CreateExZ(&bad, 0x10000004, 16, 16, KYLIST_ARRAY, 0, 0, 0));
  EXPECT_EQ(nullptr, bad);
  List l(4, 16, 16, KYLIST_ARRAY);
  Append(l, {1, 2, 3});
  EXPECT_EQ(E_OUTOFMEMORY, KyList_GrowAllocated(l, 0x7FFFFFF0));
  EXPECT_EQ(E_OUTOFMEMORY, KyList_ArrayForceItemCount(l, 0x40000000, FALSE));
  EXPECT_EQ(16, l->allocated);
  EXPECT_EQ(3, l->count);
  EXPECT_EQ(E_FAIL, KyList_MoveRange(l, 1, 2, 0x7FFFFFFF));
  EXPECT_EQ((std::vector<LONG>{1, 2, 3}), Contents(l));
  List src(0, 0, 0, KYLIST_HEAPITEMS), dst(0, 0, 0, KYLIST_HEAPITEMS);
  for (LONG v = 0; v < 3; ++v) KyList_AllocAndInsertItem(src, &v, 4, -1, nullptr);
  EXPECT_EQ(E_FAIL, KyList_MoveItemsBetweenHeapLists(dst, 0, src, 1, 0x7FFFFFFF));
  EXPECT_EQ(3, src->count);
  EXPECT_EQ(0, dst->count);
}

TEST(ListShrink, RoundsToStepsButKeepsItems) {
  struct { LONG count, request, allocatedAfter; } cases[] = {
      {10, -1, 16},  // 54 free: 64 rounded, over the free slots, less one step: 48
      {10, 16, 48},
      {10, 5, 48},   // 16 rounded: fits, 64 -> 48
      {60, -1, 64},  // 4 free: 16 rounded exceeds them, less a step: 0
  };
  for (auto c : cases) {
    List l(4, 64, 16, KYLIST_ARRAY);
    ASSERT_EQ(S_OK, KyList_ArrayForceItemCount(l, c.count, FALSE));
    ASSERT_EQ(S_OK, KyList_ShrinkAllocated(l, c.request));
    EXPECT_EQ(c.allocatedAfter, l->allocated) << c.count << " " << c.request;
  }
  // An empty list shrinks to no slots but keeps one slot of memory.
  List l(4, 16, 16, KYLIST_ARRAY);
  EXPECT_EQ(S_OK, KyList_ShrinkAllocated(l, -1));
  EXPECT_EQ(0, l->allocated);
  EXPECT_GE(GlobalSize(GlobalHandle(l->items)), SIZE_T(4));
  Append(l, {5});  // a list without slots is full and grows again
  EXPECT_EQ(16, l->allocated);
  EXPECT_EQ(5, Ints(l)[0]);
}

// ---- insertion and deletion ----
TEST(ListInsert, IndexPlacementAndHeapRefusal) {
  List l(4, 0, 0, KYLIST_ARRAY);
  Append(l, {1, 2, 3});
  LONG v = 9;
  EXPECT_EQ(S_OK, KyList_InsertList(l, 1, &v, 1));
  EXPECT_EQ(S_OK, KyList_InsertList(l, 99, &v, -1));  // negative count: that many items
  EXPECT_EQ((std::vector<LONG>{1, 9, 2, 3, 9}), Contents(l));
  EXPECT_EQ(E_FAIL, KyList_InsertList(l, 0, nullptr, -1));  // no pending item
  // Items taken from the list's own slots: before the shift, and before a growth moves them.
  EXPECT_EQ(S_OK, KyList_InsertList(l, 0, Ints(l) + 1, 2));
  ASSERT_EQ(S_OK, KyList_ArrayForceItemCount(l, l->allocated, FALSE));
  Ints(l)[l->count - 1] = 77;
  EXPECT_EQ(S_OK, KyList_InsertList(l, 1, Ints(l) + l->count - 1, 1));
  EXPECT_EQ((std::vector<LONG>{9, 77, 2, 1, 9, 2, 3, 9}),
            std::vector<LONG>(Ints(l), Ints(l) + 8));
  List h(0, 0, 0, KYLIST_HEAPITEMS);
  void *p = calloc(1, 8);
  EXPECT_EQ(E_FAIL, KyList_InsertList(h, 0, &p, 1));
  EXPECT_EQ(S_OK, KyList_InsertList(h, 0, &p, -1));  // the list now owns p
  EXPECT_EQ(p, Ptrs(h)[0]);
}

TEST(ListDelete, RangesAndShrinkRules) {
  List l(4, 64, 16, KYLIST_ARRAY);
  ASSERT_EQ(S_OK, KyList_ArrayForceItemCount(l, 40, FALSE));
  for (LONG i = 0; i < 40; ++i) Ints(l)[i] = i;
  EXPECT_EQ(S_OK, KyList_DeleteList(l, 0, 0, TRUE));  // count 0: no shrink
  EXPECT_EQ(64, l->allocated);
  EXPECT_EQ(E_FAIL, KyList_DeleteList(l, 40, 1, FALSE));
  EXPECT_EQ(E_FAIL, KyList_DeleteList(l, -1, -1, FALSE));  // no pending item
  EXPECT_EQ(S_OK, KyList_DeleteList(l, 2, 3, FALSE));
  EXPECT_EQ(37, l->count);
  EXPECT_EQ(5, Ints(l)[2]);
  EXPECT_EQ(0, Ints(l)[37]);  // vacated slots are zeroed
  EXPECT_EQ(S_OK, KyList_DeleteList(l, 30, 100, FALSE));  // clamped to the end
  EXPECT_EQ(30, l->count);
  EXPECT_EQ(S_OK, KyList_DeleteList(l, 10, -1, TRUE));  // to the end, then shrink
  EXPECT_EQ(10, l->count);
  EXPECT_EQ(16, l->allocated);  // 54 free: 64 rounded, less one step
}

TEST(ListGrowth, GrowAndForcedCountAddZeroedStepsButNeverRelease) {
  List g(4, 16, 16, KYLIST_ARRAY);
  EXPECT_EQ(S_OK, KyList_GrowAllocated(g, 1));
  EXPECT_EQ(32, g->allocated);
  EXPECT_EQ(S_OK, KyList_GrowAllocated(g, -5));
  EXPECT_EQ(48, g->allocated);
  EXPECT_EQ(std::vector<LONG>(48, 0), std::vector<LONG>(Ints(g), Ints(g) + 48));
  List l(12, 16, 16, KYLIST_ARRAY);
  EXPECT_EQ(S_OK, KyList_ArrayForceItemCount(l, 40, TRUE));
  EXPECT_EQ(40, l->count);
  EXPECT_EQ(48, l->allocated);
  EXPECT_EQ(S_OK, KyList_ArrayForceItemCount(l, 1, TRUE));
  EXPECT_EQ(1, l->count);
  EXPECT_EQ(48, l->allocated);
  List h(0, 0, 0, KYLIST_HEAPITEMS);
  EXPECT_EQ(E_FAIL, KyList_ArrayForceItemCount(h, 3, FALSE));
}

// ---- heap items ----
TEST(ListHeapItems, PendingItemProtocol) {
  List h(0, 0, 0, KYLIST_HEAPITEMS);
  void *item = reinterpret_cast<void *>(1);
  ASSERT_EQ(S_OK, KyList_AllocItem(h, 24, &item));
  ASSERT_NE(nullptr, item);
  EXPECT_EQ(0, static_cast<BYTE *>(item)[23]);
  void *second = reinterpret_cast<void *>(1);
  EXPECT_EQ(E_FAIL, KyList_AllocItem(h, 8, &second));  // one pending item at most
  EXPECT_EQ(nullptr, second);
  EXPECT_EQ(S_OK, KyList_InsertList(h, 0, nullptr, -1));
  EXPECT_EQ(item, Ptrs(h)[0]);
  EXPECT_EQ(nullptr, h->pendingItem);
  ASSERT_EQ(S_OK, KyList_AllocItem(h, 8, &second));
  EXPECT_EQ(S_OK, KyList_DeleteList(h, -1, -1, FALSE));  // discards it
  EXPECT_EQ(nullptr, h->pendingItem);
  EXPECT_EQ(1, h->count);
  List a(4, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(E_FAIL, KyList_AllocItem(a, 8, &second));
}

TEST(ListHeapItems, AllocInsertReallocAndSizesOnBothHeaps) {
  for (DWORD extra : {0u, KYLIST_PRIVATEHEAP}) {
    List h(0, 0, 0, KYLIST_HEAPITEMS | extra);
    const char text[] = "hello";
    LONG at = 5;
    ASSERT_EQ(S_OK, KyList_AllocAndInsertItem(h, text, 6, 7, &at));
    EXPECT_EQ(0, at);  // beyond the end: appended
    ASSERT_EQ(S_OK, KyList_AllocAndInsertItem(h, nullptr, 10, 0, &at));
    EXPECT_EQ(0, at);
    EXPECT_STREQ("hello", static_cast<char *>(Ptrs(h)[1]));
    EXPECT_EQ(10, KyList_AllocSize(h, 0));
    ASSERT_EQ(S_OK, KyList_ReAllocItem(h, 1, 100));
    EXPECT_STREQ("hello", static_cast<char *>(Ptrs(h)[1]));
    EXPECT_EQ(0, static_cast<BYTE *>(Ptrs(h)[1])[99]);
    EXPECT_EQ(100, KyList_AllocSize(h, 1));
    LONG total = KyList_AllocSize(h, -1);
    EXPECT_EQ(110 + 84 + LONG(GlobalSize(GlobalHandle(h->items))), total);
    EXPECT_EQ(E_FAIL, KyList_ReAllocItem(h, 2, 8));
    EXPECT_EQ(S_OK, KyList_DeleteList(h, 0, 1, FALSE));
  }
  List a(6, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(8, KyList_AllocSize(a, 0));
  LONG at = 3;
  EXPECT_EQ(E_FAIL, KyList_AllocAndInsertItem(a, nullptr, 4, 0, &at));
  EXPECT_EQ(-1, at);
}

TEST(ListHeapItems, MoveBetweenHeapListsKeepsOrder) {
  List src(0, 0, 0, KYLIST_HEAPITEMS), dst(0, 0, 0, KYLIST_HEAPITEMS);
  for (LONG v = 0; v < 6; ++v) KyList_AllocAndInsertItem(src, &v, 4, -1, nullptr);
  LONG v = 100;
  KyList_AllocAndInsertItem(dst, &v, 4, -1, nullptr);
  ASSERT_EQ(S_OK, KyList_MoveItemsBetweenHeapLists(dst, -1, src, 1, 3));
  EXPECT_EQ((std::vector<LONG>{100, 1, 2, 3}), HeapContents(dst));
  EXPECT_EQ((std::vector<LONG>{0, 4, 5}), HeapContents(src));
  EXPECT_EQ(S_OK, KyList_MoveItemsBetweenHeapLists(dst, 0, src, 0, -1));
  EXPECT_EQ(0, src->count);
  EXPECT_EQ((std::vector<LONG>{0, 4, 5, 100, 1, 2, 3}), HeapContents(dst));
  EXPECT_EQ(KYLIST_HEAPITEMS, KyList_GetCreateOptions(src) & KYLIST_HEAPITEMS);
  EXPECT_EQ(E_FAIL, KyList_MoveItemsBetweenHeapLists(dst, 0, src, 0, 1));
  List a(4, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(E_FAIL, KyList_MoveItemsBetweenHeapLists(a, 0, dst, 0, 1));
}

// ---- moves ----
TEST(ListMoveRange, RunsKeepOrder) {
  struct { LONG from, to, count; HRESULT hr; std::vector<LONG> after; } cases[] = {
      {0, 3, 2, S_OK, {2, 3, 4, 0, 1, 5}},
      {4, 1, 2, S_OK, {0, 4, 5, 1, 2, 3}},
      {3, -4, 1, S_OK, {3, 0, 1, 2, 4, 5}},
      {1, 2, -1, S_OK, {0, 5, 1, 2, 3, 4}},  // count = 6 - 2 = 4
      {-1, 0, 1, E_INVALIDARG, {0, 1, 2, 3, 4, 5}},
      {0, 5, 2, E_FAIL, {0, 1, 2, 3, 4, 5}},
      {2, 2, 3, S_OK, {0, 1, 2, 3, 4, 5}},
  };
  for (auto &c : cases) {
    List l(4, 0, 0, KYLIST_ARRAY);
    Append(l, {0, 1, 2, 3, 4, 5});
    EXPECT_EQ(c.hr, KyList_MoveRange(l, c.from, c.to, c.count));
    EXPECT_EQ(c.after, Contents(l)) << c.from << "->" << c.to;
  }
}

TEST(ListMoveRange, LargeRunUsesHeapBuffer) {
  List l(64, 0, 0, KYLIST_ARRAY);  // 10 items of 64 bytes exceed the stack buffer
  ASSERT_EQ(S_OK, KyList_ArrayForceItemCount(l, 20, FALSE));
  for (LONG i = 0; i < 20; ++i) Ints(l)[i * 16] = i;
  ASSERT_EQ(S_OK, KyList_MoveRange(l, 0, 10, 10));
  for (LONG i = 0; i < 20; ++i) EXPECT_EQ((i + 10) % 20, Ints(l)[i * 16]);
}

// ---- sorts ----
TEST(ListSort, SelectionSortSwapsEqualItems) {
  List l(8, 0, 0, KYLIST_ARRAY);
  LONG pairs[][2] = {{5, 0}, {1, 1}, {5, 2}, {3, 3}};
  for (auto &p : pairs) KyList_InsertList(l, -1, p, 1);
  EXPECT_EQ(S_OK, KyList_Sort(l, 77, CompareFirst));
  EXPECT_EQ(77, KyList_GetSortCriteria(l));
  EXPECT_EQ((std::vector<LONG>{1, 1, 3, 3, 5, 2, 5, 0}), std::vector<LONG>(Ints(l), Ints(l) + 8));
  EXPECT_EQ(S_OK, KyList_Sort(l, 3, nullptr));  // stores criteria only
  EXPECT_EQ(3, KyList_GetSortCriteria(l));
}

TEST(ListSort, HeapSortMatchesStdSort) {
  unsigned seed = static_cast<unsigned>(GetTickCount());
  std::printf("heap sort seed %u\n", seed);
  std::mt19937 rng(seed);
  for (LONG n : {0, 1, 2, 3, 4, 5, 16, 17, 100, 257}) {
    List a(12, 0, 0, KYLIST_ARRAY);
    List p(0, 0, 0, 0);
    std::vector<LONG> values(n);
    for (auto &v : values) v = static_cast<LONG>(rng() % 50) - 25;
    for (LONG v : values) {
      LONG rec[3] = {v, -v, v * 2};
      KyList_InsertList(a, -1, rec, 1);
      KyList_InsertList(p, -1, &v, 1);
    }
    ASSERT_EQ(S_OK, KyList_HeapSort(a, 1, CompareFirst));
    ASSERT_EQ(S_OK, KyList_HeapSort(p, 1, CompareValues));
    std::sort(values.begin(), values.end());
    for (LONG i = 0; i < n; ++i) {
      EXPECT_EQ(values[i], Ints(a)[3 * i]) << "seed " << seed << " n " << n;
      EXPECT_EQ(-values[i], Ints(a)[3 * i + 1]);  // items moved whole
      EXPECT_EQ(values[i], Ints(p)[i]);
    }
  }
}

TEST(ListSort, SortToInsertsInOrder) {
  List src(4, 0, 0, KYLIST_ARRAY), dst(4, 0, 0, KYLIST_ARRAY);
  Append(src, {4, -2, 9, 4, 0});
  Append(dst, {1, 5});
  EXPECT_EQ(S_OK, KyList_SortTo(dst, src, 12, CompareInts));
  EXPECT_EQ(12, KyList_GetSortCriteria(dst));
  EXPECT_EQ((std::vector<LONG>{-2, 0, 1, 4, 4, 5, 9}), Contents(dst));
  EXPECT_EQ(5, src->count);
  List hs(0, 0, 0, KYLIST_HEAPITEMS), hd(0, 0, 0, KYLIST_HEAPITEMS);
  KyList_AllocAndInsertItem(hs, nullptr, 4, -1, nullptr);
  EXPECT_EQ(S_OK, KyList_SortTo(hd, hs, 0, CompareInts));  // refused insertions are ignored
  EXPECT_EQ(0, hd->count);
  List wide(16, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(E_INVALIDARG, KyList_SortTo(wide, src, 0, CompareInts));  // slots wider than src's
  EXPECT_EQ(E_INVALIDARG, KyList_SortTo(src, src, 0, CompareInts));
  EXPECT_EQ(0, wide->count);
  EXPECT_EQ(5, src->count);
}

// ---- searches ----
TEST(ListSearch, LinearSearches) {
  List l(4, 0, 0, KYLIST_ARRAY);
  Append(l, {3, 8, 3, 6});
  LONG key = 3;
  EXPECT_EQ(0, KyList_FindSpecificItemRange(l, -5, -1, &key));
  EXPECT_EQ(2, KyList_FindSpecificItemRange(l, 1, 10, &key));
  EXPECT_EQ(-1, KyList_FindSpecificItemRange(l, 1, 1, &key));
  EXPECT_EQ(3, KyList_FindItemRange(l, 0, -1, 6, MatchInt));
  EXPECT_EQ(-1, KyList_FindItemRange(l, 0, 3, 6, MatchInt));
  EXPECT_EQ(-1, KyList_FindItemRange(l, 5, -1, 6, MatchInt));
  List p(0, 0, 0, 0);
  Append(p, {10, 20});
  EXPECT_EQ(1, KyList_FindSpecificItemRange(p, 0, -1, reinterpret_cast<void *>(20)));
}

TEST(ListSearch, SortedSearchesOnRanges) {
  List l(4, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(0, KyList_FindSortedInsertIndexRange(l, &l, 0, -1, CompareInts));  // empty: 0
  EXPECT_EQ(-1, KyList_FindSortedItemRange(l, &l, 0, -1, CompareInts));
  Append(l, {10, 20, 30, 40, 50, 60, 70});
  struct { LONG key, start, count, found, insert; } cases[] = {
      {40, 0, -1, 3, 3}, {10, 0, -1, 0, 0},  {70, 0, -1, 6, 6},  {5, 0, -1, -1, 0},
      {75, 0, -1, -1, 7}, {35, 0, -1, -1, 3}, {20, 2, -1, -1, 2}, {60, 2, 3, -1, 5},
      {50, 2, 3, 4, 4},  {45, -3, 4, -1, 4}, {30, 7, -1, -1, 0}, {30, 8, -1, -1, -1},
      {20, 1, 1, 1, 1},  {25, 1, 1, -1, 2},  {15, 1, 2, -1, 1},
  };
  for (auto c : cases) {
    SCOPED_TRACE(testing::Message() << c.key << " @" << c.start << "+" << c.count);
    EXPECT_EQ(c.found, KyList_FindSortedItemRange(l, &c.key, c.start, c.count, CompareInts));
    EXPECT_EQ(c.insert, KyList_FindSortedInsertIndexRange(l, &c.key, c.start, c.count, CompareInts));
  }
}

// ---- user data and owners ----
struct OwnerProbe {
  HKYLIST l;
  HRESULT insert;
  LONG user, valid, found;
};

DWORD WINAPI ProbeFromOtherThread(void *p) {
  auto *r = static_cast<OwnerProbe *>(p);
  LONG v = 2;
  r->insert = KyList_InsertList(r->l, -1, &v, 1);
  r->user = KyList_GetUserData(r->l);
  r->valid = KyList_IsValidIndexSlow(r->l, 0);
  r->found = KyList_FindItemRange(r->l, 0, -1, 1, MatchInt);
  return 0;
}

constexpr LONG kPerThread = 200;
struct InserterArg {
  HKYLIST l;
  LONG base;
};

DWORD WINAPI InsertFromThread(void *p) {
  auto *a = static_cast<InserterArg *>(p);
  for (LONG i = 0; i < kPerThread; ++i) {
    LONG v = a->base + i;
    KyList_AllocAndInsertItem(a->l, &v, 4, (i % 3) - 1, nullptr);
  }
  return 0;
}
TEST(ListOwner, UserDataAndOwnerCheckFromAnotherThread) {
  List l(4, 0, 0, KYLIST_ARRAY);
  EXPECT_EQ(0, KyList_SetUserData(l, 42));
  EXPECT_EQ(42, KyList_SetUserData(l, 43));
  l->options &= ~KYLIST_ANYTHREAD;
  Append(l, {1});
  OwnerProbe r{l, S_OK, 0, 1, 0};
  HANDLE t = CreateThread(nullptr, 0, ProbeFromOtherThread, &r, 0, nullptr);
  WaitForSingleObject(t, INFINITE);
  CloseHandle(t);
  EXPECT_EQ(E_FAIL, r.insert);
  EXPECT_EQ(-1, r.user);
  EXPECT_EQ(0, r.valid);
  EXPECT_EQ(-1, r.found);
  EXPECT_EQ(1, l->count);
  EXPECT_EQ(1, KyList_IsValidIndexSlow(l, 0));  // the owner still gets in
  EXPECT_EQ(S_OK, KyList_SetThreadOwner(l, 1234));
  EXPECT_EQ(1234u, KyList_GetThreadOwner(l));
  EXPECT_EQ(0, KyList_IsValidIndexSlow(l, 0));
  EXPECT_EQ(S_OK, KyList_SetThreadOwner(l, 0));
  EXPECT_EQ(GetCurrentThreadId(), KyList_GetThreadOwner(l));
  l->options |= KYLIST_ANYTHREAD;
}

TEST(ListThreads, ThreadSafeListLosesNoItem) {
  List l(0, 0, 0, KYLIST_THREADSAFE | KYLIST_HEAPITEMS);
  const LONG kThreads = kytest::WorkerThreads(4);
  InserterArg args[4];
  HANDLE threads[4];
  for (LONG t = 0; t < kThreads; ++t) {
    args[t] = {l, t * kPerThread};
    threads[t] = CreateThread(nullptr, 0, InsertFromThread, &args[t], 0, nullptr);
  }
  WaitForMultipleObjects(kThreads, threads, TRUE, INFINITE);
  for (LONG t = 0; t < kThreads; ++t) CloseHandle(threads[t]);
  ASSERT_EQ(kThreads * kPerThread, l->count);
  std::vector<LONG> seen = HeapContents(l);
  std::sort(seen.begin(), seen.end());
  for (LONG i = 0; i < kThreads * kPerThread; ++i) EXPECT_EQ(i, seen[i]);
}

} // namespace
