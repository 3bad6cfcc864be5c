// Private helpers of the image family: the pixel-type table, the layout rules that find the
// pixels and stride behind a header, and the quantizer's row mapping.
#pragma once

#include <windows.h>
#include "ky_video.h"

namespace ky::image {

struct PixelTypeInfo {
  DWORD compression;
  WORD bitCount;     // biBitCount the type is written with
  BYTE channelBits[4];
};

inline bool IsKnownType(LONG type) { return type >= KYPT_FIRST && type <= KYPT_LAST; }
// Row of the pixel-type table; only for known types.
const PixelTypeInfo &TypeInfo(LONG type);

// Offset of the pixels from the header's start (the colour-table size rule).
DWORD PixelOffset(const BITMAPINFOHEADER *h);
// Default row stride in bytes (32-bit aligned), as a 64-bit value so that huge widths do
// not wrap.
LONGLONG DefaultStride(const BITMAPINFOHEADER *h);
// Colour table carried by the prepared records: header + biSize when biClrUsed != 0.
RGBQUAD *RecordColors(const BITMAPINFOHEADER *h);

// The block behind a quantizer handle. The cache maps a colour to its nearest index: each
// word holds the colour in bits 8-31 and the index in bits 0-7, written and read as one
// aligned word so that threads sharing a quantizer never see half an entry.
struct QuantizerData {
  DWORD magic;  // kQuantizerMagic
  LONG count;   // palette entries, 1 to 256
  RGBQUAD palette[256];
  volatile LONG cache[4096];
};
constexpr DWORD kQuantizerMagic = 0x5A54514Bu;  // "KQTZ"

// Locks a quantizer handle; null when it is not one. Pair with GlobalUnlock.
QuantizerData *LockQuantizer(HGLOBAL q);
// Index of the palette entry nearest to 0x00RRGGBB.
BYTE QuantizeNearest(QuantizerData *q, DWORD rgb);

} // namespace ky::image
