/* tellarok summary information lists: text items keyed by four-character codes, the in-memory
 * form of a RIFF LIST "INFO".
 *
 * A table owns its item array (one locked, moveable global block, null when empty) and every
 * item's text (its own locked global block); KySummary_Free releases them. Items keep their
 * order; ids need not be unique and lookups find the first. Ids are in RIFF (file) byte order:
 * "INAM" is 0x4D414E49. Nothing here locks: a table belongs to one thread at a time. */
#ifndef TELLAROK_KY_SUMMARY_H
#define TELLAROK_KY_SUMMARY_H

#include "ky_base.h"
#include "ky_list.h"
#include <objidl.h>

typedef struct KYSUMMARYITEM {
  DWORD id;   /* four-character code as read from the chunk header */
  char *text; /* zero-terminated ANSI text owned by the table, or null */
} KYSUMMARYITEM;
KY_CHECK_SIZE(KYSUMMARYITEM, 8);

typedef struct _summarylisttag {
  DWORD count;
  KYSUMMARYITEM *items;
#ifdef __cplusplus
  /* Stores the table in a stream as UTF-16: the value 8, the count, then per item its id, the
   * byte length L of its text (0 for none) and L bytes of text with its terminator, all
   * integers 32-bit little-endian. An empty table writes nothing and returns 0. Returns the
   * stream's first error or its last success code. The flag is ignored. */
  HRESULT __stdcall Persist(IStream *stream, BOOL flag);
  /* Fills `table` (whose previous contents are not freed) from a stream written by Persist:
   * 0x80070057 for a null table, the stream's error (the items read so far stay), or
   * 0x8007000E. Only restore tables that were persisted non-empty: a stream at its end gives
   * an empty table. The flag is ignored. */
  static HRESULT __stdcall Create(IStream *stream, BOOL flag, _summarylisttag *table);
#endif
} SUMMARYLIST;
KY_CHECK_SIZE(SUMMARYLIST, 8);

/* The record that KyFMMeta_fillSummaryFromFile appends to an item list: a 12-byte header and
 * the text as UTF-16 with its terminator; the item's size is 12 + textSize. */
typedef struct KYSUMMARYRECORD {
  DWORD headerSize; /* 12 */
  DWORD id;         /* four-character code, RIFF byte order */
  DWORD textSize;   /* bytes of text including the terminator: (characters + 1) x 2 */
  WCHAR text[1];
} KYSUMMARYRECORD;
KY_CHECK_OFFSET(KYSUMMARYRECORD, text, 12);

KY_BEGIN_DECLS
/* Loads the items of an INFO list: hFile is at the list's first sub-chunk and *remaining holds
 * the list's content size (required). Replaces the table's item pointer without freeing it.
 * 0 or an error (0x8004E008, 0x8007000E); on an error the table is left empty. */
KY_IMPORT HRESULT KYAPI KySummary_Load(HANDLE hFile, SUMMARYLIST *table, LONG *remaining);
/* Writes the items with text as a LIST "INFO" at the current position and stores the bytes
 * written (optional). An odd-sized item is followed by one pad byte whose value is the low
 * 8 bits of the item's index in the table (readers ignore it). 0, 0x8004E009 or 0x8007000E;
 * nothing written is undone on failure. */
KY_IMPORT HRESULT KYAPI KySummary_Save(HANDLE hFile, SUMMARYLIST *table, DWORD *written);
/* Reads one item's text from the next LIST "INFO" into dst (capacity in characters, always
 * terminated), bounded by *remaining when given. 0x8004E00A when absent. */
KY_IMPORT HRESULT KYAPI KySummary_GetStringFromFile(HANDLE hFile, DWORD id, char *dst,
                                                    LONG capacity, LONG *remaining);
/* Releases every text and the array; the table is left empty. Returns 0. */
KY_IMPORT HRESULT KYAPI KySummary_Free(SUMMARYLIST *table);
/* Index of the first item with that id, or 0x8004E00A. */
KY_IMPORT LONG KYAPI KySummary_GetItemIndex(const SUMMARYLIST *table, DWORD id);
/* The first matching item's text (owned by the table), or null. */
KY_IMPORT const char *KYAPI KySummary_GetItemText(const SUMMARYLIST *table, DWORD id);
/* Sets the first item with that id; appends it when absent. A null text clears the item's text
 * (the item stays). 0 or 0x8007000E. */
KY_IMPORT HRESULT KYAPI KySummary_SetItem(SUMMARYLIST *table, DWORD id, const char *text);
/* Deep copy; the destination's previous contents are not freed. 0 or 0x8007000E. */
KY_IMPORT HRESULT KYAPI KySummary_Copy(SUMMARYLIST *dst, const SUMMARYLIST *src);
/* 1 when the tables hold the same texts position by position, else 0. Ids are deliberately
 * not compared. */
KY_IMPORT BOOL KYAPI KySummary_Compare(const SUMMARYLIST *a, const SUMMARYLIST *b);
/* Appends one KYSUMMARYRECORD per INFO item with text of a RIFF file to `list` (created by
 * the caller, e.g. a heap list). 0x8004E007 for an invalid handle, 0 for a null list, a read,
 * search or load error, or 0x8007000E. */
KY_IMPORT HRESULT KYAPI KyFMMeta_fillSummaryFromFile(HANDLE hFile, HKYLIST list);
KY_END_DECLS

#endif
