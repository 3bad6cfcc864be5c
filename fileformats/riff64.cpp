// 64-bit RIFF chunk I/O: GUID identifiers, 64-bit sizes that include the 24-byte header,
// eight-byte alignment, full 64-bit file positions.
#include "ky_riff64.h"

#include <string.h>
#include "riff_io.h"

using namespace ky::riffio;

namespace {

const GUID kRiffGuid = KY_RIFF64_GUID_RIFF_INIT;
const GUID kListGuid = KY_RIFF64_GUID_LIST_INIT;
constexpr ULONGLONG kHeader = KY_RIFF64_HEADER_SIZE;
constexpr ULONGLONG kType = 16;

inline bool Same(const GUID &a, const GUID &b) { return memcmp(&a, &b, sizeof(GUID)) == 0; }
inline ULONGLONG Round8(ULONGLONG size) { return (size + 7) & ~ULONGLONG(7); }
inline DWORD PadTo8(ULONGLONG count) { return static_cast<DWORD>((8 - (count & 7)) & 7); }

// A header as stored: identifier and the size including the header.
HRESULT ReadHeader(HANDLE h, GUID *id, ULONGLONG *stored) {
  HRESULT hr = ReadExact(h, id, sizeof(GUID));
  if (FAILED(hr)) return hr;
  return ReadExact(h, stored, 8);
}

HRESULT WriteHeader(HANDLE h, const GUID &id, ULONGLONG dataSize) {
  HRESULT hr = Write(h, &id, sizeof(GUID));
  if (FAILED(hr)) return hr;
  const ULONGLONG stored = dataSize + kHeader;
  return Write(h, &stored, 8);
}

// A stored size that cannot even hold its own header ends a scan: skipping "size - 24" would
// run backwards and revisit the same chunk forever.
inline HRESULT CheckStored(ULONGLONG stored) {
  if (stored >= kHeader) return S_OK;
  return stored == 0 ? KYERR_CHUNK_ZERO_LENGTH : KYERR_CHUNK_BAD_LENGTH;
}

ULONGLONG Skip(HANDLE h, ULONGLONG size) {
  const ULONGLONG rounded = Round8(size);
  SkipForward(h, rounded);
  return rounded;
}

// The search of riff64_FindChunkHeader. It runs on a copy of the count: *count is written
// at the not-found exit and on success only, so a read error (or an undersized header)
// leaves it as it was on entry.
HRESULT FindChunk(HANDLE h, const GUID &id, ULONGLONG *size, LONGLONG *count) {
  LONGLONG left = count ? *count : 0;
  for (;;) {
    if (count && left < static_cast<LONGLONG>(kHeader)) {
      *count = left;
      return KYERR_NOT_FOUND;
    }
    GUID cid{};
    ULONGLONG stored = 0;
    HRESULT hr = ReadHeader(h, &cid, &stored);
    if (FAILED(hr)) return hr;
    hr = CheckStored(stored);
    if (FAILED(hr)) return hr;
    const ULONGLONG dataSize = stored - kHeader;
    if (count) left -= static_cast<LONGLONG>(kHeader);
    if (Same(cid, id)) {
      if (size) *size = dataSize;
      if (count) *count = left;
      return S_OK;
    }
    if (count) left = SubtractCount(left, Round8(dataSize));
    Skip(h, dataSize);
  }
}

// riff64_FindListChunk: unlike the 32-bit family the count is charged exactly.
HRESULT FindList(HANDLE h, const GUID &listType, ULONGLONG *size, LONGLONG *count) {
  for (;;) {
    ULONGLONG dataSize = 0;
    HRESULT hr = FindChunk(h, kListGuid, &dataSize, count);
    if (FAILED(hr)) return hr;
    if (dataSize < kType) {
      // Too short to hold a type: passed over like any other chunk.
      if (count) *count = SubtractCount(*count, Round8(dataSize));
      Skip(h, dataSize);
      continue;
    }
    // 8, although the type read next is 16 bytes: the threshold callers have always seen.
    if (count && *count < 8) return KYERR_NOT_FOUND;
    GUID type{};
    hr = ReadExact(h, &type, sizeof type);
    if (FAILED(hr)) return hr;
    if (count) *count -= kType;
    if (Same(type, listType)) {
      if (size) *size = dataSize - kType;
      return S_OK;
    }
    const ULONGLONG rest = Round8(dataSize) - kType;
    SkipForward(h, rest);
    if (count) *count = SubtractCount(*count, rest);
  }
}

// The entries of a list for CountEntries / SeekEntry; an undersized header ends the walk.
struct Entries {
  static constexpr LONGLONG kHeader = KY_RIFF64_HEADER_SIZE;
  static HRESULT Next(HANDLE h, ULONGLONG *taken) {
    GUID id{};
    ULONGLONG stored = 0;
    HRESULT hr = ReadHeader(h, &id, &stored);
    if (SUCCEEDED(hr)) hr = CheckStored(stored);
    if (FAILED(hr)) return hr;
    *taken = Skip(h, stored - kHeader);
    return S_OK;
  }
};

// Reads the file header at offset 0 and gives the top-level count (stored size minus 40).
HRESULT TopLevel(HANDLE h, LONGLONG *count) {
  SeekTo(h, 0);
  ULONGLONG size = 0;
  HRESULT hr = riff64_ReadFileID(h, &size, nullptr);
  if (FAILED(hr)) return hr;
  *count = static_cast<LONGLONG>(size);
  return S_OK;
}

} // namespace

extern "C" {

HRESULT KYAPI riff64_ValidateChunkHeader(GUID, ULONGLONG size) {
  if ((size & 7) != 0 || (size & (ULONGLONG(1) << 35)) != 0) return KYERR_CHUNK_BAD_LENGTH;
  if (size == 0) return KYERR_CHUNK_ZERO_LENGTH;
  return S_OK;
}

HRESULT KYAPI riff64_SaveLocation(HANDLE hFile, ULONGLONG *position) {
  if (!position) return E_POINTER;
  *position = Tell(hFile);
  return S_OK;
}

HRESULT KYAPI riff64_RestoreLocation(HANDLE hFile, ULONGLONG position) {
  SeekTo(hFile, position);
  return S_OK;
}

ULONGLONG KYAPI riff64_SkipChunk(HANDLE hFile, ULONGLONG size) { return Skip(hFile, size); }

HRESULT KYAPI riff64_ReadData(HANDLE hFile, void *buffer, ULONGLONG size) {
  const DWORD n = static_cast<DWORD>(size); // one call moves the low half only
  if (!buffer && n) return E_POINTER;
  HRESULT hr = ReadExact(hFile, buffer, n);
  if (FAILED(hr)) return hr;
  if (size & 7) SeekBy(hFile, 8 - static_cast<LONGLONG>(size & 7));
  return S_OK;
}

HRESULT KYAPI riff64_WriteData(HANDLE hFile, const void *data, ULONGLONG size,
                               ULONGLONG *written) {
  const DWORD n = static_cast<DWORD>(size);
  if (!data && n) return E_POINTER;
  DWORD got = 0;
  HRESULT hr = Write(hFile, data, n, &got);
  if (FAILED(hr)) return hr;
  const DWORD pad = PadTo8(got);
  hr = WriteZeros(hFile, pad);
  if (FAILED(hr)) return hr;
  if (written) *written = static_cast<ULONGLONG>(got) + pad;
  return S_OK;
}

HRESULT KYAPI riff64_ReadDataBounded(HANDLE hFile, void *buffer, DWORD chunkSize,
                                     DWORD capacity) {
  const DWORD n = chunkSize < capacity ? chunkSize : capacity;
  if (!buffer && n) return E_POINTER;
  HRESULT hr = ReadExact(hFile, buffer, n);
  if (FAILED(hr)) return hr;
  // The pad term is taken from the capacity (see the header).
  SkipForward(hFile, static_cast<ULONGLONG>(chunkSize - n) + (capacity & 7));
  return S_OK;
}

HRESULT KYAPI riff64_ReadDataAlloc(HANDLE hFile, RIFFDATA *data) {
  return ReadAlloc(hFile, data, [](HANDLE h, void *p, DWORD n) { return riff64_ReadData(h, p, n); });
}

HRESULT KYAPI riff64_SetRIFFSize(HANDLE hFile, ULONGLONG size) {
  const ULONGLONG saved = Tell(hFile);
  SeekTo(hFile, 16);
  const ULONGLONG stored = size + kHeader;
  HRESULT hr = Write(hFile, &stored, 8);
  SeekTo(hFile, saved);
  return hr;
}

HRESULT KYAPI riff64_UpdateRIFFSize(HANDLE hFile, LONGLONG delta) {
  const ULONGLONG saved = Tell(hFile);
  SeekTo(hFile, 16);
  ULONGLONG value = 0;
  HRESULT hr = ReadExact(hFile, &value, 8);
  if (SUCCEEDED(hr)) {
    value += static_cast<ULONGLONG>(delta);
    SeekTo(hFile, 16);
    hr = Write(hFile, &value, 8);
  }
  SeekTo(hFile, saved);
  return hr;
}

HRESULT KYAPI riff64_WriteChunkHeader(HANDLE hFile, GUID id, ULONGLONG size) {
  return WriteHeader(hFile, id, size);
}

HRESULT KYAPI riff64_WriteChunk(HANDLE hFile, GUID id, const void *data, ULONGLONG size,
                                ULONGLONG *written) {
  if (!data && static_cast<DWORD>(size)) return E_POINTER;
  HRESULT hr = WriteHeader(hFile, id, size);
  if (FAILED(hr)) return hr;
  ULONGLONG dataWritten = 0;
  if (FAILED(riff64_WriteData(hFile, data, size, &dataWritten))) return KYERR_FILE_WRITE;
  if (written) *written = dataWritten + kHeader;
  return S_OK;
}

HRESULT KYAPI riff64_WriteListHeader(HANDLE hFile, GUID listType, ULONGLONG size) {
  HRESULT hr = WriteHeader(hFile, kListGuid, size);
  if (FAILED(hr)) return hr;
  return Write(hFile, &listType, sizeof(GUID));
}

HRESULT KYAPI riff64_WriteFileID(HANDLE hFile, GUID formType, ULONGLONG size) {
  WriteHeader(hFile, kRiffGuid, size); // a failure here is not reported
  return Write(hFile, &formType, sizeof(GUID));
}

LONGLONG KYAPI riff64_AmountWritten(HANDLE hFile, ULONGLONG start) {
  return static_cast<LONGLONG>(Tell(hFile) - start);
}

HRESULT KYAPI riff64_Pad(HANDLE hFile, ULONGLONG start) {
  return WriteZeros(hFile, PadTo8(Tell(hFile) - start));
}

HRESULT KYAPI riff64_WriteToFile(HANDLE hFile, const void *data, ULONGLONG size) {
  const DWORD n = static_cast<DWORD>(size);
  if (!data && n) return E_POINTER;
  return Write(hFile, data, n);
}

HRESULT KYAPI riff64_PrepareChunk(HANDLE hFile, GUID id, ULONGLONG *start) {
  if (!start) return E_POINTER;
  *start = Tell(hFile);
  return WriteHeader(hFile, id, 0);
}

HRESULT KYAPI riff64_PrepareList(HANDLE hFile, GUID listType, ULONGLONG *start) {
  if (!start) return E_POINTER;
  *start = Tell(hFile);
  return FAILED(riff64_WriteListHeader(hFile, listType, 0)) ? KYERR_FILE_WRITE : S_OK;
}

HRESULT KYAPI riff64_CompleteChunk(HANDLE hFile, ULONGLONG start) {
  riff64_Pad(hFile, start); // a failed pad still gets the size patched
  const ULONGLONG amount = static_cast<ULONGLONG>(riff64_AmountWritten(hFile, start));
  const ULONGLONG saved = Tell(hFile);
  SeekTo(hFile, start + 16);
  HRESULT hr = Write(hFile, &amount, 8);
  SeekTo(hFile, saved);
  return hr;
}

HRESULT KYAPI riff64_WriteChunkToFile(HANDLE hFile, GUID id, const void *data, ULONGLONG size) {
  if (!data && static_cast<DWORD>(size)) return E_POINTER;
  ULONGLONG start = 0;
  HRESULT hr = riff64_PrepareChunk(hFile, id, &start);
  if (SUCCEEDED(hr)) hr = riff64_WriteToFile(hFile, data, size);
  if (SUCCEEDED(hr)) hr = riff64_CompleteChunk(hFile, start);
  return FAILED(hr) ? hr : S_OK;
}

HRESULT KYAPI riff64_ReadChunkHeader(HANDLE hFile, GUID *id, ULONGLONG *size) {
  if (!id || !size) return E_POINTER;
  HRESULT hr = ReadExact(hFile, id, sizeof(GUID));
  if (FAILED(hr)) return hr;
  hr = ReadExact(hFile, size, 8);
  if (FAILED(hr)) return hr;
  *size -= kHeader;
  return S_OK;
}

HRESULT KYAPI riff64_ReadListHeader(HANDLE hFile, GUID *listType, ULONGLONG *size) {
  if (!listType || !size) return E_POINTER;
  GUID id{};
  ULONGLONG stored = 0;
  HRESULT hr = ReadHeader(hFile, &id, &stored);
  if (FAILED(hr)) return hr;
  *size = stored - kHeader;
  if (!Same(id, kListGuid)) return KYERR_LIST_MISSING;
  if (stored < kHeader + kType) return stored == 0 ? KYERR_CHUNK_ZERO_LENGTH : KYERR_CHUNK_BAD_LENGTH;
  *size -= kType;
  return ReadExact(hFile, listType, sizeof(GUID));
}

HRESULT KYAPI riff64_ReadFileID(HANDLE hFile, ULONGLONG *size, GUID *formType) {
  GUID id{};
  ULONGLONG stored = 0;
  // A failed read is not reported as such: the identifier stays zero and fails below.
  ReadHeader(hFile, &id, &stored);
  if (size) *size = stored - kHeader - kType;
  if (!Same(id, kRiffGuid)) return KYERR_RIFF_MISSING;
  GUID form{};
  HRESULT hr = ReadExact(hFile, &form, sizeof form);
  if (FAILED(hr)) return hr;
  if (formType) *formType = form;
  return S_OK;
}

HRESULT KYAPI riff64_SeekDataStart(HANDLE hFile) {
  SeekTo(hFile, 40);
  return S_OK;
}

HRESULT KYAPI riff64_FindChunkHeader(HANDLE hFile, GUID id, ULONGLONG *size, LONGLONG *remaining) {
  return WithCount(remaining, [&](LONGLONG *count) { return FindChunk(hFile, id, size, count); });
}

HRESULT KYAPI riff64_FindChunkHeaderInRIFF(HANDLE hFile, GUID id, ULONGLONG *size,
                                           LONGLONG *remaining) {
  LONGLONG count = 0;
  HRESULT hr = TopLevel(hFile, &count);
  if (FAILED(hr)) return hr;
  hr = FindChunk(hFile, id, size, &count);
  if (remaining) *remaining = count;
  return hr;
}

HRESULT KYAPI riff64_FindListChunk(HANDLE hFile, GUID listType, ULONGLONG *size,
                                   LONGLONG *remaining) {
  return WithCount(remaining, [&](LONGLONG *count) { return FindList(hFile, listType, size, count); });
}

HRESULT KYAPI riff64_FindListChunkFromStart(HANDLE hFile, GUID listType, ULONGLONG *size) {
  LONGLONG count = 0;
  HRESULT hr = TopLevel(hFile, &count);
  if (FAILED(hr)) return hr;
  return FindList(hFile, listType, size, &count);
}

HRESULT KYAPI riff64_GetNumListEntries(HANDLE hFile, DWORD *count, LONGLONG *remaining) {
  if (!count) return E_POINTER;
  return CountEntries<Entries>(hFile, count, remaining);
}

HRESULT KYAPI riff64_SeekListEntry(HANDLE hFile, DWORD index, LONGLONG *remaining) {
  return SeekEntry<Entries>(hFile, index, remaining);
}

} // extern "C"
