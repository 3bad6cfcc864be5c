/* tellarok display lists: the "DISP" chunks of RIFF files, each a clipboard-format number
 * followed by data in that format (8, CF_DIB, for a device-independent bitmap).
 *
 * The caller owns the list and its item array and fills in the formats it wants (sizes 0, data
 * null) before loading; the library fills size and data, the data in a locked, moveable,
 * zero-initialised global block that displist_Free releases. Nothing here locks. */
#ifndef TELLAROK_KY_DISPLIST_H
#define TELLAROK_KY_DISPLIST_H

#include "ky_base.h"

typedef struct KYDISPITEM {
  DWORD format; /* clipboard-format number */
  DWORD size;   /* payload bytes */
  void *data;   /* payload, or null */
} KYDISPITEM;
KY_CHECK_SIZE(KYDISPITEM, 12);

typedef struct KYDISPLIST {
  DWORD count;
  KYDISPITEM *items;
} KYDISPLIST;
KY_CHECK_SIZE(KYDISPLIST, 8);

KY_BEGIN_DECLS
/* Loads the DISP chunks of the wanted formats from the chunk at the current position on,
 * bounded by *remaining (required, decremented). Chunks of other formats are skipped. A second
 * chunk of a format already loaded replaces the item's data (the first block is not freed).
 * 0, 0x8004E008 or 0x8007000E; on an error of a DISP chunk all loaded data is freed. */
KY_IMPORT HRESULT KYAPI displist_Load(HANDLE hFile, KYDISPLIST *list, LONG *remaining);
/* Writes one DISP chunk per item with data and a nonzero size at the current position; an odd
 * payload is followed by a pad byte holding the low 8 bits of the item's index. Stores the
 * bytes written (optional). 0 or 0x8004E009. */
KY_IMPORT HRESULT KYAPI displist_Save(HANDLE hFile, const KYDISPLIST *list, DWORD *written);
/* The first item of that format, or null. */
KY_IMPORT KYDISPITEM *KYAPI displist_GetItem(KYDISPLIST *list, DWORD format);
/* Frees each item's data and sets it null (sizes, count and array stay). Returns 0. */
KY_IMPORT HRESULT KYAPI displist_Free(KYDISPLIST *list);
/* A device-dependent bitmap made from the DIB display chunk of a RIFF file (any form type), or
 * null. The caller deletes it with DeleteObject. */
KY_IMPORT HBITMAP KYAPI displist_CreateBitmapFromFile(const char *path);
KY_END_DECLS

#endif
