// Big-endian IFF chunk I/O and the AIFF marker search and rate conversion.
#include "ky_iff.h"
#include "ky_status.h"
#include "meta_io.h"

#include <math.h>

using namespace ky::meta;

namespace {

inline WORD Swap16(WORD v) { return (WORD)((v >> 8) | (v << 8)); }
inline DWORD Swap32(DWORD v) {
  return (v >> 24) | ((v >> 8) & 0xFF00) | ((v << 8) & 0xFF0000) | (v << 24);
}

}  // namespace

extern "C" {

void KYAPI iff_ByteSwap16(void *buffer, DWORD count) {
  if (!buffer) return;
  BYTE *p = static_cast<BYTE *>(buffer);
  for (DWORD i = 0; i < count; ++i, p += 2) {
    BYTE t = p[0];
    p[0] = p[1];
    p[1] = t;
  }
}

void KYAPI iff_ByteSwap32(void *buffer, DWORD count) {
  if (!buffer) return;
  BYTE *p = static_cast<BYTE *>(buffer);
  for (DWORD i = 0; i < count; ++i, p += 4) {
    BYTE t0 = p[0], t1 = p[1];
    p[0] = p[3];
    p[1] = p[2];
    p[2] = t1;
    p[3] = t0;
  }
}

HRESULT KYAPI iff_ReadChunkHdr(HANDLE hFile, IFFCHUNKHDR *header) {
  IFFCHUNKHDR h;
  if (!ReadExact(hFile, &h, 8)) return KYERR_FILE_READ;
  if (header) {
    header->ckID = Swap32(h.ckID);
    header->ckSize = Swap32(h.ckSize);
  }
  return S_OK;
}

HRESULT KYAPI iff_ReadDWORD(HANDLE hFile, DWORD *value) {
  DWORD v;
  if (!ReadExact(hFile, &v, 4)) return KYERR_FILE_READ;
  if (value) *value = Swap32(v);
  return S_OK;
}

HRESULT KYAPI iff_ReadWORD(HANDLE hFile, WORD *value) {
  WORD v;
  if (!ReadExact(hFile, &v, 2)) return KYERR_FILE_READ;
  if (value) *value = Swap16(v);
  return S_OK;
}

HRESULT KYAPI iff_WriteChunk(HANDLE hFile, const IFFCHUNKHDR *header) {
  if (!header) return E_POINTER;
  DWORD be[2] = {Swap32(header->ckID), Swap32(header->ckSize)};
  return WriteAll(hFile, be, 8) ? S_OK : KYERR_FILE_WRITE;
}

HRESULT KYAPI iff_WriteDWORD(HANDLE hFile, DWORD value) {
  DWORD be = Swap32(value);
  return WriteAll(hFile, &be, 4) ? S_OK : KYERR_FILE_WRITE;
}

HRESULT KYAPI iff_WriteWORD(HANDLE hFile, WORD value) {
  WORD be = Swap16(value);
  return WriteAll(hFile, &be, 2) ? S_OK : KYERR_FILE_WRITE;
}

HRESULT KYAPI iff_WriteFileID(HANDLE hFile, DWORD formType, DWORD size) {
  IFFCHUNKHDR h = {KYIFF_FORM, size};
  if (FAILED(iff_WriteChunk(hFile, &h))) return KYERR_FILE_WRITE;
  return FAILED(iff_WriteDWORD(hFile, formType)) ? KYERR_FILE_WRITE : S_OK;
}

HRESULT KYAPI iff_ReadFormType(HANDLE hFile, IFFCHUNKHDR *header, DWORD *formType) {
  IFFCHUNKHDR local;
  IFFCHUNKHDR *h = header ? header : &local;
  HRESULT hr = iff_ReadChunkHdr(hFile, h);
  if (FAILED(hr)) return hr;
  if (h->ckID != KYIFF_FORM) return KYERR_FILE_CORRUPT;
  return iff_ReadDWORD(hFile, formType);
}

DWORD KYAPI iff_SkipChunk(HANDLE hFile, DWORD size) {
  SkipForward(hFile, (ULONGLONG)size + (size & 1));
  return RoundEven(size);
}

HRESULT KYAPI iff_FindChunkHeader(HANDLE hFile, DWORD id, DWORD *size, LONG *remaining) {
  LONG left = remaining ? *remaining : 0;
  for (;;) {
    if (remaining && left < 8) {
      *remaining = left;
      return KYERR_NOT_FOUND;
    }
    IFFCHUNKHDR h;
    HRESULT hr = iff_ReadChunkHdr(hFile, &h);
    if (FAILED(hr)) {
      if (remaining) *remaining = left;
      return hr;
    }
    left -= 8;
    if (h.ckID == id) {
      if (size) *size = h.ckSize;
      if (remaining) *remaining = left;
      return S_OK;
    }
    left -= (LONG)iff_SkipChunk(hFile, h.ckSize);
  }
}

HRESULT KYAPI iff_SeekChunkHeader(HANDLE hFile, DWORD id, DWORD *size) {
  if (!size) return E_POINTER;
  // Each pass moves the file pointer forward by at least 8 bytes, so the search ends at the
  // end of the file at the latest (the read there fails).
  for (;;) {
    IFFCHUNKHDR h;
    HRESULT hr = iff_ReadChunkHdr(hFile, &h);
    if (FAILED(hr)) return hr;
    if (h.ckID == id) {
      *size = h.ckSize;
      return S_OK;
    }
    iff_SkipChunk(hFile, h.ckSize);
  }
}

HRESULT KYAPI iff_FindChunkFromStart(HANDLE hFile, DWORD id, DWORD *size) {
  DWORD local = 0;
  if (!size) size = &local;
  *size = 0;
  SeekTo(hFile, 0);
  IFFCHUNKHDR h;
  HRESULT hr = iff_ReadChunkHdr(hFile, &h);
  if (FAILED(hr)) return hr;
  DWORD formType;
  if (h.ckID != KYIFF_FORM || !ReadExact(hFile, &formType, 4)) return KYERR_RIFF_MISSING;
  return FAILED(iff_SeekChunkHeader(hFile, id, size)) ? KYERR_NOT_FOUND : S_OK;
}

HRESULT KYAPI iff_FindMarker(HANDLE hFile, AIFFMARKER *marker, WORD id) {
  AIFFMARKER local;
  AIFFMARKER *m = marker ? marker : &local;
  DWORD chunkSize = 0;
  HRESULT hr = iff_FindChunkFromStart(hFile, KYIFF_MARK, &chunkSize);
  if (FAILED(hr)) return hr;
  WORD count = 0;
  hr = iff_ReadWORD(hFile, &count);
  if (FAILED(hr)) return hr;
  if (count == 0) return KYERR_NOT_FOUND;
  LONG left = (LONG)chunkSize;
  while (left > 0) {
    if (!ReadExact(hFile, m, 7)) return KYERR_RIFF_MISSING;
    m->id = Swap16(m->id);
    m->position = Swap32(m->position);
    if (m->id == id) return S_OK;
    // The name is a Pascal string padded so that count byte plus characters is even.
    DWORD rest = (m->nameLength & 1) ? m->nameLength : m->nameLength + 1u;
    SeekBy(hFile, (LONG)rest);
    left -= (LONG)(7 + rest);
    if (--count == 0) return KYERR_NOT_FOUND;
  }
  return KYERR_NOT_FOUND;
}

DWORD KYAPI aiff_ConvertRate(const WORD *rate) {
  if (!rate) return 0;
  if (rate[0] & 0x8000) return 44100;  // a negative rate is taken as the common CD rate
  WORD e = (WORD)((rate[0] & 0x7FFF) - 16383);
  double v = 0.0;
  v += rate[4];
  v *= 1.0 / 65536.0;
  v += rate[3];
  v *= 1.0 / 65536.0;
  v += rate[2];
  v *= 1.0 / 65536.0;
  v += rate[1] & 0x7FFF;
  v *= 1.0 / 32768.0;
  if (rate[1] & 0x8000) v += 1.0;
  // The exponent is a count of doublings taken as unsigned: a biased exponent below 16383
  // wraps to a huge count and overflows, which converts to 0 below. Stop once infinite.
  for (unsigned i = 0; i < e && isfinite(v); ++i) v += v;
  if (!(v >= 0.0 && v < 4294967296.0)) return 0;
  return (DWORD)v;
}

BOOL KYAPI iff_IsAIFFFile(HANDLE hFile, DWORD *formSize) {
  SeekTo(hFile, 0);
  IFFCHUNKHDR h;
  DWORD type = 0;
  if (FAILED(iff_ReadFormType(hFile, &h, &type)) || type != KYIFF_AIFF) return FALSE;
  if (formSize) *formSize = h.ckSize;
  return TRUE;
}

}  // extern "C"
