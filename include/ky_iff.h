/* tellarok IFF and AIFF chunk I/O and the wave-format probe.
 *
 * The iff_ functions read and write big-endian IFF chunks through a Win32 file handle that the
 * caller opened; like the riff_ family they keep no state besides the file pointer. Chunk
 * identifiers are handled as the big-endian value of their four characters ("FORM" is
 * 0x464F524D), unlike the riff_ family, which keeps file byte order. All functions are stdcall
 * and safe to call from any thread, as long as two threads never share one handle. */
#ifndef TELLAROK_KY_IFF_H
#define TELLAROK_KY_IFF_H

#include "ky_base.h"
#include <mmsystem.h>

/* Four-character codes as big-endian values. */
#define KYIFF_ID(a, b, c, d) \
  (((DWORD)(BYTE)(a) << 24) | ((DWORD)(BYTE)(b) << 16) | ((DWORD)(BYTE)(c) << 8) | (DWORD)(BYTE)(d))
#define KYIFF_FORM KYIFF_ID('F', 'O', 'R', 'M') /* 0x464F524D */
#define KYIFF_AIFF KYIFF_ID('A', 'I', 'F', 'F') /* 0x41494646 */
#define KYIFF_COMM KYIFF_ID('C', 'O', 'M', 'M') /* 0x434F4D4D */
#define KYIFF_SSND KYIFF_ID('S', 'S', 'N', 'D') /* 0x53534E44 */
#define KYIFF_MARK KYIFF_ID('M', 'A', 'R', 'K') /* 0x4D41524B */

/* Private wave-format tags: big-endian AIFF sample data, 8-bit (FE01) or any other size (FE02);
 * FE00 is accepted from WAVE files as one of the same family. */
#define KYWAVE_FORMAT_PRIVATE    0xFE00
#define KYWAVE_FORMAT_AIFF8      0xFE01
#define KYWAVE_FORMAT_AIFF       0xFE02

/* A chunk header in host order: identifier and data size (without header and pad byte). */
typedef struct IFFCHUNKHDR {
  DWORD ckID;
  DWORD ckSize;
} IFFCHUNKHDR;
KY_CHECK_SIZE(IFFCHUNKHDR, 8);

/* The first 7 bytes of a MARK chunk's marker in host order (the name is not returned). */
#pragma pack(push, 1)
typedef struct AIFFMARKER {
  WORD id;          /* marker identifier */
  DWORD position;   /* position in sample frames */
  BYTE nameLength;  /* count byte of the marker's Pascal-string name */
} AIFFMARKER;
#pragma pack(pop)
KY_CHECK_SIZE(AIFFMARKER, 7);
KY_CHECK_OFFSET(AIFFMARKER, position, 2);
KY_CHECK_OFFSET(AIFFMARKER, nameLength, 6);

KY_BEGIN_DECLS
/* Byte order: reverse each of count 16-bit or 32-bit values in place. */
KY_IMPORT void KYAPI iff_ByteSwap16(void *buffer, DWORD count);
KY_IMPORT void KYAPI iff_ByteSwap32(void *buffer, DWORD count);

/* Reads: exactly 8, 4 or 2 bytes converted to host order; 0x8004E008 on a failed or short read. */
KY_IMPORT HRESULT KYAPI iff_ReadChunkHdr(HANDLE hFile, IFFCHUNKHDR *header);
KY_IMPORT HRESULT KYAPI iff_ReadDWORD(HANDLE hFile, DWORD *value);
KY_IMPORT HRESULT KYAPI iff_ReadWORD(HANDLE hFile, WORD *value);

/* Writes, big-endian; 0x8004E009 unless every byte was written. The header is not changed. */
KY_IMPORT HRESULT KYAPI iff_WriteChunk(HANDLE hFile, const IFFCHUNKHDR *header);
KY_IMPORT HRESULT KYAPI iff_WriteDWORD(HANDLE hFile, DWORD value);
KY_IMPORT HRESULT KYAPI iff_WriteWORD(HANDLE hFile, WORD value);
/* A "FORM" header with the size as given, then the form type. */
KY_IMPORT HRESULT KYAPI iff_WriteFileID(HANDLE hFile, DWORD formType, DWORD size);

/* Reads a header and, when it is "FORM", the form type; 0x8004E00B for another identifier. */
KY_IMPORT HRESULT KYAPI iff_ReadFormType(HANDLE hFile, IFFCHUNKHDR *header, DWORD *formType);
/* Moves forward by size rounded up to even and returns that rounded size (not a status). */
KY_IMPORT DWORD KYAPI iff_SkipChunk(HANDLE hFile, DWORD size);
/* Forward search for a chunk, bounded by *remaining when given (0x8004E00A when fewer than 8
 * bytes are left); on success the file is at the chunk's data and *size holds its size. */
KY_IMPORT HRESULT KYAPI iff_FindChunkHeader(HANDLE hFile, DWORD id, DWORD *size, LONG *remaining);
/* Unbounded forward search; a read error (0x8004E008 at the end of the file) is returned. */
KY_IMPORT HRESULT KYAPI iff_SeekChunkHeader(HANDLE hFile, DWORD id, DWORD *size);
/* Search from the first chunk after the FORM header: 0x8004E080 when the file is not a FORM,
 * 0x8004E00A when the chunk is absent. The search is not bounded by the FORM size. */
KY_IMPORT HRESULT KYAPI iff_FindChunkFromStart(HANDLE hFile, DWORD id, DWORD *size);
/* Finds marker `id` in the MARK chunk; 0x8004E00A when absent. */
KY_IMPORT HRESULT KYAPI iff_FindMarker(HANDLE hFile, AIFFMARKER *marker, WORD id);

/* The AIFF sample rate from its 80-bit form given as five 16-bit words in host order, the
 * sign-and-exponent word first. A negative rate gives 44100; a rate below 1 gives 0. */
KY_IMPORT DWORD KYAPI aiff_ConvertRate(const WORD *rate);
/* 1 when the file starts with a "FORM" of type "AIFF" (and stores the FORM size), else 0. */
KY_IMPORT BOOL KYAPI iff_IsAIFFFile(HANDLE hFile, DWORD *formSize);
/* Describes an AIFF file: the first six fields of *wfx (cbSize is left alone), the frame count
 * and the file offset of the first sample. 0, 0x8004E00B (not AIFF) or a read/search error. */
KY_IMPORT HRESULT KYAPI iff_GetAIFFWfx(HANDLE hFile, WAVEFORMATEX *wfx, DWORD *frames,
                                       DWORD *dataOffset);
/* Probes a RIFF WAVE or AIFF file by name. Returns a wave-format record from the run-time heap
 * (release it with free) or null for any failure; frames and data offset are optional. */
KY_IMPORT WAVEFORMATEX *KYAPI KyGetFileWfx(const char *path, ULONGLONG *frames,
                                           ULONGLONG *dataOffset);
KY_END_DECLS

#endif
