/* tellarok cue points from files and metadata side files.
 *
 * Media-file metadata may live in a RIFF side file next to the media file, named with the
 * extension ".KYL"; the side file records the file-name part of its media file in a top-level
 * "KYPI" chunk. Cue points come from a RIFF file's "cue " chunk with names from "labl" and
 * region lengths from "ltxt" entries of its LIST "adtl". All functions are stdcall and keep no
 * state; two threads must not share one file handle. */
#ifndef TELLAROK_KY_FMMETA_H
#define TELLAROK_KY_FMMETA_H

#include "ky_base.h"
#include "ky_list.h"

#define KYFMMETA_EXTENSION ".KYL"
#define KYFMMETA_MAX_NAME 1024 /* characters of a cue name, terminator included */

/* One cue point as appended to an item list: a 28-byte header and the name as UTF-16 with its
 * terminator; the item's size is 28 + nameSize. Times are in 100-nanosecond units. */
#pragma pack(push, 4)
typedef struct KYCUERECORD {
  DWORD headerSize;  /* 28 */
  LONGLONG position; /* sample offset as media time */
  LONGLONG length;   /* region length as media time, 0 for a plain marker */
  DWORD isRegion;    /* 1 when the cue has an "ltxt" entry */
  DWORD nameSize;    /* bytes of name including the terminator: (characters + 1) x 2 */
  WCHAR name[1];
} KYCUERECORD;
#pragma pack(pop)
KY_CHECK_OFFSET(KYCUERECORD, position, 4);
KY_CHECK_OFFSET(KYCUERECORD, length, 12);
KY_CHECK_OFFSET(KYCUERECORD, isRegion, 20);
KY_CHECK_OFFSET(KYCUERECORD, nameSize, 24);
KY_CHECK_OFFSET(KYCUERECORD, name, 28);

KY_BEGIN_DECLS
/* Appends one KYCUERECORD per cue point of a RIFF file to `list` (a heap list holds the
 * variable-size records). sampleRate 0 gives times of 0. Returns 0 (also for a file without
 * cue points), the RIFF header error, 0x8004E008, or the list's error; records appended
 * before a failure stay in the list. */
KY_IMPORT HRESULT KYAPI KyFMMeta_fillCuesFromFile(HANDLE hFile, DWORD sampleRate, HKYLIST list);
/* 0 when the file is a RIFF file with a top-level "cue " chunk, else 0x8004E00A. */
KY_IMPORT HRESULT KYAPI KyFMMeta_LookForMarkers(const char *path);

/* The side-file name of a media path: the path's extension replaced by ".KYL" (added when it
 * has none), or with `append` set the path followed by ".KYL". 0x80070057 when the path is
 * longer than capacity + 4 characters (a deliberately loose test: give a buffer of at least
 * the path's length + 5). The result is never written beyond the capacity: a longer one is cut
 * to capacity - 1 characters. */
KY_IMPORT HRESULT KYAPI KyFMMeta_CreateMetaName(const char *mediaPath, char *out, LONG capacity,
                                                BOOL append);
/* 1 when `sidePath` opens and its "KYPI" chunk names the file-name part of `mediaPath`
 * (case-sensitive), else 0. */
KY_IMPORT BOOL KYAPI KyFMMeta_IsMetaFile(const char *mediaPath, const char *sidePath);
/* Attaches a side file to a media file under a new name: replaces its "KYPI" chunk with one
 * at the end of the form. 0x80004005 for a null argument, the translated system error when the
 * side file cannot be opened for writing, a RIFF error, or 0. */
KY_IMPORT HRESULT KYAPI KyFMMeta_ChangeAttachedFilename(const char *sidePath,
                                                        const char *newMediaPath);
/* Removes the first top-level "cue " chunk and LIST "adtl" of a file. Returns the status of
 * the "adtl" removal (0x8004E00A when there is none), another RIFF error, or 0 when the file
 * cannot be opened. */
KY_IMPORT HRESULT KYAPI KyFMMeta_DeleteMetaChunks(const char *mediaPath);
KY_END_DECLS

#endif
