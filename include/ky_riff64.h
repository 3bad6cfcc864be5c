/* tellarok 64-bit RIFF chunk I/O: the large-file counterpart of the riff_ family (ky_riff.h)
 * for containers whose chunk identifiers are 16-byte GUIDs and whose sizes are 64-bit.
 *
 * Layout (little-endian): a 16-byte GUID in the usual binary layout, an unsigned 64-bit size
 * that INCLUDES the 24-byte header, the data, and zero pad bytes up to the next multiple of 8
 * from the chunk start. The file starts with a chunk whose identifier is KY_RIFF64_GUID_RIFF;
 * its data begins with a 16-byte form-type GUID, its size field is at offset 16 and the first
 * top-level chunk starts at offset 40. A list chunk (KY_RIFF64_GUID_LIST) begins with a
 * 16-byte list-type GUID, which its size counts.
 *
 * Sizes reported to callers are data sizes: the stored size minus 24 (minus 16 more for the
 * type of a list or of the file). Positions and sizes are full 64-bit values; remaining
 * counters are optional signed 64-bit counts with the meaning of the riff_ family. One read
 * or write call moves at most 2^32 - 1 bytes: only the low half of a size is transferred.
 *
 * Status results as in ky_riff.h. Beyond that, a search that meets a chunk whose stored size
 * is below its own 24-byte header stops with KYERR_CHUNK_ZERO_LENGTH (stored size 0) or
 * KYERR_CHUNK_BAD_LENGTH, and skips never move the file pointer backwards: a damaged file can
 * end a search with an error but never make it loop.
 *
 * Writing a chunk of unknown length: riff64_PrepareChunk (or riff64_PrepareList) records the
 * start and writes a placeholder header; the caller writes the data (for a list: complete
 * sub-chunks); riff64_CompleteChunk pads to 8 and patches the size with the total length
 * (header and pad included, so a multiple of 8). riff64_WriteChunk instead stores the exact
 * unpadded size + 24. Readers round up to 8 when skipping, so both read back alike.
 *
 * Thread safety: re-entrant; one handle serves one caller at a time. */
#ifndef TELLAROK_KY_RIFF64_H
#define TELLAROK_KY_RIFF64_H

#include "ky_base.h"
#include "ky_riff.h"

/* {66666972-912E-11CF-A5D6-28DB04C10000}: the file header ("riff"). */
#define KY_RIFF64_GUID_RIFF_INIT \
  { 0x66666972, 0x912E, 0x11CF, { 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 } }
/* {7473696C-912F-11CF-A5D6-28DB04C10000}: a list ("list"). */
#define KY_RIFF64_GUID_LIST_INIT \
  { 0x7473696C, 0x912F, 0x11CF, { 0xA5, 0xD6, 0x28, 0xDB, 0x04, 0xC1, 0x00, 0x00 } }

#define KY_RIFF64_HEADER_SIZE 24 /* GUID + 64-bit size */

KY_BEGIN_DECLS

/* KYERR_CHUNK_BAD_LENGTH when the low three bits of the stored size are not all zero or bit 35
 * is set (a rule on that bit, not a sign test); else KYERR_CHUNK_ZERO_LENGTH for 0; else 0. */
KY_IMPORT HRESULT KYAPI riff64_ValidateChunkHeader(GUID id, ULONGLONG size);

/* Stores the full current position; returns 0. */
KY_IMPORT HRESULT KYAPI riff64_SaveLocation(HANDLE hFile, ULONGLONG *position);
/* Moves to the absolute position; returns 0. */
KY_IMPORT HRESULT KYAPI riff64_RestoreLocation(HANDLE hFile, ULONGLONG position);
/* Moves forward by the size rounded up to a multiple of 8 and returns that rounded size (not
 * a status). A size whose move would not fit a signed 64-bit offset does not move. */
KY_IMPORT ULONGLONG KYAPI riff64_SkipChunk(HANDLE hFile, ULONGLONG size);

/* Reads exactly the low 32 bits' worth of bytes, then skips the pad up to a multiple of 8. */
KY_IMPORT HRESULT KYAPI riff64_ReadData(HANDLE hFile, void *buffer, ULONGLONG size);
/* Writes the low 32 bits' worth of bytes and zero bytes up to a multiple of 8 of the count
 * written; *written (optional) receives that padded count. */
KY_IMPORT HRESULT KYAPI riff64_WriteData(HANDLE hFile, const void *data, ULONGLONG size,
                                         ULONGLONG *written);
/* Reads min(chunkSize, capacity) bytes, then moves forward by the rest of the chunk plus
 * (capacity mod 8). Deliberate: the pad term comes from the capacity. */
KY_IMPORT HRESULT KYAPI riff64_ReadDataBounded(HANDLE hFile, void *buffer, DWORD chunkSize,
                                               DWORD capacity);
/* As riff_ReadDataAlloc, reading with riff64_ReadData. */
KY_IMPORT HRESULT KYAPI riff64_ReadDataAlloc(HANDLE hFile, RIFFDATA *data);

/* Writes size + 24 at offset 16 (the caller passes the size without the header); the
 * position is kept. */
KY_IMPORT HRESULT KYAPI riff64_SetRIFFSize(HANDLE hFile, ULONGLONG size);
/* Adds delta to the size field at offset 16; the position is restored in every case. */
KY_IMPORT HRESULT KYAPI riff64_UpdateRIFFSize(HANDLE hFile, LONGLONG delta);

/* Writes the GUID and size + 24. */
KY_IMPORT HRESULT KYAPI riff64_WriteChunkHeader(HANDLE hFile, GUID id, ULONGLONG size);
/* Header (stored size: unpadded size + 24), data and pad; *written (optional) receives the
 * padded data count + 24. */
KY_IMPORT HRESULT KYAPI riff64_WriteChunk(HANDLE hFile, GUID id, const void *data,
                                          ULONGLONG size, ULONGLONG *written);
/* A list header with size + 24 (the size must count the 16 type bytes) and the type. */
KY_IMPORT HRESULT KYAPI riff64_WriteListHeader(HANDLE hFile, GUID listType, ULONGLONG size);
/* The file header with size + 24 (a failure of the header write is not reported) and the
 * form type. */
KY_IMPORT HRESULT KYAPI riff64_WriteFileID(HANDLE hFile, GUID formType, ULONGLONG size);
/* Current position minus start (not a status). */
KY_IMPORT LONGLONG KYAPI riff64_AmountWritten(HANDLE hFile, ULONGLONG start);
/* Writes zero bytes until (position - start) is a multiple of 8. */
KY_IMPORT HRESULT KYAPI riff64_Pad(HANDLE hFile, ULONGLONG start);
/* One write of the low 32 bits' worth of bytes, no padding. */
KY_IMPORT HRESULT KYAPI riff64_WriteToFile(HANDLE hFile, const void *data, ULONGLONG size);
/* Stores the current position in *start (required) and writes a header of data size 0. */
KY_IMPORT HRESULT KYAPI riff64_PrepareChunk(HANDLE hFile, GUID id, ULONGLONG *start);
/* Stores the current position in *start (required) and writes a list header of size 0 and
 * the type. */
KY_IMPORT HRESULT KYAPI riff64_PrepareList(HANDLE hFile, GUID listType, ULONGLONG *start);
/* Pads to 8 from start (a pad failure is ignored) and writes the length since start, header
 * and pad included, into the size field at start + 16; the position is kept. Completing the
 * file header from offset 0 sets the file's own size. */
KY_IMPORT HRESULT KYAPI riff64_CompleteChunk(HANDLE hFile, ULONGLONG start);
/* riff64_PrepareChunk, riff64_WriteToFile, riff64_CompleteChunk; stops at and returns the
 * first failure. The stored size is a multiple of 8. */
KY_IMPORT HRESULT KYAPI riff64_WriteChunkToFile(HANDLE hFile, GUID id, const void *data,
                                                ULONGLONG size);

/* Reads a header; *size receives the stored size minus 24 (modulo 2^64). */
KY_IMPORT HRESULT KYAPI riff64_ReadChunkHeader(HANDLE hFile, GUID *id, ULONGLONG *size);
/* Reads a list header and its type; *size gets the data size as soon as the header is read,
 * reduced by the 16 type bytes for a list. KYERR_LIST_MISSING for another chunk (header
 * consumed); a list too short for its type gives KYERR_CHUNK_ZERO_LENGTH / BAD_LENGTH. */
KY_IMPORT HRESULT KYAPI riff64_ReadListHeader(HANDLE hFile, GUID *listType, ULONGLONG *size);
/* Reads the file header at the current position; both outputs optional, *size being the
 * stored size minus 40. KYERR_RIFF_MISSING when the identifier differs (also when nothing
 * could be read). */
KY_IMPORT HRESULT KYAPI riff64_ReadFileID(HANDLE hFile, ULONGLONG *size, GUID *formType);
/* Moves to offset 40; returns 0. */
KY_IMPORT HRESULT KYAPI riff64_SeekDataStart(HANDLE hFile);

/* As riff_FindChunkHeader; the remaining count must be at least 24 for another header. */
KY_IMPORT HRESULT KYAPI riff64_FindChunkHeader(HANDLE hFile, GUID id, ULONGLONG *size,
                                               LONGLONG *remaining);
/* Seeks to 0, reads the file header and searches the top level with remaining = stored size
 * - 40; the entry value of *remaining is not used, the final count is stored (optional). */
KY_IMPORT HRESULT KYAPI riff64_FindChunkHeaderInRIFF(HANDLE hFile, GUID id, ULONGLONG *size,
                                                     LONGLONG *remaining);
/* Scans forward for a list of that type; on success the file is at its first sub-chunk and
 * *size holds the data size minus 16. The remaining count is charged exactly. A list too
 * short for its type is passed over as an ordinary chunk. */
KY_IMPORT HRESULT KYAPI riff64_FindListChunk(HANDLE hFile, GUID listType, ULONGLONG *size,
                                             LONGLONG *remaining);
/* Seeks to 0, reads the file header and runs riff64_FindListChunk over the top level. */
KY_IMPORT HRESULT KYAPI riff64_FindListChunkFromStart(HANDLE hFile, GUID listType,
                                                      ULONGLONG *size);
/* As riff_GetNumListEntries (threshold 24, rounding to 8); always restores the position. */
KY_IMPORT HRESULT KYAPI riff64_GetNumListEntries(HANDLE hFile, DWORD *count,
                                                 LONGLONG *remaining);
/* As riff_SeekListEntry (threshold 24); KYERR_NOT_FOUND when the count runs out first. */
KY_IMPORT HRESULT KYAPI riff64_SeekListEntry(HANDLE hFile, DWORD index, LONGLONG *remaining);

KY_END_DECLS

#endif
