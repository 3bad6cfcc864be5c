// Colour quantizer: maps 32-bit colour to the nearest entry of a destination palette, with
// a lock-free cache of recent answers in front of the linear search.
#include <string.h>
#include "ky_internal.h"
#include "pixel_private.h"

namespace ky::image {

namespace {

inline DWORD CacheSlot(DWORD rgb) { return (rgb * 2654435761u) >> 20; }  // 12 bits

inline DWORD QuadToRgb(const RGBQUAD &q) {
  return (DWORD(q.rgbRed) << 16) | (DWORD(q.rgbGreen) << 8) | q.rgbBlue;
}

BYTE SearchNearest(const QuantizerData *q, DWORD rgb) {
  const LONG r = (rgb >> 16) & 0xFF, g = (rgb >> 8) & 0xFF, b = rgb & 0xFF;
  LONG best = 0, bestDist = 0x7FFFFFFF;
  for (LONG i = 0; i < q->count; ++i) {
    const RGBQUAD &p = q->palette[i];
    const LONG dr = r - p.rgbRed, dg = g - p.rgbGreen, db = b - p.rgbBlue;
    const LONG d = dr * dr + dg * dg + db * db;
    if (d < bestDist) {
      bestDist = d;
      best = i;
      if (d == 0) break;
    }
  }
  return BYTE(best);
}

} // namespace

QuantizerData *LockQuantizer(HGLOBAL q) {
  if (!q) return nullptr;
  auto *d = static_cast<QuantizerData *>(GlobalLock(q));
  if (d && d->magic != kQuantizerMagic) {
    GlobalUnlock(q);
    return nullptr;
  }
  return d;
}

BYTE QuantizeNearest(QuantizerData *q, DWORD rgb) {
  rgb &= 0xFFFFFF;
  const DWORD slot = CacheSlot(rgb);
  const DWORD entry = DWORD(q->cache[slot]);
  if ((entry >> 8) == rgb) return BYTE(entry);
  const BYTE index = SearchNearest(q, rgb);
  q->cache[slot] = LONG((rgb << 8) | index);
  return index;
}

} // namespace ky::image

using namespace ky::image;

extern "C" HGLOBAL WINAPI KyDibCreateColorQuantizer(const BITMAPINFOHEADER *h) {
  if (!h || h->biBitCount < 1 || h->biBitCount > 8 || h->biSize < sizeof(BITMAPINFOHEADER))
    return nullptr;
  const LONG implied = 1 << h->biBitCount;
  LONG count = h->biClrUsed ? LONG(h->biClrUsed) : implied;
  if (h->biClrUsed > DWORD(implied)) count = implied;
  HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(QuantizerData));
  if (!mem) return nullptr;
  auto *d = static_cast<QuantizerData *>(GlobalLock(mem));
  if (!d) {
    GlobalFree(mem);
    return nullptr;
  }
  d->magic = kQuantizerMagic;
  d->count = count;
  memcpy(d->palette, reinterpret_cast<const BYTE *>(h) + h->biSize, size_t(count) * 4);
  // Every slot starts with a colour that cannot hash to it, so the first lookup misses.
  for (DWORD s = 0; s < 4096; ++s) {
    DWORD c = CacheSlot(0) == s ? 1 : 0;
    d->cache[s] = LONG(c << 8);
  }
  GlobalUnlock(mem);
  return mem;
}

extern "C" LONG WINAPI KyDibQuantizeColor(HGLOBAL q, DWORD rgb) {
  QuantizerData *d = LockQuantizer(q);
  if (!d) return 0;
  const LONG index = QuantizeNearest(d, rgb);
  GlobalUnlock(q);
  return index;
}

extern "C" HRESULT WINAPI KyDibQuantizePalette(HGLOBAL q, const RGBQUAD *colours, BYTE *indexes,
                                               LONG count) {
  if (!colours || !indexes) return E_POINTER;
  QuantizerData *d = LockQuantizer(q);
  if (!d) return E_INVALIDARG;
  for (LONG i = 0; i < count; ++i) indexes[i] = QuantizeNearest(d, QuadToRgb(colours[i]));
  GlobalUnlock(q);
  return S_OK;
}

extern "C" void WINAPI KyDibDestroyColorQuantizer(HGLOBAL q) {
  if (q) GlobalFree(q);
}
