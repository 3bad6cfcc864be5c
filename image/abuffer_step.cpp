// CScanlineIntersect: one region's walk along its row. A region is the part of one polygon
// inside one destination row; its state for the current pixel is either "fully covered" or
// a list of edge pieces inside the pixel that combine even-odd into the coverage mask.
#include <math.h>
#include <string.h>

#include "abuffer_internal.h"

namespace ky::ab {

namespace {

// floor(a / b) for b > 0.
inline LONGLONG FloorDiv(LONGLONG a, LONGLONG b) {
  LONGLONG q = a / b;
  if ((a % b) != 0 && a < 0) --q;
  return q;
}

// x of the edge (ax, ay) -> (bx, by), ay < by, at height y (ay <= y <= by).
inline LONG XAtY(LONG ax, LONG ay, LONG bx, LONG by, LONG y) {
  if (y == ay) return ax;
  if (y == by) return bx;
  return ax + static_cast<LONG>(FloorDiv(static_cast<LONGLONG>(bx - ax) * (y - ay), by - ay));
}

// y of the segment at x (x between its ends, x0 != x1).
inline LONG YAtX(const tSCANEDGE &s, LONG x) {
  const LONGLONG num = static_cast<LONGLONG>(x - s.x0) * (s.y1 - s.y0);
  const LONGLONG den = s.x1 - s.x0;
  LONGLONG q = s.y0 + (den > 0 ? FloorDiv(num, den) : FloorDiv(-num, -den));
  if (q < s.y0) q = s.y0;
  if (q > s.y1) q = s.y1;
  return static_cast<LONG>(q);
}

inline void AddPiece(SCANLINESTEP *st, LONG x0, LONG y0, LONG x1, LONG y1) {
  if (y1 <= y0 || st->edgeCount >= KY_SCANSTEP_MAX_PIECES) return;
  tSCANEDGE &e = st->edges[st->edgeCount++];
  e.x0 = x0;
  e.y0 = y0;
  e.x1 = x1;
  e.y1 = y1;
}

// Vertical pieces at the pixel's left side for every run of sub-rows in `bits`.
inline void AddRuns(SCANLINESTEP *st, DWORD bits) {
  LONG r = 0;
  while (bits != 0 && r < 32) {
    if (!(bits & 1u)) {
      bits >>= 1;
      ++r;
      continue;
    }
    const LONG start = r;
    while (r < 32 && (bits & 1u)) {
      bits >>= 1;
      ++r;
    }
    AddPiece(st, 0, start * 512, 0, r * 512);
  }
}

inline DWORD SegRows(const tSCANEDGE &s) { return RowBits(s.y0 >> 9, s.y1 >> 9); }

// Brings the segment bookkeeping to column st->pixelX: segments wholly left of it go into
// the left parity; segments reaching into it become active.
void EnterColumn(SCANLINESTEP *st) {
  const LONG left = st->pixelX * kOne;
  const LONG right = left + kOne;
  LONG n = 0;
  for (LONG i = 0; i < st->activeCount; ++i) {
    const LONG s = st->active[i];
    if (st->segMaxX[s] <= left)
      st->leftParity ^= SegRows(st->seg[s]);
    else
      st->active[n++] = static_cast<BYTE>(s);
  }
  st->activeCount = n;
  while (st->nextSeg < st->segCount && st->segMinX[st->nextSeg] < right) {
    const LONG s = st->nextSeg++;
    if (st->segMaxX[s] <= left)
      st->leftParity ^= SegRows(st->seg[s]);
    else
      st->active[st->activeCount++] = static_cast<BYTE>(s);
  }
}

}  // namespace

int ClipEdgesToRow(const PolyRec &p, LONG row, tSCANEDGE *seg) {
  const LONG top = row * kOne;
  const LONG bottom = top + kOne;
  int n = 0;
  for (LONG i = 0; i < p.count && n < KY_SCANSTEP_MAX_SEGMENTS; ++i) {
    const LONG j = i + 1 == p.count ? 0 : i + 1;
    LONG ax = p.x[i], ay = p.y[i], bx = p.x[j], by = p.y[j];
    if (ay == by) continue;
    if (ay > by || (ay == by && ax > bx)) {
      LONG t = ax; ax = bx; bx = t;
      t = ay; ay = by; by = t;
    }
    if (by <= top || ay >= bottom) continue;
    const LONG y0 = ay > top ? ay : top;
    const LONG y1 = by < bottom ? by : bottom;
    if (y1 <= y0) continue;
    tSCANEDGE &s = seg[n++];
    s.x0 = XAtY(ax, ay, bx, by, y0);
    s.y0 = y0 - top;
    s.x1 = XAtY(ax, ay, bx, by, y1);
    s.y1 = y1 - top;
  }
  return n;
}

}  // namespace ky::ab

using namespace ky::ab;

// Prepares the walk of this region along `row`, starting at the column the caller put in
// step->pixelX: clips the polygon's edges to the row, sorts them by their left x and sets
// the current pixel's coverage and values for the render state.
void CScanlineIntersect::PreStep(SCANLINESTEP *step, LONG row, LONG state) {
  const PolyRec *p = static_cast<const PolyRec *>(m_poly);
  step->row = row;
  step->state = state;
  step->poly = p;
  step->full = 0;
  step->edgeCount = 0;
  step->nextSeg = 0;
  step->activeCount = 0;
  step->leftParity = 0;
  LONG end = (m_xMax + kOne - 1) / kOne;
  if (end > m_width) end = m_width;
  step->endX = end;
  tSCANEDGE seg[KY_SCANSTEP_MAX_SEGMENTS];
  const int n = p ? ClipEdgesToRow(*p, row, seg) : 0;
  // Insertion sort by left x (at most 16 segments).
  LONG cnt = 0;
  for (int i = 0; i < n; ++i) {
    const LONG mn = seg[i].x0 < seg[i].x1 ? seg[i].x0 : seg[i].x1;
    const LONG mx = seg[i].x0 < seg[i].x1 ? seg[i].x1 : seg[i].x0;
    LONG k = cnt++;
    while (k > 0 && step->segMinX[k - 1] > mn) {
      step->seg[k] = step->seg[k - 1];
      step->segMinX[k] = step->segMinX[k - 1];
      step->segMaxX[k] = step->segMaxX[k - 1];
      --k;
    }
    step->seg[k] = seg[i];
    step->segMinX[k] = mn;
    step->segMaxX[k] = mx;
  }
  step->segCount = cnt;
  EnterColumn(step);
  ClipToPixelBoundries(step);
  SetCurVal(step, step->pixelX + 0.5, state);
}

// Moves to the next pixel. `coverage` is what the resolve gave this region on the pixel it
// leaves: a fully covered pixel with no segment due in the next column stays full without
// looking at the segments again. Marks the record finished past the region's end.
void CScanlineIntersect::Step(SCANLINESTEP *step, LONG coverage, LONG state) {
  ++step->pixelX;
  if (step->pixelX >= step->endX) {
    reinterpret_cast<tKYABREGION *>(this)->finished = 1;
    return;
  }
  const LONG right = (step->pixelX + 1) * kOne;
  const bool nothingDue = step->activeCount == 0 &&
                          (step->nextSeg >= step->segCount || step->segMinX[step->nextSeg] >= right);
  if (!(coverage == 1024 && step->full && nothingDue)) {
    EnterColumn(step);
    ClipToPixelBoundries(step);
  }
  if (state == KY3DRS_TEXTURED) SetCurVal2(step, state);
}

// Splits the active segments at the current column's sides: the part left of the column
// becomes a vertical piece at the pixel's left side (it flips whole sub-rows), the part
// inside keeps its slope in pixel-local coordinates, the part right of it is dropped.
// With no segment inside, the left parity alone decides: full, empty or whole sub-rows.
void CScanlineIntersect::ClipToPixelBoundries(SCANLINESTEP *step) {
  step->edgeCount = 0;
  step->full = 0;
  if (step->activeCount == 0) {
    if (step->leftParity == 0xFFFFFFFFu) {
      step->full = 1;
      return;
    }
    AddRuns(step, step->leftParity);
    return;
  }
  AddRuns(step, step->leftParity);
  const LONG left = step->pixelX * kOne;
  const LONG right = left + kOne;
  for (LONG i = 0; i < step->activeCount; ++i) {
    const tSCANEDGE &s = step->seg[step->active[i]];
    if (s.x0 == s.x1) {
      AddPiece(step, s.x0 - left, s.y0, s.x1 - left, s.y1);
      continue;
    }
    if (s.x0 < s.x1) {
      // Runs to the right going down: left part, then inside, then right part.
      const LONG yl = s.x0 < left ? YAtX(s, left) : s.y0;
      const LONG yr = s.x1 > right ? YAtX(s, right) : s.y1;
      AddPiece(step, 0, s.y0, 0, yl);
      AddPiece(step, (s.x0 < left ? left : s.x0) - left, yl, (s.x1 > right ? right : s.x1) - left, yr);
    } else {
      // Runs to the left going down: right part, then inside, then left part.
      const LONG yr = s.x0 > right ? YAtX(s, right) : s.y0;
      const LONG yl = s.x1 < left ? YAtX(s, left) : s.y1;
      AddPiece(step, (s.x0 > right ? right : s.x0) - left, yr, (s.x1 < left ? left : s.x1) - left, yl);
      AddPiece(step, 0, yl, 0, s.y1);
    }
  }
}

// Sets the current values for the pixel centred at x (pixels). State 2 takes the polygon's
// colour as it stands; state 3 evaluates the polygon's planes at (x, row centre) and keeps
// their change per pixel for SetCurVal2.
void CScanlineIntersect::SetCurVal(SCANLINESTEP *step, double x, LONG state) {
  const PolyRec *p = static_cast<const PolyRec *>(step->poly);
  if (!p) return;
  if (state != KY3DRS_TEXTURED) {
    step->color = p->color;
    return;
  }
  const double px = x - p->ox;
  const double py = step->row + 0.5 - p->oy;
  for (int k = 0; k < 4; ++k) {
    step->cur[k] = static_cast<float>(p->plane[k][0] * px + p->plane[k][1] * py + p->plane[k][2]);
    step->dx[k] = static_cast<float>(p->plane[k][0]);
  }
}

// Advances the current values by one pixel to the right (state 3; state 2 keeps its colour).
void CScanlineIntersect::SetCurVal2(SCANLINESTEP *step, LONG state) {
  if (state != KY3DRS_TEXTURED) return;
  // Re-evaluated from the planes every 32 pixels so that the sums do not drift.
  if ((step->pixelX & 31) == 0) {
    SetCurVal(step, step->pixelX + 0.5, state);
    return;
  }
  for (int k = 0; k < 4; ++k) step->cur[k] += step->dx[k];
}
