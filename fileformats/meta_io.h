// Private helpers of the media-file metadata families (IFF/AIFF, summary and display lists,
// cue points, side files): plain Win32 file I/O with the checks these families share.
#pragma once

#include <windows.h>
#include "ky_status.h"

namespace ky::meta {

// Reads exactly n bytes; false when the read call fails or returns fewer.
inline bool ReadExact(HANDLE h, void *buf, DWORD n) {
  DWORD got = 0;
  return ReadFile(h, buf, n, &got, nullptr) && got == n;
}

// Reads up to n bytes; false only when the read call itself fails.
inline bool ReadSome(HANDLE h, void *buf, DWORD n, DWORD *got) {
  *got = 0;
  return ReadFile(h, buf, n, got, nullptr) != FALSE;
}

// Writes n bytes; false when the write call fails or writes fewer bytes.
inline bool WriteAll(HANDLE h, const void *buf, DWORD n) {
  DWORD put = 0;
  return WriteFile(h, buf, n, &put, nullptr) && put == n;
}

// Absolute 32-bit positions: the high half of the file pointer is never used.
inline DWORD Tell(HANDLE h) { return SetFilePointer(h, 0, nullptr, FILE_CURRENT); }
inline void SeekTo(HANDLE h, DWORD pos) { SetFilePointer(h, (LONG)pos, nullptr, FILE_BEGIN); }
inline void SeekBy(HANDLE h, LONG delta) { SetFilePointer(h, delta, nullptr, FILE_CURRENT); }

// Forward move by an unsigned distance (sizes of 2 GB and more must not turn into backward
// moves, which would let a scan revisit a chunk for ever).
inline void SkipForward(HANDLE h, ULONGLONG distance) {
  LARGE_INTEGER d;
  d.QuadPart = (LONGLONG)distance;
  if (distance) SetFilePointerEx(h, d, nullptr, FILE_CURRENT);
}

// A chunk size rounded up to even (0xFFFFFFFF wraps to 0, as a 32-bit count must).
inline DWORD RoundEven(DWORD n) { return n + (n & 1); }

// Four-character codes in RIFF (file) byte order: "LIST" is 0x5453494C.
constexpr DWORD Fourcc(const char (&s)[5]) {
  return (DWORD)(BYTE)s[0] | ((DWORD)(BYTE)s[1] << 8) | ((DWORD)(BYTE)s[2] << 16) |
         ((DWORD)(BYTE)s[3] << 24);
}

// Moveable, zero-initialised global blocks kept locked for their whole life; only the locked
// pointer is kept and the handle is recovered from it to resize or free.
inline void *GlobalNew(SIZE_T n) {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, n ? n : 1);
  if (!h) return nullptr;
  void *p = GlobalLock(h);
  if (!p) GlobalFree(h);
  return p;
}
inline void GlobalDelete(void *p) {
  if (!p) return;
  HGLOBAL h = GlobalHandle(p);
  if (!h) return;
  GlobalUnlock(h);
  GlobalFree(h);
}
// Resizes a block made by GlobalNew (or makes one for null); null on failure, when the old
// block stays valid.
inline void *GlobalResize(void *p, SIZE_T n) {
  if (!p) return GlobalNew(n);
  HGLOBAL h = GlobalHandle(p);
  if (!h) return nullptr;
  GlobalUnlock(h);
  HGLOBAL h2 = GlobalReAlloc(h, n ? n : 1, GMEM_MOVEABLE | GMEM_ZEROINIT);
  if (!h2) {
    GlobalLock(h);  // the old block stays as it was; lock it again
    return nullptr;
  }
  return GlobalLock(h2);
}

}  // namespace ky::meta
