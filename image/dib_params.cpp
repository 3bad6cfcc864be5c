// Rectangle-pair clipping and the prepared source/destination records of the image
// operations: generic (integer rectangles, may scale), sub-pixel (18.14 rectangles) and
// plug-in (same size and type).
#include <string.h>
#include "ky_internal.h"
#include "pixel_private.h"

namespace ky::image {

namespace {

constexpr LONG kOne = 16384;  // 1.0 in 18.14 fixed point

inline LONG Width(const RECT &r) { return r.right - r.left; }
inline LONG Height(const RECT &r) { return r.bottom - r.top; }
inline bool IsEmpty(const RECT &r) { return Width(r) < 1 || Height(r) < 1; }

inline RECT WholeBitmap(const BITMAPINFOHEADER *h) {
  RECT r = {0, 0, 0, 0};
  if (h) {
    r.right = h->biWidth;
    r.bottom = h->biHeight;
  }
  return r;
}

inline RECT Intersect(const RECT &a, const RECT &b) {
  RECT r = {a.left > b.left ? a.left : b.left, a.top > b.top ? a.top : b.top,
            a.right < b.right ? a.right : b.right, a.bottom < b.bottom ? a.bottom : b.bottom};
  return r;
}

// A header the records can describe: a known type and a positive, bottom-up size.
inline LONG UsableType(const BITMAPINFOHEADER *h) {
  if (!h || h->biWidth <= 0 || h->biHeight <= 0) return 0;
  const LONG type = KyGetPixelType(h);
  return IsKnownType(type) ? type : 0;
}

inline BYTE *Pixels(const BITMAPINFOHEADER *h, const void *given) {
  if (given) return static_cast<BYTE *>(const_cast<void *>(given));
  return reinterpret_cast<BYTE *>(const_cast<BITMAPINFOHEADER *>(h)) + PixelOffset(h);
}

inline LONG Stride(const BITMAPINFOHEADER *h, LONG given) {
  return given ? given : LONG(DefaultStride(h));
}

// First byte and bit offset of a rectangle's bottom-left pixel in a bottom-up bitmap.
inline BYTE *FirstByte(const BITMAPINFOHEADER *h, BYTE *pixels, LONG stride, const RECT &r,
                       LONG bpp, LONG *bitOffset) {
  const LONGLONG bits = LONGLONG(bpp) * r.left;
  *bitOffset = LONG(bits % 8);
  return pixels + LONGLONG(h->biHeight - r.bottom) * stride + bits / 8;
}

inline LONG TypeBits(LONG type) { return TypeInfo(type).bitCount; }

// One half (destination or source) of a generic or plug-in record, as references to its
// fields: the two records order the halves' other fields differently and the source half is
// const, but these they fill alike.
template <class Header, class Bytes, class First>
struct RecordHalf {
  Header *&header;
  Bytes *&pixels;
  First *&first;
  LONG &bitOffset, &width, &height, &stride;

  // The bitmap's pixels (after the header when none are given), its stride (the default when
  // 0 is given), the byte and bit of the rectangle's bottom-left pixel and the rectangle's size.
  void Fill(Header *h, const void *givenPixels, LONG givenStride, const RECT &r, LONG bpp) {
    BYTE *bytes = Pixels(h, givenPixels);
    header = h;
    pixels = bytes;
    stride = Stride(h, givenStride);
    first = FirstByte(h, bytes, stride, r, bpp, &bitOffset);
    width = Width(r);
    height = Height(r);
  }
};

// Gives a record a quantizer for a palette destination; false (record zeroed) when that
// fails. Other destinations need none.
template <class Record>
bool AttachQuantizer(Record *p, LONG dstType, const BITMAPINFOHEADER *dstHeader) {
  if (dstType != KYPT_RGB4 && dstType != KYPT_RGB8) return true;
  p->quantizer = KyDibCreateColorQuantizer(dstHeader);
  if (p->quantizer) return true;
  memset(p, 0, sizeof *p);
  return false;
}

template <class Record>
void ReleaseQuantizer(Record *p) {
  if (!p) return;
  KyDibDestroyColorQuantizer(p->quantizer);
  p->quantizer = nullptr;
}

} // namespace

} // namespace ky::image

using namespace ky::image;

extern "C" LONG WINAPI KyDibClipRectPair(RECT *a, const RECT *bounds, RECT *b) {
  if (!a || !bounds || !b) return 0;
  const RECT k = *bounds;
  if (a->left >= k.left && a->top >= k.top && a->right <= k.right && a->bottom <= k.bottom)
    return 1;
  if (a->right <= k.left || a->left >= k.right || a->bottom <= k.top || a->top >= k.bottom) {
    SetRectEmpty(a);
    SetRectEmpty(b);
    return 0;
  }
  // The cuts are scaled by the partner's extent over the bounds' extent (not a's). Callers
  // compare their results against exactly this arithmetic.
  const LONG boundsWidth = Width(k);
  if (boundsWidth > 0) {
    const LONG leftCut = k.left - a->left > 0 ? k.left - a->left : 0;
    const LONG rightCut = a->right - k.right > 0 ? a->right - k.right : 0;
    const LONGLONG bw = Width(*b);
    b->left += LONG(bw * leftCut / boundsWidth);
    b->right -= LONG(bw * rightCut / boundsWidth);
    a->left += leftCut;
    a->right -= rightCut;
  }
  const LONG boundsHeight = Height(k);
  if (boundsHeight != 0) {
    const LONG topCut = k.top - a->top > 0 ? k.top - a->top : 0;
    const LONG bottomCut = a->bottom - k.bottom > 0 ? a->bottom - k.bottom : 0;
    const LONGLONG bh = Height(*b);
    b->top += LONG(bh * topCut / boundsHeight);
    b->bottom -= LONG(bh * bottomCut / boundsHeight);
    a->top += topCut;
    a->bottom -= bottomCut;
  }
  return 1;
}

extern "C" void WINAPI KyDibPrepareRects(const BITMAPINFOHEADER *dstHeader, RECT *dstRectOut,
                                         const RECT *dstRectIn,
                                         const BITMAPINFOHEADER *srcHeader, RECT *srcRectOut,
                                         const RECT *srcRectIn, LONG *clipDeltas) {
  const RECT dstBounds = WholeBitmap(dstHeader), srcBounds = WholeBitmap(srcHeader);
  RECT d = dstRectIn ? *dstRectIn : dstBounds;
  RECT s = srcRectIn ? *srcRectIn : srcBounds;
  const RECT old = s;
  KyDibClipRectPair(&s, &srcBounds, &d);
  KyDibClipRectPair(&d, &dstBounds, &s);
  LONG deltas[4] = {s.left - old.left, s.top - old.top, old.right - s.right,
                    old.bottom - s.bottom};
  // A rectangle the caller did not give is never clipped.
  if (!srcRectIn) {
    s = srcBounds;
    memset(deltas, 0, sizeof deltas);
  }
  if (!dstRectIn) d = dstBounds;
  if (dstRectOut) *dstRectOut = d;
  if (srcRectOut) *srcRectOut = s;
  if (clipDeltas) memcpy(clipDeltas, deltas, sizeof deltas);
}

extern "C" LONG WINAPI KyDibPrepareGenericParams(tKYDIBGENERICPARAMS *p,
                                                 BITMAPINFOHEADER *dstHeader, void *dstPixels,
                                                 const RECT *dstRect, LONG dstStride,
                                                 const BITMAPINFOHEADER *srcHeader,
                                                 const void *srcPixels, const RECT *srcRect,
                                                 LONG srcStride, DWORD flags) {
  if (!p) return 0;
  memset(p, 0, sizeof *p);
  const LONG srcType = UsableType(srcHeader);
  if (!srcType) return 0;
  RECT d, s;
  KyDibPrepareRects(dstHeader, &d, dstRect, srcHeader, &s, srcRect, &p->clipLeft);
  if (IsEmpty(s)) {
    memset(p, 0, sizeof *p);
    return 0;
  }
  const LONG dstType = UsableType(dstHeader);
  if (!dstType || IsEmpty(d)) {
    memset(p, 0, sizeof *p);
    return 0;
  }
  if (!AttachQuantizer(p, dstType, dstHeader)) return 0;
  const LONG sw = Width(s), sh = Height(s), dw = Width(d), dh = Height(d);
  p->scaled = (sw != dw || sh != dh) ? 1 : 0;
  p->srcX = 0;
  p->srcY = 0;
  if (!p->scaled) {
    p->xStep = kOne;
    p->yStep = kOne;
  } else {
    // The end pixels of both rows map onto each other.
    p->xStep = dw > 1 ? LONG((LONGLONG(sw) * kOne - kOne) / (dw - 1)) : LONG(sw * kOne - kOne);
    p->yStep = dh > 1 ? LONG((LONGLONG(sh) * kOne - kOne) / (dh - 1)) : LONG(sh * kOne - kOne);
  }
  RecordHalf{p->dstHeader, p->dstPixels, p->dstFirst, p->dstBitOffset, p->dstWidth,
             p->dstHeight, p->dstStride}
      .Fill(dstHeader, dstPixels, dstStride, d, TypeBits(dstType));
  p->dstRect = d;
  p->dstColors = RecordColors(dstHeader);
  RecordHalf{p->srcHeader, p->srcPixels, p->srcFirst, p->srcBitOffset, p->srcWidth,
             p->srcHeight, p->srcStride}
      .Fill(srcHeader, srcPixels, srcStride, s, TypeBits(srcType));
  p->srcRect = s;
  p->srcColors = RecordColors(srcHeader);
  p->flags = flags;
  return 1;
}

extern "C" void WINAPI KyDibCleanupGenericParams(tKYDIBGENERICPARAMS *p) { ReleaseQuantizer(p); }

extern "C" LONG WINAPI DibPrepareSubpixelParam(tKYDIBSUBPIXELPARAMS *p,
                                               BITMAPINFOHEADER *dstHeader, void *dstPixels,
                                               const RECT *dstRect, LONG dstStride,
                                               const BITMAPINFOHEADER *srcHeader,
                                               const void *srcPixels, const RECT *srcRect,
                                               LONG srcStride, DWORD flags) {
  if (!p) return 0;
  memset(p, 0, sizeof *p);
  const LONG dstType = UsableType(dstHeader), srcType = UsableType(srcHeader);
  if (!dstType || !srcType) return 0;
  // Fixed-point bounds; bitmaps wider or higher than 131071 pixels do not fit 18.14.
  if (dstHeader->biWidth > 0x1FFFF || dstHeader->biHeight > 0x1FFFF ||
      srcHeader->biWidth > 0x1FFFF || srcHeader->biHeight > 0x1FFFF)
    return 0;
  const RECT dstBounds = {0, 0, dstHeader->biWidth * kOne, dstHeader->biHeight * kOne};
  const RECT srcBounds = {0, 0, srcHeader->biWidth * kOne, srcHeader->biHeight * kOne};
  const RECT dstGiven = dstRect ? *dstRect : dstBounds;
  const RECT srcGiven = srcRect ? *srcRect : srcBounds;

  const RECT srcClipped = Intersect(srcGiven, srcBounds);
  if (Width(srcClipped) < kOne || Height(srcClipped) < kOne || Width(dstGiven) < kOne ||
      Height(dstGiven) < kOne)
    return 0;
  const LONGLONG xScale = LONGLONG(Width(srcClipped)) * kOne / Width(dstGiven);
  const LONGLONG yScale = LONGLONG(Height(srcClipped)) * kOne / Height(dstGiven);
  if (xScale <= 0 || yScale <= 0 || xScale > 0x7FFFFFFF || yScale > 0x7FFFFFFF) return 0;
  const RECT dstClipped = Intersect(dstGiven, dstBounds);
  if (Width(dstClipped) < kOne || Height(dstClipped) < kOne) return 0;

  // The clipped source in destination space, cut to the clipped destination, and back.
  auto toDst = [](LONG c, LONG srcOrigin, LONGLONG scale, LONG dstOrigin) {
    return LONG(((LONGLONG(c) - srcOrigin) << 14) / scale + dstOrigin);
  };
  auto toSrc = [](LONG c, LONG dstOrigin, LONGLONG scale, LONG srcOrigin) {
    return LONG((((LONGLONG(c) - dstOrigin) * scale) >> 14) + srcOrigin);
  };
  RECT mapped = {toDst(srcClipped.left, srcClipped.left, xScale, dstGiven.left),
                 toDst(srcClipped.top, srcClipped.top, yScale, dstGiven.top),
                 toDst(srcClipped.right, srcClipped.left, xScale, dstGiven.left),
                 toDst(srcClipped.bottom, srcClipped.top, yScale, dstGiven.top)};
  mapped = Intersect(mapped, dstClipped);
  RECT used = {toSrc(mapped.left, dstGiven.left, xScale, srcClipped.left),
               toSrc(mapped.top, dstGiven.top, yScale, srcClipped.top),
               toSrc(mapped.right, dstGiven.left, xScale, srcClipped.left),
               toSrc(mapped.bottom, dstGiven.top, yScale, srcClipped.top)};
  used = Intersect(used, srcClipped);

  const LONG dStride = Stride(dstHeader, dstStride), sStride = Stride(srcHeader, srcStride);
  p->dstHeader = dstHeader;
  p->dstLastRow = Pixels(dstHeader, dstPixels) + LONGLONG(dstHeader->biHeight - 1) * dStride;
  p->dstRowStep = -dStride;
  p->dstColors = RecordColors(dstHeader);
  p->dstClipped = dstClipped;
  p->dstGiven = dstGiven;
  p->srcHeader = srcHeader;
  p->srcLastRow = Pixels(srcHeader, srcPixels) + LONGLONG(srcHeader->biHeight - 1) * sStride;
  p->srcRowStep = -sStride;
  p->srcColors = RecordColors(srcHeader);
  p->srcUsed = used;
  p->srcClipped = srcClipped;
  if (Width(dstClipped) >= 2 * kOne)
    p->xStep = LONG((LONGLONG(Width(used)) - kOne) * kOne / (Width(dstClipped) - kOne));
  if (Height(dstClipped) >= 2 * kOne)
    p->yStep = LONG((LONGLONG(Height(used)) - kOne) * kOne / (Height(dstClipped) - kOne));
  p->xScale = LONG(xScale);
  p->yScale = LONG(yScale);
  p->flags = flags;
  return AttachQuantizer(p, dstType, dstHeader) ? 1 : 0;
}

extern "C" void WINAPI DibCleanupSubpixelParam(tKYDIBSUBPIXELPARAMS *p) { ReleaseQuantizer(p); }

extern "C" HRESULT WINAPI DibPreparePluginParam(tKYDIBPLUGINPARAMS *p,
                                                BITMAPINFOHEADER *dstHeader, void *dstPixels,
                                                const RECT *dstRect, LONG dstStride,
                                                const BITMAPINFOHEADER *srcHeader,
                                                const void *srcPixels, const RECT *srcRect,
                                                LONG srcStride, void *context, LONG *isFloat,
                                                LONG *isEmpty) {
  if (!dstHeader || !srcHeader || !p) return E_POINTER;
  if (isFloat) *isFloat = 0;
  if (isEmpty) *isEmpty = 0;
  memset(p, 0, sizeof *p);
  const LONG dstType = UsableType(dstHeader), srcType = UsableType(srcHeader);
  if (dstType != srcType) return E_INVALIDARG;
  if (dstType == KYPT_RGB32 || dstType == KYPT_RGBA32) {
    if (isFloat) *isFloat = 0;
  } else if (dstType == KYPT_RGBAFLOAT) {
    if (isFloat) *isFloat = 1;
  } else {
    return E_INVALIDARG;
  }
  RECT d, s;
  LONG deltas[4];
  KyDibPrepareRects(dstHeader, &d, dstRect, srcHeader, &s, srcRect, deltas);
  if (IsEmpty(d) || IsEmpty(s)) {
    if (isEmpty) *isEmpty = 1;
    return S_OK;
  }
  if (Width(d) != Width(s) || Height(d) != Height(s)) return E_INVALIDARG;
  const LONG bpp = TypeBits(dstType);
  RecordHalf{p->dstHeader, p->dstPixels, p->dstFirst, p->dstBitOffset, p->dstWidth,
             p->dstHeight, p->dstStride}
      .Fill(dstHeader, dstPixels, dstStride, d, bpp);
  p->dstRectRef = dstRect;  // the caller's rectangle (or null), never this call's storage
  RecordHalf{p->srcHeader, p->srcPixels, p->srcFirst, p->srcBitOffset, p->srcWidth,
             p->srcHeight, p->srcStride}
      .Fill(srcHeader, srcPixels, srcStride, s, bpp);
  p->srcRectRef = srcRect;
  memcpy(&p->clipLeft, deltas, sizeof deltas);
  p->context = context;
  return S_OK;
}
