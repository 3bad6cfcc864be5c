// Private file primitives of the chunk families (riff_, riff64_): exact reads, plain writes
// and seeks with full 64-bit positions. Reads fail on a short count; writes check only the
// success of the call, as the chunk families promise.
#pragma once

#include <windows.h>
#include <limits.h>
#include "ky_riff.h"
#include "ky_status.h"

namespace ky::riffio {

// Current position, or 0 when the handle cannot report one.
inline ULONGLONG Tell(HANDLE h) {
  LARGE_INTEGER zero{}, pos{};
  return SetFilePointerEx(h, zero, &pos, FILE_CURRENT) ? static_cast<ULONGLONG>(pos.QuadPart) : 0;
}

inline bool SeekTo(HANDLE h, ULONGLONG pos) {
  LARGE_INTEGER d;
  d.QuadPart = static_cast<LONGLONG>(pos);
  return SetFilePointerEx(h, d, nullptr, FILE_BEGIN) != 0;
}

inline bool SeekBy(HANDLE h, LONGLONG delta) {
  LARGE_INTEGER d;
  d.QuadPart = delta;
  return SetFilePointerEx(h, d, nullptr, FILE_CURRENT) != 0;
}

// Forward move by an unsigned distance; a distance beyond the signed range is not moved (the
// move would otherwise run backwards), so a damaged size can never make a scan revisit data.
inline void SkipForward(HANDLE h, ULONGLONG distance) {
  if (distance != 0 && distance <= static_cast<ULONGLONG>(LLONG_MAX))
    SeekBy(h, static_cast<LONGLONG>(distance));
}

// Reads exactly n bytes: KYERR_FILE_READ when the call fails or returns fewer.
inline HRESULT ReadExact(HANDLE h, void *buf, DWORD n) {
  DWORD got = 0;
  if (!ReadFile(h, buf, n, &got, nullptr) || got != n) return KYERR_FILE_READ;
  return S_OK;
}

// One write call; KYERR_FILE_WRITE when it fails. *got receives the count reported.
inline HRESULT Write(HANDLE h, const void *buf, DWORD n, DWORD *got = nullptr) {
  DWORD done = 0;
  if (!WriteFile(h, buf, n, &done, nullptr)) return KYERR_FILE_WRITE;
  if (got) *got = done;
  return S_OK;
}

// Writes n zero bytes one at a time (the pad bytes of a chunk).
inline HRESULT WriteZeros(HANDLE h, DWORD n) {
  static const BYTE zero = 0;
  for (DWORD i = 0; i < n; ++i) {
    HRESULT hr = Write(h, &zero, 1);
    if (FAILED(hr)) return hr;
  }
  return S_OK;
}

// Subtracts from a remaining count without wrapping: results below the type's range
// saturate at its minimum, so an oversized chunk always ends a bounded search.
inline LONGLONG SubtractCount(LONGLONG count, ULONGLONG amount) {
  LONGLONG r;
  if (amount > static_cast<ULONGLONG>(LLONG_MAX) || __builtin_sub_overflow(count, static_cast<LONGLONG>(amount), &r))
    return LLONG_MIN;
  return r;
}

inline LONG Saturate32(LONGLONG v) {
  return v < LONG_MIN ? LONG_MIN : v > LONG_MAX ? LONG_MAX : static_cast<LONG>(v);
}

// Runs search(count) on a 64-bit copy of the caller's optional remaining count (null when
// there is none) and stores the result back, saturated to the caller's type.
template <class Count, class Search>
HRESULT WithCount(Count *remaining, Search search) {
  LONGLONG count = remaining ? *remaining : 0;
  HRESULT hr = search(remaining ? &count : nullptr);
  if (remaining) *remaining = sizeof(Count) == 4 ? Saturate32(count) : static_cast<Count>(count);
  return hr;
}

// riff_ReadDataAlloc and its 64-bit twin: a moveable, zero-initialised, locked block of
// data->size bytes filled by read(h, buffer, size); freed again if the read fails.
template <class Read>
HRESULT ReadAlloc(HANDLE h, RIFFDATA *data, Read read) {
  if (!data) return E_POINTER;
  data->data = nullptr;
  if (data->size == 0) return S_OK;
  HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, data->size);
  void *p = mem ? GlobalLock(mem) : nullptr;
  if (!p) {
    if (mem) GlobalFree(mem);
    return E_OUTOFMEMORY;
  }
  HRESULT hr = read(h, p, data->size);
  if (FAILED(hr)) {
    GlobalUnlock(mem);
    GlobalFree(mem);
    return hr;
  }
  data->data = p;
  return S_OK;
}

// Entry counting and seeking, shared by both families. Format gives kHeader (the header
// size, also the least count that may hold another entry) and Next(h, &taken), which reads
// one header (its status returned) and moves past the chunk's data, giving the bytes
// skipped. The header is taken from the count before the read's result is tested.
template <class Format>
HRESULT CountEntries(HANDLE h, DWORD *count, LONGLONG *left) {
  *count = 0;
  const ULONGLONG saved = Tell(h);
  HRESULT hr = S_OK;
  while (!left || *left >= Format::kHeader) {
    ULONGLONG taken = 0;
    hr = Format::Next(h, &taken);
    if (left) *left = SubtractCount(*left, Format::kHeader);
    if (FAILED(hr)) break;
    if (left) *left = SubtractCount(*left, taken);
    ++*count;
  }
  SeekTo(h, saved); // restored in every case
  return hr;
}

// Skips index entries, leaving the file at the header of entry index; KYERR_NOT_FOUND when
// the count runs out first. The position is not restored on failure.
template <class Format>
HRESULT SeekEntry(HANDLE h, DWORD index, LONGLONG *left) {
  for (DWORD i = 0; i != index; ++i) {
    if (left && *left < Format::kHeader) return KYERR_NOT_FOUND;
    ULONGLONG taken = 0;
    HRESULT hr = Format::Next(h, &taken);
    if (left) *left = SubtractCount(*left, Format::kHeader);
    if (FAILED(hr)) return hr;
    if (left) *left = SubtractCount(*left, taken);
  }
  return S_OK;
}

} // namespace ky::riffio
