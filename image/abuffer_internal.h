// Private records of the A-buffer rasteriser shared by its source files.
#pragma once

#include <windows.h>
#include "ky_abuffer.h"
#include "ky_video.h"

namespace ky::ab {

constexpr LONG kOne = 16384;  // one pixel in 18.14
constexpr LONG kPolyCapacity = KY_ABUFFER_POOL_SIZE;
constexpr LONG kRowChunk = 2048;  // destination pixels the resolve converts at a time

// A texture as the pixel callbacks read it: top row, step to the row below, size, type.
struct TexInfo {
  const BYTE *top;
  LONG rowStep;
  LONG width, height;
  LONG type;
  const RGBQUAD *colors;         // colour table of a palettised texture
  LONG direct;                   // stored like the 8-bit working form
  tKYDIBXCHGPARAMS *xchg;        // the frame's texture record (its srcColors set)
};

// A polygon in the frame's store: vertices in 18.14 (offsets applied), its shading, and for
// the textured state the planes of q = rhw, u*q, v*q and shade*q over pixel coordinates,
// relative to an origin near the polygon (keeps the doubles' precision).
struct PolyRec {
  LONG count;
  LONG x[KY3D_MAX_POLY_VERTICES];
  LONG y[KY3D_MAX_POLY_VERTICES];
  LONG state;
  tKYPIXEL32 color;  // flat colour with the shade applied
  const TexInfo *tex;
  double ox, oy;
  double plane[4][3];  // a, b, c of a * (x - ox) + b * (y - oy) + c
};

// Clips the polygon's edges to row `row` (band [row, row + 1) pixels): fills up to 16
// segments running downwards, y row-local. Horizontal edges give none. The arithmetic only
// depends on an edge's end points in their top-to-bottom order, so an edge shared by two
// polygons gives both the same segment whatever their winding.
int ClipEdgesToRow(const PolyRec &p, LONG row, tSCANEDGE *seg);

// Bits [r0, r1) of a sub-row set (bit r = sub-row r).
inline DWORD RowBits(LONG r0, LONG r1) {
  if (r0 >= 32 || r1 <= r0) return 0;
  const DWORD hi = r1 >= 32 ? 0xFFFFFFFFu : ((1u << r1) - 1u);
  return hi & ~((1u << r0) - 1u);
}

// A texel in the 8-bit working form: read straight from memory when the texture's type is
// stored like the working form (the exchange routines' direct path), else converted by the
// texture record's pixel reader.
inline DWORD ReadTexel(const TexInfo &t, const BYTE *row, LONG x) {
  if (t.direct) return reinterpret_cast<const DWORD *>(row)[x];
  DWORD out = 0;
  t.xchg->srcColors = t.colors;
  t.xchg->readPixel(t.xchg, row, 0, x, &out);
  return out;
}

inline float ClampUnit(float s) {
  if (!(s > 0.0f)) return 0.0f;  // also NaN
  return s > 1.0f ? 1.0f : s;
}

// Colour of a textured region's current pixel: bilinear sample at the perspective-correct u, v of
// the pixel centre (clamped to the texture's edges), times the interpolated shade.
inline void TexturedColor(const SCANLINESTEP &st, tKYPIXEL32 *pixel) {
  const PolyRec *p = static_cast<const PolyRec *>(st.poly);
  const TexInfo &t = *p->tex;
  float q = st.cur[0];
  if (!(q > 1e-12f)) q = 1e-12f;
  const float inv = 1.0f / q;
  // Texel position in 24.8 fixed point (texel centres at .5), clamped to the texture.
  const float fx = st.cur[1] * inv * static_cast<float>(t.width * 256) - 128.0f;
  const float fy = st.cur[2] * inv * static_cast<float>(t.height * 256) - 128.0f;
  const LONG maxX = (t.width - 1) * 256, maxY = (t.height - 1) * 256;
  const LONG sx = !(fx > 0.0f) ? 0 : (fx >= static_cast<float>(maxX) ? maxX : static_cast<LONG>(fx));
  const LONG sy = !(fy > 0.0f) ? 0 : (fy >= static_cast<float>(maxY) ? maxY : static_cast<LONG>(fy));
  const LONG s = static_cast<LONG>(ClampUnit(st.cur[3] * inv) * 256.0f + 0.5f);
  const LONG ix = sx >> 8, iy = sy >> 8, wx = sx & 255, wy = sy & 255;
  const LONG ix1 = ix + 1 < t.width ? ix + 1 : ix;
  const BYTE *r0 = t.top + static_cast<LONG_PTR>(iy) * t.rowStep;
  const BYTE *r1 = iy + 1 < t.height ? r0 + t.rowStep : r0;
  const DWORD a = ReadTexel(t, r0, ix), b = ReadTexel(t, r0, ix1);
  const DWORD c = ReadTexel(t, r1, ix), d = ReadTexel(t, r1, ix1);
  // Two channels at a time: blue and red in the even bytes, green and alpha in the odd.
  auto lerp = [](DWORD u, DWORD v, DWORD w) {
    const DWORD ue = u & 0x00FF00FFu, uo = (u >> 8) & 0x00FF00FFu;
    const DWORD ve = v & 0x00FF00FFu, vo = (v >> 8) & 0x00FF00FFu;
    const DWORD e = ((ue * (256 - w) + ve * w + 0x00800080u) >> 8) & 0x00FF00FFu;
    const DWORD o = ((uo * (256 - w) + vo * w + 0x00800080u) >> 8) & 0x00FF00FFu;
    return e | (o << 8);
  };
  const DWORD v = lerp(lerp(a, b, wx), lerp(c, d, wx), wy);
  pixel->blue = static_cast<BYTE>(((v & 255) * s + 128) >> 8);
  pixel->green = static_cast<BYTE>((((v >> 8) & 255) * s + 128) >> 8);
  pixel->red = static_cast<BYTE>((((v >> 16) & 255) * s + 128) >> 8);
  pixel->alpha = static_cast<BYTE>(v >> 24);
}

// The pixel callback of flat regions: the polygon's colour. The resolve compares callbacks
// with it to repeat the colours of pixels that look alike.
void KYAPI FlatPixel(tACTIVEREGIONLIST *entry, tKYPIXEL32 *pixel, tA_BUFFER_PARAM *param);

// The pixel callback of textured regions: TexturedColor of the entry's step. The resolve
// compares callbacks with it to fetch the colours of a run in place.
void KYAPI TexturedPixel(tACTIVEREGIONLIST *entry, tKYPIXEL32 *pixel, tA_BUFFER_PARAM *param);

// True when `bytes` bytes at p are committed, readable memory.
bool Readable(const void *p, SIZE_T bytes);

}  // namespace ky::ab
