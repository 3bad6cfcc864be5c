// Private records of the A-buffer rasteriser shared by its source files.
#pragma once

#include <windows.h>
#include "ky_abuffer.h"

namespace ky::ab {

constexpr LONG kOne = 16384;  // one pixel in 18.14
constexpr LONG kPolyCapacity = KY_ABUFFER_POOL_SIZE;

// A texture as the pixel callbacks read it: top row, step to the row below, size, type.
struct TexInfo {
  const BYTE *top;
  LONG rowStep;
  LONG width, height;
  LONG type;
  const RGBQUAD *colors;
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

// Temporary pixel access for the 32-bit and 24-bit RGB types until the pixel-exchange
// routines are used here.
LONG ClassifyHeader(const BITMAPINFOHEADER &h);
inline bool SupportedType(LONG t) { return t == 27 || t == 28 || t == 29; }

inline DWORD ReadTexel(const TexInfo &t, const BYTE *row, LONG x) {
  if (t.type == 27) {
    const BYTE *p = row + x * 3;
    return p[0] | (p[1] << 8) | (p[2] << 16) | 0xFF000000u;
  }
  return reinterpret_cast<const DWORD *>(row)[x];
}

}  // namespace ky::ab
