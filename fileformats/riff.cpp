// RIFF chunk I/O: 32-bit sizes, two-byte alignment, state kept only in the file pointer.
#include "ky_riff.h"

#include <stdlib.h>
#include <string.h>
#include "riff_io.h"

using namespace ky::riffio;

namespace {

inline DWORD RoundEven(DWORD size) { return size + (size & 1); }
// The same without wrapping, for positions and remaining counts.
inline ULONGLONG Padded(DWORD size) { return ULONGLONG(size) + (size & 1); }

// Header reader shared by the family.
HRESULT ReadHeader(HANDLE h, DWORD *id, DWORD *size) {
  HRESULT hr = ReadExact(h, id, 4);
  if (FAILED(hr)) return hr;
  return ReadExact(h, size, 4);
}

// Moves forward by the size rounded up to even; the move itself is done in 64 bits so that
// a size of 0xFFFFFFFF still moves forward.
DWORD Skip(HANDLE h, DWORD size) {
  SkipForward(h, Padded(size));
  return RoundEven(size);
}

// The search of riff_FindChunkHeader on an optional 64-bit count (stored back by the
// callers). The search runs on a copy: *count is only written at the not-found exit and on
// success, so a read error leaves it as it was on entry.
HRESULT FindChunk(HANDLE h, DWORD id, DWORD *size, LONGLONG *count) {
  LONGLONG left = count ? *count : 0;
  for (;;) {
    if (count && left < 8) {
      *count = left;
      return KYERR_NOT_FOUND;
    }
    DWORD cid = 0, csize = 0;
    HRESULT hr = ReadHeader(h, &cid, &csize);
    if (FAILED(hr)) return hr;
    if (count) left -= 8;
    if (cid == id) {
      if (size) *size = csize;
      if (count) *count = left;
      return S_OK;
    }
    if (count) left = SubtractCount(left, Padded(csize));
    Skip(h, csize);
  }
}

// riff_FindListChunk on a 64-bit count. A skipped LIST takes its whole rounded size from the
// count although 4 of its bytes (the type) were already taken: kept on purpose, it decides
// where bounded searches give up.
HRESULT FindList(HANDLE h, DWORD listType, DWORD *size, LONGLONG *count) {
  for (;;) {
    DWORD lsize = 0;
    HRESULT hr = FindChunk(h, KY_RIFF_ID_LIST, &lsize, count);
    if (FAILED(hr)) return hr;
    if (lsize < 4) {
      // Too short to hold a type: passed over like any other chunk.
      if (count) *count = SubtractCount(*count, Padded(lsize));
      Skip(h, lsize);
      continue;
    }
    if (count && *count < 4) return KYERR_NOT_FOUND;
    DWORD type = 0;
    hr = ReadExact(h, &type, 4);
    if (FAILED(hr)) return hr;
    if (count) *count -= 4;
    if (type == listType) {
      if (size) *size = lsize - 4;
      return S_OK;
    }
    SkipForward(h, Padded(lsize) - 4);
    if (count) *count = SubtractCount(*count, Padded(lsize));
  }
}

// The entries of a chunk list for CountEntries / SeekEntry.
struct Entries {
  static constexpr LONGLONG kHeader = 8;
  static HRESULT Next(HANDLE h, ULONGLONG *taken) {
    DWORD id = 0, size = 0;
    HRESULT hr = ReadHeader(h, &id, &size);
    if (FAILED(hr)) return hr;
    Skip(h, size);
    *taken = Padded(size);
    return S_OK;
  }
};

// Reads the RIFF header at offset 0 and gives the top-level count (size field minus 4).
HRESULT TopLevel(HANDLE h, LONGLONG *count) {
  SeekTo(h, 0);
  DWORD size = 0;
  HRESULT hr = riff_ReadFileID(h, &size, nullptr);
  if (FAILED(hr)) return hr;
  *count = static_cast<LONG>(size);
  return S_OK;
}

} // namespace

extern "C" {

HRESULT KYAPI riff_ValidateChunkHeader(DWORD, LONG size) {
  if (size < 0) return KYERR_CHUNK_BAD_LENGTH;
  if (size == 0) return KYERR_CHUNK_ZERO_LENGTH;
  return S_OK;
}

HRESULT KYAPI riff_SaveLocation(HANDLE hFile, DWORD *position) {
  if (!position) return E_POINTER;
  *position = static_cast<DWORD>(Tell(hFile));
  return S_OK;
}

HRESULT KYAPI riff_RestoreLocation(HANDLE hFile, DWORD position) {
  SeekTo(hFile, position);
  return S_OK;
}

DWORD KYAPI riff_SkipChunk(HANDLE hFile, DWORD size) { return Skip(hFile, size); }

HRESULT KYAPI riff_ReadData(HANDLE hFile, void *buffer, DWORD size) {
  if (!buffer && size) return E_POINTER;
  HRESULT hr = ReadExact(hFile, buffer, size);
  if (FAILED(hr)) return hr;
  if (size & 1) SeekBy(hFile, 1);
  return S_OK;
}

HRESULT KYAPI riff_ReadDataBounded(HANDLE hFile, void *buffer, DWORD chunkSize, DWORD capacity) {
  const DWORD n = chunkSize < capacity ? chunkSize : capacity;
  if (!buffer && n) return E_POINTER;
  HRESULT hr = ReadExact(hFile, buffer, n);
  if (FAILED(hr)) return hr;
  // The pad byte is decided by the capacity, not by the chunk size (see the header).
  SkipForward(hFile, static_cast<ULONGLONG>(chunkSize - n) + (capacity & 1));
  return S_OK;
}

HRESULT KYAPI riff_ReadDataAlloc(HANDLE hFile, RIFFDATA *data) {
  return ReadAlloc(hFile, data, riff_ReadData);
}

HRESULT KYAPI riff_ReadChunkHeader(HANDLE hFile, DWORD *id, DWORD *size) {
  if (!id || !size) return E_POINTER;
  return ReadHeader(hFile, id, size);
}

HRESULT KYAPI riff_ReadListHeader(HANDLE hFile, DWORD *listType, DWORD *size) {
  if (!listType || !size) return E_POINTER;
  DWORD id = 0;
  HRESULT hr = ReadHeader(hFile, &id, size);
  if (FAILED(hr)) return hr;
  if (id != KY_RIFF_ID_LIST) return KYERR_LIST_MISSING;
  if (*size < 4) return *size == 0 ? KYERR_CHUNK_ZERO_LENGTH : KYERR_CHUNK_BAD_LENGTH;
  *size -= 4;
  return ReadExact(hFile, listType, 4);
}

HRESULT KYAPI riff_ReadFileID(HANDLE hFile, DWORD *size, DWORD *formType) {
  DWORD id = 0, fieldSize = 0;
  // A failed read is not reported as such: it leaves the identifier 0, which fails below.
  ReadHeader(hFile, &id, &fieldSize);
  if (size) *size = fieldSize - 4;
  if (id != KY_RIFF_ID_RIFF) return KYERR_RIFF_MISSING;
  DWORD form = 0;
  HRESULT hr = ReadExact(hFile, &form, 4);
  if (FAILED(hr)) return hr;
  if (formType) *formType = form;
  return S_OK;
}

HRESULT KYAPI riff_GetFileSize(HANDLE hFile, DWORD *size) {
  SeekTo(hFile, 0);
  DWORD rest = 0;
  HRESULT hr = riff_ReadFileID(hFile, &rest, nullptr);
  if (FAILED(hr)) return hr;
  // rest is the size field minus 4; the answer is the field plus 4 (see the header).
  if (size) *size = rest + 8;
  return S_OK;
}

HRESULT KYAPI riff_SetRIFFSize(HANDLE hFile, DWORD size) {
  const ULONGLONG saved = Tell(hFile);
  SeekTo(hFile, 4);
  HRESULT hr = Write(hFile, &size, 4);
  SeekTo(hFile, saved);
  return hr;
}

HRESULT KYAPI riff_UpdateRIFFSize(HANDLE hFile, LONG delta) {
  const ULONGLONG saved = Tell(hFile);
  SeekTo(hFile, 4);
  DWORD value = 0;
  HRESULT hr = ReadExact(hFile, &value, 4);
  if (SUCCEEDED(hr)) {
    value += static_cast<DWORD>(delta);
    SeekTo(hFile, 4);
    hr = Write(hFile, &value, 4);
  }
  SeekTo(hFile, saved);
  return hr;
}

HRESULT KYAPI riff_SeekDataStart(HANDLE hFile) {
  SeekTo(hFile, 12);
  return S_OK;
}

HRESULT KYAPI riff_WriteChunkHeader(HANDLE hFile, DWORD id, DWORD size) {
  const DWORD header[2] = {id, size};
  return Write(hFile, header, 8);
}

HRESULT KYAPI riff_WriteChunk(HANDLE hFile, DWORD id, const void *data, DWORD size,
                              DWORD *written) {
  if (!data && size) return E_POINTER;
  HRESULT hr = riff_WriteChunkHeader(hFile, id, size);
  if (FAILED(hr)) return hr;
  hr = Write(hFile, data, size);
  if (SUCCEEDED(hr) && (size & 1)) hr = WriteZeros(hFile, 1);
  if (FAILED(hr)) return hr;
  if (written) *written = RoundEven(size) + 8;
  return S_OK;
}

HRESULT KYAPI riff_WriteListHeader(HANDLE hFile, DWORD listType, DWORD size) {
  HRESULT hr = riff_WriteChunkHeader(hFile, KY_RIFF_ID_LIST, size);
  if (FAILED(hr)) return hr;
  return Write(hFile, &listType, 4);
}

HRESULT KYAPI riff_WriteFileID(HANDLE hFile, DWORD formType, DWORD size) {
  riff_WriteChunkHeader(hFile, KY_RIFF_ID_RIFF, size); // a failure here is not reported
  return Write(hFile, &formType, 4);
}

HRESULT KYAPI riff_FindChunkHeader(HANDLE hFile, DWORD id, DWORD *size, LONG *remaining) {
  // The count comes back unchanged after a read error.
  return WithCount(remaining, [&](LONGLONG *count) { return FindChunk(hFile, id, size, count); });
}

HRESULT KYAPI riff_FindChunkHeaderInRIFF(HANDLE hFile, DWORD id, DWORD *size, LONG *remaining) {
  LONGLONG count = 0;
  HRESULT hr = TopLevel(hFile, &count);
  if (FAILED(hr)) return hr;
  hr = FindChunk(hFile, id, size, &count);
  if (remaining) *remaining = Saturate32(count);
  return hr;
}

HRESULT KYAPI riff_FindListChunk(HANDLE hFile, DWORD listType, DWORD *size, LONG *remaining) {
  return WithCount(remaining, [&](LONGLONG *count) { return FindList(hFile, listType, size, count); });
}

HRESULT KYAPI riff_FindListChunkFromStart(HANDLE hFile, DWORD listType, DWORD *size) {
  LONGLONG count = 0;
  HRESULT hr = TopLevel(hFile, &count);
  if (FAILED(hr)) return hr;
  return FindList(hFile, listType, size, &count);
}

HRESULT KYAPI riff_GetNumListEntries(HANDLE hFile, DWORD *count, LONG *remaining) {
  if (!count) return E_POINTER;
  return WithCount(remaining, [&](LONGLONG *left) { return CountEntries<Entries>(hFile, count, left); });
}

HRESULT KYAPI riff_SeekListEntry(HANDLE hFile, DWORD index, LONG *remaining) {
  return WithCount(remaining, [&](LONGLONG *left) { return SeekEntry<Entries>(hFile, index, left); });
}

HRESULT KYAPI riff_DeleteChunk(HANDLE hFile, DWORD id, DWORD *removed, BOOL isList) {
  if (removed) *removed = 0;
  // Unlike a plain search, a file that is not RIFF stops here: moving data about in a file of
  // unknown layout would destroy it.
  LONGLONG count = 0;
  HRESULT hr = TopLevel(hFile, &count);
  if (FAILED(hr)) return hr;
  DWORD size = 0;
  hr = isList ? FindList(hFile, id, &size, &count) : FindChunk(hFile, id, &size, &count);
  if (FAILED(hr)) return hr;

  // The whole chunk: header, (list type,) data and pad byte.
  const ULONGLONG header = isList ? 12 : 8;
  const ULONGLONG length = Padded(size) + header;
  ULONGLONG dst = Tell(hFile) - header;
  ULONGLONG src = dst + length;

  BYTE buffer[4096];
  for (;;) {
    SeekTo(hFile, src);
    DWORD got = 0;
    if (!ReadFile(hFile, buffer, sizeof buffer, &got, nullptr)) return KYERR_FILE_READ;
    src += got;
    SeekTo(hFile, dst);
    hr = Write(hFile, buffer, got);
    if (FAILED(hr)) return hr;
    dst += got;
    if (got < sizeof buffer) break;
  }
  SetEndOfFile(hFile);
  riff_UpdateRIFFSize(hFile, -static_cast<LONG>(static_cast<DWORD>(length)));
  if (removed) *removed = static_cast<DWORD>(length);
  return S_OK;
}

HRESULT KYAPI riff_WriteANSIString(HANDLE hFile, const char *text, DWORD *written) {
  if (!text || !written) return E_POINTER;
  const size_t length = strlen(text) + 1; // with the terminating zero
  char *copy = static_cast<char *>(calloc(length, 1));
  if (!copy) return E_OUTOFMEMORY;
  memcpy(copy, text, length);
  const DWORD n = static_cast<DWORD>(length);
  HRESULT hr = Write(hFile, copy, n);
  free(copy);
  if (SUCCEEDED(hr) && (n & 1)) hr = WriteZeros(hFile, 1);
  if (FAILED(hr)) return hr;
  *written = RoundEven(n);
  return S_OK;
}

HRESULT KYAPI riff_ReadANSIString(HANDLE hFile, char *dest, DWORD capacity, DWORD *size) {
  if (!dest || !size) return E_POINTER;
  if (*size == 0 || capacity == 0) return E_INVALIDARG;
  const DWORD stringSize = *size;
  const DWORD n = stringSize < capacity ? stringSize : capacity;
  char *buffer = static_cast<char *>(calloc(n, 1));
  if (!buffer) return E_OUTOFMEMORY;
  const ULONGLONG start = Tell(hFile);
  HRESULT hr = ReadExact(hFile, buffer, n);
  if (SUCCEEDED(hr)) {
    buffer[n - 1] = 0;
    memcpy(dest, buffer, n);
    SeekTo(hFile, start + stringSize + (stringSize & 1));
    *size = stringSize + 1; // deliberate (see the header)
  }
  free(buffer);
  return hr;
}

} // extern "C"
