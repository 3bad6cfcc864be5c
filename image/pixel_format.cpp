// Pixel types: the table that maps types to header fields and channel bits, classification
// of headers, format texts, palette conversion, header initialisation and bitmap blocks.
#include <stdio.h>
#include <string.h>
#include "ky_internal.h"
#include "pixel_private.h"

namespace ky::image {

namespace {

constexpr PixelTypeInfo kTypes[KYPT_LAST - KYPT_FIRST + 1] = {
    {BI_RGB, 1, {0, 0, 0, 1}},           // 16 RGB1
    {KY_BI_KYGS, 1, {0, 0, 0, 1}},       // 17 GRAY1
    {KY_BI_KYGS, 2, {0, 0, 0, 2}},       // 18 GRAY2
    {KY_BI_KYGS, 4, {0, 0, 0, 4}},       // 19 GRAY4
    {KY_BI_KYGS, 8, {0, 0, 0, 8}},       // 20 GRAY8
    {KY_BI_KYGS, 16, {0, 0, 0, 16}},     // 21 GRAY16
    {KY_BI_KYGS, 32, {0, 0, 0, 32}},     // 22 GRAY32
    {BI_RGB, 4, {8, 8, 8, 0}},           // 23 RGB4
    {BI_RGB, 8, {8, 8, 8, 0}},           // 24 RGB8
    {BI_RGB, 16, {5, 5, 5, 1}},          // 25 RGB555
    {BI_BITFIELDS, 16, {5, 6, 5, 0}},    // 26 RGB565
    {BI_RGB, 24, {8, 8, 8, 0}},          // 27 RGB24
    {BI_RGB, 32, {8, 8, 8, 8}},          // 28 RGB32
    {KY_BI_KYDB, 32, {8, 8, 8, 8}},      // 29 RGBA32
    {BI_BITFIELDS, 32, {10, 10, 10, 2}}, // 30 RGB101010
    {KY_BI_KYDB, 64, {16, 16, 16, 16}},  // 31 RGBA64
    {KY_BI_KYDB, 128, {32, 32, 32, 32}}, // 32 RGBAFLOAT
};

// Writes the four characters of a FourCC and a terminator, within size bytes.
void FourCCToText(DWORD code, char *text, LONG size) {
  if (!text || size <= 0) return;
  char buf[5];
  for (int i = 0; i < 4; ++i) buf[i] = char((code >> (8 * i)) & 0xFF);
  buf[4] = 0;
  CopyText(text, size, buf);
}

} // namespace

const PixelTypeInfo &TypeInfo(LONG type) { return kTypes[type - KYPT_FIRST]; }

DWORD PixelOffset(const BITMAPINFOHEADER *h) {
  if (h->biCompression == BI_BITFIELDS) return 52;  // masks follow a 40-byte header, always
  if (h->biCompression == BI_RGB && h->biClrUsed == 0 && h->biBitCount >= 1 &&
      h->biBitCount <= 8)
    return h->biSize + (4u << h->biBitCount);
  return h->biSize + 4 * h->biClrUsed;
}

LONGLONG DefaultStride(const BITMAPINFOHEADER *h) {
  return ((LONGLONG(h->biBitCount) * h->biWidth + 31) & ~LONGLONG(31)) / 8;
}

RGBQUAD *RecordColors(const BITMAPINFOHEADER *h) {
  if (h->biClrUsed == 0) return nullptr;
  return reinterpret_cast<RGBQUAD *>(reinterpret_cast<BYTE *>(const_cast<BITMAPINFOHEADER *>(h)) +
                                     h->biSize);
}

} // namespace ky::image

using namespace ky::image;

extern "C" LONG WINAPI KyCountBits(DWORD value) {
  LONG n = 0;
  for (; value; value &= value - 1) ++n;
  return n;
}

extern "C" DWORD WINAPI KyCreateBitMask(LONG first, LONG count) {
  if (count <= 0 || first < 0 || first > 31) return 0;
  ULONGLONG bits = count >= 64 ? ~0ull : ((1ull << count) - 1);
  return DWORD(bits << first);
}

extern "C" KYPIXELTYPE WINAPI KyGetPixelType(const BITMAPINFOHEADER *h) {
  if (!h) return 0;
  const WORD bits = h->biBitCount;
  switch (h->biCompression) {
    case BI_BITFIELDS: {
      const DWORD *masks = reinterpret_cast<const DWORD *>(h + 1);
      LONG r = KyCountBits(masks[0]), g = KyCountBits(masks[1]), b = KyCountBits(masks[2]);
      if (bits == 16) {
        if (r == 5 && g == 5 && b == 5) return KYPT_RGB555;
        if (r == 5 && g == 6 && b == 5) return KYPT_RGB565;
      } else if (bits == 32) {
        if (r == 8 && g == 8 && b == 8) return KYPT_RGB32;
        if (r == 10 && g == 10 && b == 10) return KYPT_RGB101010;
      }
      return 0;
    }
    case KY_BI_KYDB:
      return bits == 32 ? KYPT_RGBA32 : bits == 64 ? KYPT_RGBA64 : bits == 128 ? KYPT_RGBAFLOAT : 0;
    case KY_BI_KYGS:
      switch (bits) {
        case 1: return KYPT_GRAY1;
        case 2: return KYPT_GRAY2;
        case 4: return KYPT_GRAY4;
        case 8: return KYPT_GRAY8;
        case 16: return KYPT_GRAY16;
        case 32: return KYPT_GRAY32;
        default: return 0;
      }
    default:  // BI_RGB and every other code: by bit count alone
      switch (bits) {
        case 1: return KYPT_RGB1;
        case 4: return KYPT_RGB4;
        case 8: return KYPT_RGB8;
        case 16: return KYPT_RGB555;
        case 24: return KYPT_RGB24;
        case 32: return KYPT_RGB32;
        default: return 0;
      }
  }
}

extern "C" LONG WINAPI KyVideo_IsCompressed(const BITMAPINFOHEADER *h) {
  if (!h) return 1;
  const DWORD c = h->biCompression;
  if (c != BI_RGB && c != BI_BITFIELDS && c != KY_BI_KYDB && c != KY_BI_KYGS) return 1;
  return KyGetPixelType(h) == 0 ? 1 : 0;
}

extern "C" LONG WINAPI KyGetPixelBitsPerChannel(KYPIXELTYPE type, BYTE *bits) {
  if (!IsKnownType(type)) {
    if (bits) memset(bits, 0, 4);
    return 0;
  }
  const PixelTypeInfo &t = TypeInfo(type);
  if (bits) memcpy(bits, t.channelBits, 4);
  return t.bitCount;
}

extern "C" ULONGLONG WINAPI KyPixelTypeToBitAttribs(KYPIXELTYPE type, DWORD *compression,
                                                    DWORD *block, LONG blockSize, DWORD *masks) {
  DWORD comp = 0, bpp = 0;
  if (IsKnownType(type)) {
    const PixelTypeInfo &t = TypeInfo(type);
    comp = t.compression;
    bpp = t.bitCount;
  }
  if (compression) *compression = comp;
  if (masks) {
    if (comp == BI_BITFIELDS) {
      const BYTE *c = TypeInfo(type).channelBits;  // blue, green, red in memory order
      const LONG red = c[2], green = c[1], blue = c[0];
      masks[0] = KyCreateBitMask(green + blue, red);
      masks[1] = KyCreateBitMask(blue, green);
      masks[2] = KyCreateBitMask(0, blue);
    } else {
      masks[0] = masks[1] = masks[2] = 0;
    }
  }
  if (block) {
    if (blockSize < 64) {
      bpp = 0;
    } else {
      memset(block, 0, 64);
      block[0] = 64;
      block[1] = (type >= KYPT_GRAY1 && type <= KYPT_GRAY32) ? 4096 : 0xFFFFFFFFu;
      block[2] = 0;
      block[3] = 0xFFFFFFFFu;
      const double one = 1.0;
      memcpy(&block[6], &one, sizeof one);
    }
  }
  return (ULONGLONG(comp) << 32) | bpp;
}

extern "C" LONG WINAPI GetByteOffsetFromChannelEnum(LONG channel, LONG bytesPerPixel) {
  if (channel < 0 || channel > 3) return 0;
  return channel * (bytesPerPixel / 4);
}

extern "C" LONG WINAPI KyVideo_GetFormatText(DWORD compression, char *text, LONG size) {
  if (!text) return 0;
  const char *fixed = nullptr;
  switch (compression) {
    case BI_RGB: fixed = "RGB"; break;
    case BI_BITFIELDS: fixed = "RGB (bitfields)"; break;
    case KY_BI_KYDB: fixed = "RGBA"; break;
    case KY_BI_KYGS: fixed = "Grayscale"; break;
    default: break;
  }
  if (fixed) {
    if (size > 0) ky::CopyText(text, size, fixed);
  } else {
    FourCCToText(compression, text, size);
  }
  if (size > 0) text[size - 1] = 0;
  return 0;
}

// The text is bounded by size (a size of 0 or less writes nothing) so no caller's buffer is
// overrun.
extern "C" LONG WINAPI KyVideo_GetAttribsText(const BITMAPINFOHEADER *h, char *text, LONG size) {
  if (!h || !text || size <= 0) return 0;
  char buf[48];
  snprintf(buf, sizeof buf, "%ldx%ldx%d", long(h->biWidth), long(h->biHeight), int(h->biBitCount));
  ky::CopyText(text, size, buf);
  return 0;
}

extern "C" LONG WINAPI KyVideo_GetAttribsTextEx(const BITMAPINFOHEADER *h, DWORD, char *text,
                                                LONG size, DWORD) {
  return KyVideo_GetAttribsText(h, text, size);
}

extern "C" void WINAPI KyVideo_PaletteRGBAFromEntry(RGBQUAD *quads, const PALETTEENTRY *entries,
                                                    LONG count) {
  if (!quads || !entries) return;
  for (LONG i = 0; i < count; ++i) {
    const PALETTEENTRY e = entries[i];  // copy first: the arrays may be the same memory
    quads[i].rgbBlue = e.peBlue;
    quads[i].rgbGreen = e.peGreen;
    quads[i].rgbRed = e.peRed;
    quads[i].rgbReserved = 0;
  }
}

extern "C" void WINAPI KyVideo_PaletteEntryFromRGBA(PALETTEENTRY *entries, const RGBQUAD *quads,
                                                    LONG count) {
  if (!quads || !entries) return;
  for (LONG i = 0; i < count; ++i) {
    const RGBQUAD q = quads[i];
    entries[i].peRed = q.rgbRed;
    entries[i].peGreen = q.rgbGreen;
    entries[i].peBlue = q.rgbBlue;
    entries[i].peFlags = 0;
  }
}

extern "C" HRESULT WINAPI KyVideo_InitBitmapInfo(BITMAPINFOHEADER *h, KYPIXELTYPE type,
                                                 LONG width, LONG height,
                                                 const RGBQUAD *colours, LONG count,
                                                 DWORD *imageSize) {
  DWORD comp = 0, masks[3];
  const DWORD bits = DWORD(KyPixelTypeToBitAttribs(type, &comp, nullptr, 0, masks));
  if (bits == 0 || !h) return E_INVALIDARG;
  // Negative sizes and images whose byte count does not fit biSizeImage are refused.
  if (width < 0 || height < 0) return E_INVALIDARG;
  const ULONGLONG stride = ((ULONGLONG(bits) * ULONGLONG(width) + 31) >> 3) & ~ULONGLONG(3);
  const ULONGLONG size = stride * ULONGLONG(height);
  if (size > 0x7FFFFFFFull) return E_INVALIDARG;

  LONG n = count < 0 ? 0 : count;
  if (comp == BI_BITFIELDS) {
    colours = nullptr;
    n = 0;
  } else if (!colours && count == 0 && bits <= 8) {  // a negative count stays 0
    n = (1 << bits) - 1;  // one fewer than the implied table, on purpose
  }
  if (imageSize) *imageSize = DWORD(size);

  h->biSize = sizeof(BITMAPINFOHEADER);
  h->biWidth = width;
  h->biHeight = height;
  h->biPlanes = 1;
  h->biBitCount = WORD(bits);
  h->biCompression = comp;
  h->biSizeImage = DWORD(size);
  h->biXPelsPerMeter = 0;
  h->biYPelsPerMeter = 0;
  h->biClrUsed = DWORD(n);
  h->biClrImportant = 0;
  if (comp == BI_BITFIELDS)
    memcpy(h + 1, masks, sizeof masks);
  else if (colours && n != 0)
    memmove(h + 1, colours, size_t(n) * 4);
  return S_OK;
}

extern "C" HRESULT WINAPI KyDibAlloc(BITMAPINFOHEADER **result, KYPIXELTYPE type, LONG width,
                                     LONG height, const RGBQUAD *colours, LONG count,
                                     DWORD flags) {
  if (!result) return E_POINTER;
  *result = nullptr;
  // The local header has room for 256 entries; a longer table is cut to that. It starts
  // zeroed: a table that the header counts but the caller did not give is copied as black
  // entries, never as whatever the stack held.
  union {
    BITMAPINFOHEADER h;
    BYTE bytes[sizeof(BITMAPINFOHEADER) + 256 * sizeof(RGBQUAD)];
  } local;
  memset(&local, 0, sizeof local);
  DWORD imageSize = 0;
  HRESULT hr = KyVideo_InitBitmapInfo(&local.h, type, width, height, colours,
                                      count > 256 ? 256 : count, &imageSize);
  if (FAILED(hr)) return hr;
  const DWORD table = local.h.biCompression == BI_BITFIELDS ? 12 : local.h.biClrUsed * 4;
  const SIZE_T blockSize = SIZE_T(table) + local.h.biSize + imageSize;
  const UINT allocFlags = GMEM_MOVEABLE | ((flags & 1) ? GMEM_ZEROINIT : 0);
  void *p = nullptr;
  if (flags & 0x80000000u) {
    HGLOBAL mem = GlobalAlloc(allocFlags, blockSize);
    if (!mem) return E_OUTOFMEMORY;
    p = GlobalLock(mem);
    if (!p) {
      GlobalFree(mem);
      return E_OUTOFMEMORY;
    }
  } else {
    HGLOBAL mem = GlobalAlloc(allocFlags, blockSize);
    p = mem ? GlobalLock(mem) : nullptr;
    if (!p) {
      if (mem) GlobalFree(mem);
      return E_OUTOFMEMORY;
    }
  }
  memcpy(p, local.bytes, local.h.biSize + table);
  *result = static_cast<BITMAPINFOHEADER *>(p);
  return S_OK;
}

extern "C" HRESULT WINAPI KyDibFree(void *bitmap, DWORD flags) {
  if (!bitmap) return 0;
  HGLOBAL mem = GlobalHandle(bitmap);
  if (!mem) {
    (void)flags;  // with or without bit 31, a pointer without a handle is left alone
    return 0;
  }
  GlobalUnlock(mem);
  GlobalFree(mem);
  return 0;
}

namespace {
// Words that the force-reference entry points clear so that the tables stay linked in.
volatile LONG g_linkWords[4];
} // namespace

extern "C" void WINAPI KyVideoDSP_ForceExternRef() {
  g_linkWords[0] = 0;
  g_linkWords[1] = 0;
}

extern "C" LONG WINAPI KyVideoDSPFull_ForceExternRef() {
  g_linkWords[2] = 0;
  g_linkWords[3] = 0;
  return 0;
}
