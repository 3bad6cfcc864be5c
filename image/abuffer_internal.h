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

// True when `bytes` bytes at p are committed, readable memory.
bool Readable(const void *p, SIZE_T bytes);

}  // namespace ky::ab
