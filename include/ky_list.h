/* tellarok item lists: the library's general container.
 *
 * A list is a growable, contiguous array of fixed-size slots behind an 84-byte header.
 * Clients read the first three header fields (count, slot size, items) directly; the slot
 * array may move on every insertion, deletion, growth or shrink, so re-read `items` after
 * such a call. Array lists hold items inline; heap lists hold pointers to items they own;
 * pointer lists hold 32-bit values they do not own.
 *
 * Status results: S_OK, E_FAIL (wrong list kind, index out of range, pending-item misuse,
 * failed owner check), E_OUTOFMEMORY (every failed allocation), E_INVALIDARG (only a
 * negative source index of KyList_MoveRange). Searches answer an index or -1.
 * Thread safety: lists created with KYLIST_THREADSAFE lock every operation; others belong
 * to their owner thread (checked only when KYLIST_ANYTHREAD is cleared). */
#ifndef TELLAROK_KY_LIST_H
#define TELLAROK_KY_LIST_H

#include "ky_base.h"

#define KYLIST_THREADSAFE   0x80000000u
#define KYLIST_ANYTHREAD    0x40000000u
#define KYLIST_PRIVATEHEAP  0x10000000u
#define KYLIST_ARRAY        0x00000004u
#define KYLIST_HEAPITEMS    0x00000002u

#define KYLIST_SIGNATURE    0x54525543u /* "CURT" */
#define KYLIST_HEADER_SIZE  84

typedef struct tKYLIST {
  LONG count;                /* items in use (public) */
  ULONG slotSize;            /* bytes per slot (public) */
  BYTE *items;               /* first slot (public) */
  CRITICAL_SECTION lock;     /* initialised only for KYLIST_THREADSAFE */
  DWORD signature;           /* KYLIST_SIGNATURE */
  DWORD options;             /* create options, always with KYLIST_ANYTHREAD set at creation */
  LONG userData;
  LONG sortCriteria;         /* last value passed to a sort */
  DWORD ownerThread;
  LONG allocated;            /* slots the block can hold */
  LONG growth;               /* slots per growth or shrink step */
  HANDLE privateHeap;        /* heap lists with KYLIST_PRIVATEHEAP only */
  DWORD heapAllocFlags;      /* HEAP_NO_SERIALIZE | HEAP_ZERO_MEMORY for heap lists */
  DWORD heapFreeFlags;       /* HEAP_NO_SERIALIZE for heap lists */
  void *pendingItem;         /* allocated by KyList_AllocItem, not yet inserted */
  DWORD reserved;
} tKYLIST, *HKYLIST;

KY_CHECK_SIZE(tKYLIST, 84);
KY_CHECK_OFFSET(tKYLIST, count, 0);
KY_CHECK_OFFSET(tKYLIST, slotSize, 4);
KY_CHECK_OFFSET(tKYLIST, items, 8);
KY_CHECK_OFFSET(tKYLIST, lock, 12);
KY_CHECK_OFFSET(tKYLIST, signature, 36);
KY_CHECK_OFFSET(tKYLIST, pendingItem, 76);

/* Comparison: > 0 when a sorts after b, 0 when equal, < 0 when before. */
typedef LONG (KYAPI *KyListCompareProc)(LONG criteria, void *a, void *b);
/* Match: 0 when the item matches. */
typedef LONG (KYAPI *KyListMatchProc)(LONG param, void *item);

KY_BEGIN_DECLS
KY_IMPORT HRESULT KYAPI KyList_CreateExZ(HKYLIST *out, LONG itemSize, LONG initialSlots,
                                         LONG growth, DWORD options, DWORD reserved1,
                                         DWORD reserved2, DWORD reserved3);
KY_IMPORT HRESULT KYAPI KyList_Destroy(HKYLIST list);
KY_IMPORT LONG KYAPI KyList_IsList(const void *p, LONG size);
KY_IMPORT LONG KYAPI KyList_IsValidIndexSlow(HKYLIST list, LONG index);
KY_IMPORT HRESULT KYAPI KyList_InsertList(HKYLIST list, LONG index, const void *items, LONG count);
KY_IMPORT HRESULT KYAPI KyList_DeleteList(HKYLIST list, LONG index, LONG count, BOOL shrink);
KY_IMPORT HRESULT KYAPI KyList_MoveRange(HKYLIST list, LONG from, LONG to, LONG count);
KY_IMPORT HRESULT KYAPI KyList_ArrayForceItemCount(HKYLIST list, LONG count, BOOL shrink);
KY_IMPORT HRESULT KYAPI KyList_GrowAllocated(HKYLIST list, LONG slots);
KY_IMPORT HRESULT KYAPI KyList_ShrinkAllocated(HKYLIST list, LONG slots);
KY_IMPORT HRESULT KYAPI KyList_AllocItem(HKYLIST list, LONG size, void **outItem);
KY_IMPORT HRESULT KYAPI KyList_AllocAndInsertItem(HKYLIST list, const void *source, LONG size,
                                                  LONG index, LONG *outIndex);
KY_IMPORT HRESULT KYAPI KyList_ReAllocItem(HKYLIST list, LONG index, LONG size);
KY_IMPORT LONG KYAPI KyList_AllocSize(HKYLIST list, LONG index);
KY_IMPORT HRESULT KYAPI KyList_MoveItemsBetweenHeapLists(HKYLIST dst, LONG dstIndex,
                                                         HKYLIST src, LONG srcIndex, LONG count);
KY_IMPORT LONG KYAPI KyList_FindSpecificItemRange(HKYLIST list, LONG start, LONG count,
                                                  const void *item);
KY_IMPORT LONG KYAPI KyList_FindItemRange(HKYLIST list, LONG start, LONG count, LONG param,
                                          KyListMatchProc match);
KY_IMPORT LONG KYAPI KyList_FindSortedItemRange(HKYLIST list, const void *key, LONG start,
                                                LONG count, KyListCompareProc compare);
KY_IMPORT LONG KYAPI KyList_FindSortedInsertIndexRange(HKYLIST list, const void *key, LONG start,
                                                       LONG count, KyListCompareProc compare);
KY_IMPORT HRESULT KYAPI KyList_Sort(HKYLIST list, LONG criteria, KyListCompareProc compare);
KY_IMPORT HRESULT KYAPI KyList_HeapSort(HKYLIST list, LONG criteria, KyListCompareProc compare);
KY_IMPORT HRESULT KYAPI KyList_SortTo(HKYLIST dst, HKYLIST src, LONG criteria,
                                      KyListCompareProc compare);
KY_IMPORT LONG KYAPI KyList_SetUserData(HKYLIST list, LONG value);
KY_IMPORT LONG KYAPI KyList_GetUserData(HKYLIST list);
KY_IMPORT DWORD KYAPI KyList_GetCreateOptions(HKYLIST list);
KY_IMPORT LONG KYAPI KyList_GetSortCriteria(HKYLIST list);
KY_IMPORT DWORD KYAPI KyList_GetThreadOwner(HKYLIST list);
KY_IMPORT HRESULT KYAPI KyList_SetThreadOwner(HKYLIST list, DWORD threadId);
KY_IMPORT LONG KYAPI KyList_GetFileAndLine(HKYLIST list, char *buffer, LONG size);
KY_END_DECLS

#endif
