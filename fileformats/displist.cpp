// Display lists: the "DISP" chunks of RIFF files, and a GDI bitmap from a file's DIB chunk.
#include "ky_displist.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "meta_io.h"

using namespace ky::meta;

namespace {

constexpr DWORD kDisp = Fourcc("DISP");

KYDISPITEM *FindFormat(KYDISPLIST *list, DWORD format) {
  if (!list || (LONG)list->count < 1 || !list->items) return nullptr;
  for (DWORD i = 0; i < list->count; ++i)
    if (list->items[i].format == format) return &list->items[i];
  return nullptr;
}

// Bytes from the start of a packed DIB to its bits, or 0 when the DIB is not usable: the
// header, the colour table (core headers: 3 bytes an entry, others 4) and, for bit-field
// DIBs with the plain 40-byte header, the three colour masks. Checks that the bits fit in
// `size` bytes, so that the bitmap creation never reads beyond the payload.
DWORD DibBitsOffset(const BYTE *dib, DWORD size) {
  if (size < sizeof(BITMAPCOREHEADER)) return 0;
  DWORD headerSize;
  memcpy(&headerSize, dib, 4);
  LONG width, height;
  DWORD bitCount, colours, compression = BI_RGB, imageSize = 0;
  bool core = headerSize == sizeof(BITMAPCOREHEADER);
  if (core) {
    BITMAPCOREHEADER h;
    memcpy(&h, dib, sizeof h);
    width = h.bcWidth;
    height = h.bcHeight;
    bitCount = h.bcBitCount;
    colours = 0;
  } else {
    if (headerSize < sizeof(BITMAPINFOHEADER) || headerSize > size) return 0;
    BITMAPINFOHEADER h;
    memcpy(&h, dib, sizeof h);
    width = h.biWidth;
    height = h.biHeight;
    bitCount = h.biBitCount;
    colours = h.biClrUsed;
    compression = h.biCompression;
    imageSize = h.biSizeImage;
  }
  if (colours == 0 || core) {
    colours = bitCount == 1 ? 2 : bitCount == 4 ? 16 : bitCount == 8 ? 256 : 0;
  }
  if (colours > 65536) return 0;
  ULONGLONG offset = headerSize + (ULONGLONG)colours * (core ? 3 : 4);
  if (!core && compression == BI_BITFIELDS && headerSize == sizeof(BITMAPINFOHEADER))
    offset += 12;
  if (width <= 0 || height == 0 || bitCount == 0 || bitCount > 32) return 0;
  ULONGLONG stride = (((ULONGLONG)width * bitCount + 31) / 32) * 4;
  ULONGLONG rows = height < 0 ? (ULONGLONG)(-(LONGLONG)height) : (ULONGLONG)height;
  ULONGLONG bits = (compression == BI_RGB || compression == BI_BITFIELDS) ? stride * rows
                                                                          : imageSize;
  if (bits == 0 || offset + bits > size) return 0;
  return (DWORD)offset;
}

}  // namespace

extern "C" {

HRESULT KYAPI displist_Free(KYDISPLIST *list) {
  if (!list || !list->items) return S_OK;
  for (DWORD i = 0; i < list->count; ++i) {
    GlobalDelete(list->items[i].data);
    list->items[i].data = nullptr;
  }
  return S_OK;
}

KYDISPITEM *KYAPI displist_GetItem(KYDISPLIST *list, DWORD format) {
  return FindFormat(list, format);
}

HRESULT KYAPI displist_Load(HANDLE hFile, KYDISPLIST *list, LONG *remaining) {
  if (!list || !remaining) return E_POINTER;
  if (list->count == 0) return S_OK;
  DWORD start = 0;
  riff_SaveLocation(hFile, &start);
  for (;;) {
    if (*remaining < 8) {
      riff_RestoreLocation(hFile, start);
      return S_OK;
    }
    DWORD id = 0, size = 0;
    HRESULT hr = riff_ReadChunkHeader(hFile, &id, &size);
    *remaining -= 8;
    if (FAILED(hr)) return hr;
    if (id != kDisp) {
      *remaining -= (LONG)riff_SkipChunk(hFile, size);
      continue;
    }
    DWORD format = 0;
    hr = S_OK;
    // A DISP chunk too small to hold its format number, or larger than what is left of its
    // container, is damaged.
    if (size < 4 || size > (DWORD)(*remaining > 0 ? *remaining : 0) ||
        !ReadExact(hFile, &format, 4))
      hr = KYERR_FILE_READ;
    KYDISPITEM *item = SUCCEEDED(hr) ? FindFormat(list, format) : nullptr;
    if (SUCCEEDED(hr) && !item) {
      SeekBy(hFile, -4);
      *remaining -= (LONG)riff_SkipChunk(hFile, size);
      continue;
    }
    if (SUCCEEDED(hr)) {
      DWORD payload = size - 4;
      void *data = GlobalNew(payload);
      if (!data) {
        hr = E_OUTOFMEMORY;
      } else {
        // A second chunk of the same format replaces the data pointer; the earlier block is
        // deliberately not freed here (callers may still hold it).
        item->data = data;
        item->size = payload;
        hr = riff_ReadData(hFile, data, payload);
        *remaining -= (LONG)RoundEven(size);
      }
    }
    if (FAILED(hr)) {
      displist_Free(list);
      riff_RestoreLocation(hFile, start);
      return hr;
    }
  }
}

HRESULT KYAPI displist_Save(HANDLE hFile, const KYDISPLIST *list, DWORD *written) {
  if (written) *written = 0;
  if (!list || list->count == 0 || !list->items) return S_OK;
  DWORD total = 0;
  for (DWORD i = 0; i < list->count; ++i) {
    const KYDISPITEM &it = list->items[i];
    if (!it.data || it.size == 0) continue;
    HRESULT hr = riff_WriteChunkHeader(hFile, kDisp, it.size + 4);
    if (FAILED(hr)) return hr;
    if (!WriteAll(hFile, &it.format, 4) || !WriteAll(hFile, it.data, it.size))
      return KYERR_FILE_WRITE;
    if (it.size & 1) {
      // Same convention as the summary writer: the pad byte holds the item's index.
      BYTE pad = (BYTE)i;
      if (!WriteAll(hFile, &pad, 1)) return KYERR_FILE_WRITE;
    }
    total += 12 + RoundEven(it.size);
  }
  if (written) *written = total;
  return S_OK;
}

HBITMAP KYAPI displist_CreateBitmapFromFile(const char *path) {
  if (!path) return nullptr;
  KYDISPITEM item = {CF_DIB, 0, nullptr};
  KYDISPLIST list = {1, &item};
  HANDLE h = CreateFileA(path, GENERIC_READ, 0, nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL,
                         nullptr);
  if (h == INVALID_HANDLE_VALUE) return nullptr;
  DWORD size = 0;
  if (FAILED(riff_ReadFileID(h, &size, nullptr))) {
    CloseHandle(h);
    return nullptr;
  }
  LONG left = (LONG)size;
  displist_Load(h, &list, &left);  // whatever it found is used; a failure leaves no data
  CloseHandle(h);

  HBITMAP bmp = nullptr;
  HPALETTE pal = static_cast<HPALETTE>(GetStockObject(DEFAULT_PALETTE));
  DWORD bitsAt = item.data && item.size ? DibBitsOffset(static_cast<BYTE *>(item.data), item.size)
                                        : 0;
  if (bitsAt && pal) {
    HDC dc = GetDC(nullptr);
    if (dc) {
      HPALETTE old = SelectPalette(dc, pal, FALSE);
      RealizePalette(dc);
      const BYTE *dib = static_cast<const BYTE *>(item.data);
      bmp = CreateDIBitmap(dc, reinterpret_cast<const BITMAPINFOHEADER *>(dib), CBM_INIT,
                           dib + bitsAt, reinterpret_cast<const BITMAPINFO *>(dib),
                           DIB_RGB_COLORS);
      if (old) SelectPalette(dc, old, FALSE);
      ReleaseDC(nullptr, dc);
    }
  }
  displist_Free(&list);
  return bmp;
}

}  // extern "C"
