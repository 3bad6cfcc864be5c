// Cue points of RIFF files: "cue " points with "labl" names and "ltxt" region lengths from
// the LIST "adtl", as records of an item list with times in 100-nanosecond units.
#include <string.h>

#include "ky_fmmeta.h"
#include "ky_list.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "meta_io.h"

using namespace ky::meta;

namespace {

constexpr DWORD kCue = Fourcc("cue ");
constexpr DWORD kAdtl = Fourcc("adtl");
constexpr DWORD kLabl = Fourcc("labl");
constexpr DWORD kNote = Fourcc("note");
constexpr DWORD kLtxt = Fourcc("ltxt");
constexpr DWORD kLtxtHeader = 20;
constexpr DWORD kLabelBytes = 1024;

DWORD Get32(const BYTE *p) {
  DWORD v;
  memcpy(&v, p, 4);
  return v;
}

// Looks up the "labl"/"note" text or the "ltxt" header of a cue id in an "adtl" block held in
// memory. Returns -1 when not found; for "labl"/"note" the text size (the text is copied,
// terminated, into `text` when it fits its capacity); for "ltxt" 0, with the 20 header bytes in
// `ltxt` (required for that id). Every access stays inside the block, also for a truncated list.
LONG FindAdtlEntry(const BYTE *block, DWORD blockSize, DWORD wanted, DWORD cueId, char *text,
                   DWORD capacity, BYTE *ltxt) {
  if (text && capacity) text[0] = 0;
  if (!block || blockSize < 9) return -1;
  DWORD at = 0;
  LONG left = (LONG)blockSize;
  for (;;) {
    DWORD id = Get32(block + at), size = Get32(block + at + 4);
    const BYTE *data = block + at + 8;
    DWORD avail = blockSize - at - 8;  // bytes of this entry's data inside the block
    if (id == wanted) {
      if (wanted == kLabl || wanted == kNote) {
        if (size < 4 || avail < 4) return -1;
        if (Get32(data) == cueId) {
          DWORD textSize = size - 4;
          DWORD have = textSize < avail - 4 ? textSize : avail - 4;
          // The text is copied only when all of it fits the buffer; a longer one leaves the
          // buffer empty. What is copied is terminated inside the buffer.
          if (text && capacity && textSize <= capacity) {
            memcpy(text, data + 4, have);
            text[have < capacity ? have : capacity - 1] = 0;
          }
          return (LONG)textSize;
        }
      } else if (wanted == kLtxt && ltxt) {
        if (size < kLtxtHeader || avail < kLtxtHeader) return -1;
        memcpy(ltxt, data, kLtxtHeader);
        if (Get32(data) == cueId) return 0;
      }
    }
    ULONGLONG step = 8 + (ULONGLONG)RoundEven(size);
    if (step >= (ULONGLONG)left || (LONG)step < 0) return -1;
    left -= (LONG)step;
    at += (DWORD)step;
    if (left < 9) return -1;
  }
}

LONGLONG ToMediaTime(DWORD samples, DWORD rate) {
  if (rate == 0) return 0;
  return (LONGLONG)((double)samples / (double)rate * 10000000.0 + 0.5);
}

// The content of the top-level LIST "adtl" in a global block, or null. The file position is
// restored in every case.
BYTE *LoadAdtl(HANDLE h, DWORD *outSize) {
  *outSize = 0;
  DWORD pos = Tell(h);
  BYTE *block = nullptr;
  SeekTo(h, 0);
  DWORD riffSize = 0, size = 0;
  if (SUCCEEDED(riff_ReadFileID(h, &riffSize, nullptr))) {
    LONG left = (LONG)riffSize;
    if (SUCCEEDED(riff_FindListChunk(h, kAdtl, &size, &left)) && size > 0 &&
        size <= riffSize) {
      block = static_cast<BYTE *>(GlobalNew(size));
      if (block && !ReadExact(h, block, size)) {
        GlobalDelete(block);
        block = nullptr;
      }
    }
  }
  SeekTo(h, pos);
  if (block) *outSize = size;
  return block;
}

}  // namespace

extern "C" {

HRESULT KYAPI KyFMMeta_fillCuesFromFile(HANDLE hFile, DWORD sampleRate, HKYLIST list) {
  if (!list) return E_POINTER;
  SeekTo(hFile, 0);
  DWORD riffSize = 0;
  HRESULT hr = riff_ReadFileID(hFile, &riffSize, nullptr);
  if (FAILED(hr)) return hr;
  LONG left = (LONG)riffSize;
  DWORD cueSize = 0;
  if (FAILED(riff_FindChunkHeader(hFile, kCue, &cueSize, &left))) return S_OK;
  DWORD count = 0, got = 0;
  if (!ReadSome(hFile, &count, 4, &got)) return KYERR_FILE_READ;
  if (got < 4) count = 0;
  // A count larger than the chunk holds is damaged: only the points inside the chunk count.
  DWORD fits = cueSize >= 4 ? (cueSize - 4) / 24 : 0;
  if (count > fits) count = fits;
  if (count == 0) return S_OK;

  DWORD adtlSize = 0;
  BYTE *adtl = LoadAdtl(hFile, &adtlSize);

  // One record buffer: the 28-byte header and the longest name.
  alignas(8) BYTE buf[28 + KYFMMETA_MAX_NAME * sizeof(WCHAR)];
  KYCUERECORD &r = *reinterpret_cast<KYCUERECORD *>(buf);
  WCHAR *name = reinterpret_cast<WCHAR *>(buf + 28);
  hr = S_OK;
  for (DWORD i = 0; i < count; ++i) {
    memset(buf, 0, sizeof buf);
    DWORD point[6] = {};
    // A point cut short by the end of the file ends the list as a read error too: the chunk's
    // size may be damaged, and reading on would only produce empty points.
    if (!ReadSome(hFile, point, sizeof point, &got) || got != sizeof point) {
      hr = KYERR_FILE_READ;
      break;
    }
    const DWORD cueId = point[0], offset = point[5];
    r.headerSize = 28;
    r.position = ToMediaTime(offset, sampleRate);

    char label[kLabelBytes];
    FindAdtlEntry(adtl, adtlSize, kLabl, cueId, label, sizeof label, nullptr);
    label[kLabelBytes - 1] = 0;
    int chars = MultiByteToWideChar(CP_ACP, MB_PRECOMPOSED, label, -1, name, KYFMMETA_MAX_NAME);
    if (chars <= 0) name[0] = 0;
    name[KYFMMETA_MAX_NAME - 1] = 0;
    r.nameSize = ((DWORD)lstrlenW(name) + 1) * 2;

    BYTE ltxt[kLtxtHeader];
    if (FindAdtlEntry(adtl, adtlSize, kLtxt, cueId, nullptr, 0, ltxt) == 0) {
      r.isRegion = 1;
      r.length = ToMediaTime(Get32(ltxt + 4), sampleRate);
    }
    hr = KyList_AllocAndInsertItem(list, buf, (LONG)(28 + r.nameSize), -1, nullptr);
    if (FAILED(hr)) break;
  }
  GlobalDelete(adtl);
  return hr;
}

HRESULT KYAPI KyFMMeta_LookForMarkers(const char *path) {
  if (!path) return KYERR_NOT_FOUND;
  HANDLE h = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) return KYERR_NOT_FOUND;
  DWORD riffSize = 0, size = 0;
  HRESULT hr = riff_ReadFileID(h, &riffSize, nullptr);
  if (SUCCEEDED(hr)) {
    LONG left = (LONG)riffSize;
    hr = riff_FindChunkHeader(h, kCue, &size, &left);
  }
  CloseHandle(h);
  return SUCCEEDED(hr) ? S_OK : KYERR_NOT_FOUND;
}

}  // extern "C"
