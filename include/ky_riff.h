/* tellarok RIFF chunk I/O: small stateless functions that read, find, write, size and delete
 * the chunks of a RIFF file through a Win32 file handle opened by the caller.
 *
 * Layout: every chunk is a four-character identifier, an unsigned 32-bit little-endian data
 * size (header and pad byte not counted), the data, and one zero pad byte when the size is
 * odd. The file starts with a "RIFF" chunk whose data begins with a form type ("WAVE", ...);
 * its size field is at offset 4 and the first top-level chunk at offset 12. A "LIST" chunk's
 * data begins with a list type, which its size counts.
 *
 * Identifiers are 32-bit values read straight from the file (so "RIFF" is 0x46464952);
 * KY_FOURCC builds one from its four characters. There is no case folding.
 *
 * Remaining counters: the search and counting functions take an optional pointer to a signed
 * 32-bit count of the bytes left in the enclosing container. It bounds the search and is
 * decremented as headers are read and chunks skipped; without it a search runs until a read
 * fails (0x8004E008 at the end of the file). A count that falls below -2^31 is stored as
 * -2^31.
 *
 * Status results: 0 on success; KYERR_FILE_READ (0x8004E008) for a failed or short read,
 * KYERR_FILE_WRITE (0x8004E009) for a failed write call (byte counts of writes are not
 * checked), KYERR_NOT_FOUND (0x8004E00A) when a remaining count runs out, KYERR_RIFF_MISSING
 * (0x8004E080), KYERR_LIST_MISSING (0x8004E081), KYERR_CHUNK_ZERO_LENGTH (0x8004E082),
 * KYERR_CHUNK_BAD_LENGTH (0x8004E083), E_OUTOFMEMORY, and E_POINTER for a required pointer
 * that is null (checked before anything is read or written). Nothing is rolled back after a
 * failure.
 *
 * Limit: positions are 32-bit; riff_SaveLocation drops the high half of the file pointer
 * and riff_RestoreLocation reaches the first 4 GiB only, sizes stop at 4 GiB - 1, and signed
 * remaining counts bound searches in containers below 2 GiB (a larger RIFF size field reads
 * as a negative count, so bounded searches of such a file end at once with KYERR_NOT_FOUND).
 * Larger files belong to the riff64_ family (ky_riff64.h).
 *
 * Thread safety: re-entrant; the file pointer is shared state, so one handle serves one
 * caller at a time. */
#ifndef TELLAROK_KY_RIFF_H
#define TELLAROK_KY_RIFF_H

#include "ky_base.h"
#include "ky_status.h"

/* A chunk identifier from its four characters in file order. */
#define KY_FOURCC(a, b, c, d) \
  ((DWORD)(BYTE)(a) | ((DWORD)(BYTE)(b) << 8) | ((DWORD)(BYTE)(c) << 16) | ((DWORD)(BYTE)(d) << 24))

#define KY_RIFF_ID_RIFF 0x46464952u /* "RIFF" */
#define KY_RIFF_ID_LIST 0x5453494Cu /* "LIST" */

/* Data read by riff_ReadDataAlloc / riff64_ReadDataAlloc. */
typedef struct RIFFDATA {
  DWORD size; /* set by the caller: the chunk's data size */
  void *data; /* set by the function: locked moveable zero-initialised global memory; the
                 caller releases it with GlobalUnlock + GlobalFree of GlobalHandle(data) */
} RIFFDATA;

KY_CHECK_OFFSET(RIFFDATA, size, 0);
KY_CHECK_OFFSET(RIFFDATA, data, 4);
#if !defined(_WIN64)
KY_CHECK_SIZE(RIFFDATA, 8);
#endif

KY_BEGIN_DECLS

/* KYERR_CHUNK_BAD_LENGTH when the size is negative (bit 31 set), KYERR_CHUNK_ZERO_LENGTH when
 * it is 0, else 0. The identifier is not used; nothing is read. */
KY_IMPORT HRESULT KYAPI riff_ValidateChunkHeader(DWORD id, LONG size);

/* Stores the low 32 bits of the current file position; returns 0. */
KY_IMPORT HRESULT KYAPI riff_SaveLocation(HANDLE hFile, DWORD *position);
/* Moves to the absolute position (0 to 4 GiB - 1); returns 0. */
KY_IMPORT HRESULT KYAPI riff_RestoreLocation(HANDLE hFile, DWORD position);
/* Moves forward by the size rounded up to even and returns that rounded size (modulo 2^32),
 * not a status. */
KY_IMPORT DWORD KYAPI riff_SkipChunk(HANDLE hFile, DWORD size);

/* Reads exactly size bytes, then skips the pad byte when size is odd. */
KY_IMPORT HRESULT KYAPI riff_ReadData(HANDLE hFile, void *buffer, DWORD size);
/* Reads min(chunkSize, capacity) bytes, then skips the rest of the chunk plus one byte when
 * the CAPACITY is odd. Deliberate: the pad decision comes from the capacity, and callers that
 * pass an even capacity for an odd chunk skip the pad themselves. */
KY_IMPORT HRESULT KYAPI riff_ReadDataBounded(HANDLE hFile, void *buffer, DWORD chunkSize,
                                             DWORD capacity);
/* Sets data->data to null, then (size > 0) allocates data->size bytes and reads them with
 * riff_ReadData. E_OUTOFMEMORY when the allocation fails; on a read error the block is freed
 * and the pointer left null. A size of 0 returns 0 without allocating. */
KY_IMPORT HRESULT KYAPI riff_ReadDataAlloc(HANDLE hFile, RIFFDATA *data);

/* Reads a chunk header; the file is then at the chunk's data. */
KY_IMPORT HRESULT KYAPI riff_ReadChunkHeader(HANDLE hFile, DWORD *id, DWORD *size);
/* Reads a "LIST" header and its type. *size receives the chunk's data size as soon as the
 * header is read; for a LIST it is then reduced by the 4 type bytes. KYERR_LIST_MISSING when
 * the chunk is no LIST (its 8 header bytes are consumed, *size holds its data size, so it can
 * be skipped); a LIST too short for its type gives KYERR_CHUNK_ZERO_LENGTH (size 0) or
 * KYERR_CHUNK_BAD_LENGTH (1 to 3). */
KY_IMPORT HRESULT KYAPI riff_ReadListHeader(HANDLE hFile, DWORD *listType, DWORD *size);
/* Reads the "RIFF" header at the current position (the caller seeks to 0 first). Both
 * outputs are optional: *size gets the size field minus 4 (the bytes after the form type),
 * stored before the identifier is checked. KYERR_RIFF_MISSING when the identifier is not
 * "RIFF" (also when the header could not be read at all). */
KY_IMPORT HRESULT KYAPI riff_ReadFileID(HANDLE hFile, DWORD *size, DWORD *formType);
/* Seeks to 0, reads the RIFF header and stores the size field plus 4 (optional output).
 * Deliberately plus 4, not the file length (field + 8): callers size buffers with it.
 * Leaves the file at offset 12. */
KY_IMPORT HRESULT KYAPI riff_GetFileSize(HANDLE hFile, DWORD *size);
/* Writes the value unchanged into the size field at offset 4; the position is kept. */
KY_IMPORT HRESULT KYAPI riff_SetRIFFSize(HANDLE hFile, DWORD size);
/* Adds delta to the size field at offset 4; the position is restored in every case. */
KY_IMPORT HRESULT KYAPI riff_UpdateRIFFSize(HANDLE hFile, LONG delta);
/* Moves to offset 12, the first top-level chunk; returns 0. */
KY_IMPORT HRESULT KYAPI riff_SeekDataStart(HANDLE hFile);

/* Writes an identifier and a size as given. */
KY_IMPORT HRESULT KYAPI riff_WriteChunkHeader(HANDLE hFile, DWORD id, DWORD size);
/* Writes a whole chunk: header, data and a zero pad byte when size is odd. *written
 * (optional) receives size rounded up to even plus 8. */
KY_IMPORT HRESULT KYAPI riff_WriteChunk(HANDLE hFile, DWORD id, const void *data, DWORD size,
                                        DWORD *written);
/* Writes a "LIST" header with the size as given (it must count the 4 type bytes) and the
 * type. */
KY_IMPORT HRESULT KYAPI riff_WriteListHeader(HANDLE hFile, DWORD listType, DWORD size);
/* Writes a "RIFF" header with the size as given and the form type. A failure of the header
 * write is not reported; the form-type write's is. */
KY_IMPORT HRESULT KYAPI riff_WriteFileID(HANDLE hFile, DWORD formType, DWORD size);

/* Scans forward from the current position for a chunk with that identifier; on success the
 * file is at its data and *size (optional) holds its unpadded data size. KYERR_NOT_FOUND when
 * the remaining count drops below 8 (the count is stored back); a read error (the end of the
 * file) ends the search with KYERR_FILE_READ and leaves *remaining as it was on entry. */
KY_IMPORT HRESULT KYAPI riff_FindChunkHeader(HANDLE hFile, DWORD id, DWORD *size,
                                             LONG *remaining);
/* Seeks to 0, reads the RIFF header and searches the top level, bounded by the RIFF size
 * minus 4. The entry value of *remaining is not used; the final count is stored there
 * (optional) after the search, found or not. */
KY_IMPORT HRESULT KYAPI riff_FindChunkHeaderInRIFF(HANDLE hFile, DWORD id, DWORD *size,
                                                   LONG *remaining);
/* Scans forward for a LIST of that type; on success the file is just after the type and
 * *size (optional) holds the LIST size minus 4. Every skipped LIST takes 4 bytes more from the
 * remaining count than it occupies; this is deliberate, it fixes where bounded searches give
 * up and existing callers depend on it. A LIST too short for its type is passed over as an
 * ordinary chunk. */
KY_IMPORT HRESULT KYAPI riff_FindListChunk(HANDLE hFile, DWORD listType, DWORD *size,
                                           LONG *remaining);
/* Seeks to 0, reads the RIFF header and runs riff_FindListChunk over the top level. */
KY_IMPORT HRESULT KYAPI riff_FindListChunkFromStart(HANDLE hFile, DWORD listType, DWORD *size);
/* Counts the chunks from the current position (to the end of the remaining count, or without
 * one to the end of the file, which returns KYERR_FILE_READ with the count reached) and
 * returns the file pointer to where it was. */
KY_IMPORT HRESULT KYAPI riff_GetNumListEntries(HANDLE hFile, DWORD *count, LONG *remaining);
/* Skips index chunks from the current position, leaving the file at the header of entry
 * index; KYERR_NOT_FOUND when the remaining count runs out first. */
KY_IMPORT HRESULT KYAPI riff_SeekListEntry(HANDLE hFile, DWORD index, LONG *remaining);
/* Removes the first top-level chunk with that identifier (isList nonzero: the first top-level
 * LIST of that type) with its header and pad byte: the rest of the file moves down through a
 * 4096-byte buffer, the file is truncated and the RIFF size reduced. *removed (optional)
 * receives the bytes removed. A file that is not RIFF is left untouched (KYERR_RIFF_MISSING).
 * A failed copy leaves the file partly moved and untruncated. */
KY_IMPORT HRESULT KYAPI riff_DeleteChunk(HANDLE hFile, DWORD id, DWORD *removed, BOOL isList);

/* Writes the string with its terminating zero and a zero pad byte when that length is odd;
 * *written (required) receives the padded length. */
KY_IMPORT HRESULT KYAPI riff_WriteANSIString(HANDLE hFile, const char *text, DWORD *written);
/* Reads a string of *size bytes (the chunk's data size, nonzero) into dest (capacity bytes,
 * nonzero): min(*size, capacity) bytes are read and the last one forced to zero; the file
 * then moves to the start plus *size plus the pad byte of an odd size, and *size is increased
 * by 1. The increment is deliberate (for odd sizes it gives the padded length); callers
 * depend on it. E_INVALIDARG for a size or capacity of 0. */
KY_IMPORT HRESULT KYAPI riff_ReadANSIString(HANDLE hFile, char *dest, DWORD capacity,
                                            DWORD *size);

KY_END_DECLS

#endif
