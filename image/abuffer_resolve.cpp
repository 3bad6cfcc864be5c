// The resolve: walks one destination row pixel by pixel over the regions that touch it,
// hides sub-pixels front to back inside each pixel and blends the result into the row.
#include <string.h>

#include "abuffer_internal.h"

using namespace ky::ab;

namespace {

// Accumulated colour of one pixel: channel sums in 1/1024 units (colour x coverage), so
// that regions meeting inside a pixel add up without truncation: two halves of the same
// colour give that colour exactly.
struct PixelSum {
  DWORD b, g, r, a;
  LONG total;
};

// Blends the pixel's average colour into a working-form destination pixel with weight `w`
// (0..1024): every channel, alpha included, moves from the destination towards the colour.
inline void BlendInto(BYTE *d, const PixelSum &s, LONG w) {
  const int bytes = 4;
  const LONG n = s.total > 1024 ? 1024 : s.total;
  DWORD c[4];
  if (n == 1024) {
    c[0] = (s.b + 512) >> 10;
    c[1] = (s.g + 512) >> 10;
    c[2] = (s.r + 512) >> 10;
    c[3] = (s.a + 512) >> 10;
  } else {
    const ULONGLONG inv = ((1u << 24) + n / 2) / n;
    c[0] = static_cast<DWORD>((s.b * inv + (1u << 23)) >> 24);
    c[1] = static_cast<DWORD>((s.g * inv + (1u << 23)) >> 24);
    c[2] = static_cast<DWORD>((s.r * inv + (1u << 23)) >> 24);
    c[3] = static_cast<DWORD>((s.a * inv + (1u << 23)) >> 24);
  }
  if (w >= 1024) {
    for (int k = 0; k < bytes; ++k) d[k] = static_cast<BYTE>(c[k] > 255 ? 255 : c[k]);
    return;
  }
  const LONG keep = 1024 - w;
  for (int k = 0; k < bytes; ++k) {
    const LONG v = (static_cast<LONG>(c[k] > 255 ? 255 : c[k]) * w + d[k] * keep + 512) >> 10;
    d[k] = static_cast<BYTE>(v);
  }
}

// The destination row seen through the exchange record in chunks of working-form pixels:
// a chunk is read when the walk first writes into it and written back (only the written
// span) when the walk leaves it or the row ends. On the exchange's direct path the working
// pixels are the row itself and nothing is copied.
class RowWriter {
public:
  // `limit`: the walk is not expected to write at or right of this column, so chunks end
  // there (a pixel beyond it still gets a chunk of its own).
  RowWriter(tKYDIBXCHGPARAMS *x, BYTE *row, LONG bits, LONG width, LONG limit, tKYPIXEL32 *buffer)
      : x_(x), row_(row), bits_(bits), width_(width), limit_(limit), buffer_(buffer) {}
  ~RowWriter() { Flush(); }
  RowWriter(const RowWriter &) = delete;
  RowWriter &operator=(const RowWriter &) = delete;

  BYTE *Pixel(LONG col) {
    if (col < start_ || col >= start_ + count_) Load(col);
    if (col < lo_) lo_ = col;
    if (col > hi_) hi_ = col;
    return reinterpret_cast<BYTE *>(&work_[col - start_]);
  }

  // The working pixels of columns [col, end) in one piece, marked as written, or null when
  // they do not fit in one chunk (the caller then goes pixel by pixel).
  tKYPIXEL32 *Span(LONG col, LONG end) {
    if (col < start_ || col >= start_ + count_) Load(col);
    if (end > start_ + count_) return nullptr;
    if (col < lo_) lo_ = col;
    if (end - 1 > hi_) hi_ = end - 1;
    return &work_[col - start_];
  }

private:
  BYTE *At(LONG col) const { return row_ + (static_cast<LONGLONG>(bits_) * col) / 8; }
  LONG Bit(LONG col) const { return static_cast<LONG>((static_cast<LONGLONG>(bits_) * col) % 8); }
  void Load(LONG col) {
    Flush();
    start_ = col;
    const LONG end = col < limit_ ? limit_ : width_;
    count_ = end - col < kRowChunk ? end - col : kRowChunk;
    work_ = static_cast<tKYPIXEL32 *>(x_->readRow(x_, At(col), Bit(col), buffer_, count_));
    lo_ = 0x7FFFFFFF;
    hi_ = -1;
  }
  void Flush() {
    if (count_ > 0 && hi_ >= lo_)
      x_->writeRow(x_, At(lo_), Bit(lo_), work_ + (lo_ - start_), hi_ - lo_ + 1);
    count_ = 0;
  }

  tKYDIBXCHGPARAMS *x_;
  BYTE *row_;
  LONG bits_, width_, limit_;
  tKYPIXEL32 *buffer_;
  tKYPIXEL32 *work_ = nullptr;
  LONG start_ = 0, count_ = 0, lo_ = 0x7FFFFFFF, hi_ = -1;
};

// After `e` has stepped: takes it out of the active list when its region is finished (and
// frees its slot), else makes it the new `prev`. Returns the entry after it.
inline tACTIVEREGIONLIST *Advance(tACTIVEREGIONLIST *e, tACTIVEREGIONLIST *&prev,
                                  tACTIVEREGIONLIST *&head, tACTIVEREGIONLIST *&tail) {
  tACTIVEREGIONLIST *next = e->next;
  if (e->region->finished) {
    if (prev)
      prev->next = next;
    else
      head = next;
    if (tail == e) tail = prev;
    e->inUse = 0;
  } else {
    prev = e;
  }
  return next;
}

}  // namespace

// Resolves one row (see EndFrame): regions are activated in order of start x as the walk
// reaches them, each pixel gathers the colours of the active regions weighted by the
// sub-pixels each one adds to what earlier regions already cover (a fully covering region
// replaces the colour gathered before it), and the pixel writer blends the sum into the
// destination with the coverage weight and the frame's opacity.
// A region starting in the last column or further ends the activation of the row; a region
// that finds the 256-slot ring full (256 regions overlapping at once) is left out.
void A_Buffer::DrawScanLine(LONG row) {
  if (row < 0 || row >= m_height || row >= KY_ABUFFER_MAX_ROWS || !m_ring || !m_inFrame) return;
  tKYABREGION *rec = m_rows[row];
  if (!rec) return;
  // No region reaches past the end of its last pixel: the row is converted only that far.
  LONG limit = 0;
  for (const tKYABREGION *r = rec; r; r = r->next) {
    const LONGLONG end = (static_cast<LONGLONG>(r->isect.m_xMax) + kOne - 1) / kOne;
    if (end >= m_width) {
      limit = m_width;
      break;
    }
    if (end > limit) limit = static_cast<LONG>(end);
  }
  RowWriter out(&m_xchg[1], m_dstTopRow + static_cast<LONG_PTR>(row) * m_dstRowStep,
                m_param.dstHeader.biBitCount, m_width, limit, m_rowChunk);
  const LONG lastStart = (m_width - 1) * kOne;
  tACTIVEREGIONLIST *head = nullptr, *tail = nullptr;
  SUBPIXELMASK covered;
  LONG rb = (rec->startX / kOne + 1) * kOne;
  for (;;) {
    // 1. Activation of every region that starts before the current right boundary.
    while (rec && rec->startX < rb) {
      if (rec->startX >= lastStart) {
        rec = nullptr;
        break;
      }
      tACTIVEREGIONLIST *slot = &m_ring[m_ringCount % KY_ABUFFER_RING_SIZE];
      if (slot->inUse) {
        rec = rec->next;
        continue;
      }
      ++m_ringCount;
      slot->inUse = 1;
      slot->region = rec;
      slot->proc = rec->isect.m_proc;
      slot->next = nullptr;
      rec->finished = 0;
      slot->step.pixelX = rb / kOne - 1;
      rec->isect.PreStep(&slot->step, row, rec->isect.m_state);
      if (tail)
        tail->next = slot;
      else
        head = slot;
      tail = slot;
      rec = rec->next;
    }
    if (!head) {
      if (!rec) break;
      // 4. Nothing active: move straight to the next region's pixel.
      rb = (rec->startX / kOne + 1) * kOne;
      continue;
    }
    // A single active region that covers this pixel wholly and keeps doing so until its
    // next edge or the next region's start: the pixels of that run are written without the
    // per-pixel gathering (same result: one full region, weight 1024 times the opacity).
    if (!head->next && head->step.full && head->step.activeCount == 0) {
      SCANLINESTEP &st = head->step;
      LONG runEnd = st.endX;
      if (st.nextSeg < st.segCount && st.segMinX[st.nextSeg] / kOne < runEnd)
        runEnd = st.segMinX[st.nextSeg] / kOne;
      if (rec && rec->startX < lastStart && rec->startX / kOne < runEnd) runEnd = rec->startX / kOne;
      const LONG x0 = rb / kOne - 1;
      if (runEnd - x0 >= 2) {
        const LONG w = (m_weightSize * m_opacity16384) >> 14;
        tACTIVEREGIONLIST *const e = head;
        CScanlineIntersect &isect = e->region->isect;
        const LONG state = isect.m_state;
        const bool textured = state == KY3DRS_TEXTURED;
        const bool inPlace = e->proc == TexturedPixel;  // the colours are fetched here
        tKYPIXEL32 px;
        e->proc(e, &px, &m_param);
        // At full weight a fully covered pixel takes the region's colour as it is; below
        // it the colour is blended (BlendInto with a coverage of 1024).
        tKYPIXEL32 *span = w >= 1024 ? out.Span(x0, runEnd) : nullptr;
        if (span && !textured) {
          for (LONG x = x0; x < runEnd; ++x) span[x - x0] = px;
        } else if (span) {
          span[0] = px;
          for (LONG x = x0 + 1; x < runEnd; ++x) {
            st.pixelX = x;
            // The per-pixel advance of SetCurVal2, with its re-evaluation every 32 pixels.
            if ((x & 31) == 0)
              isect.SetCurVal2(&st, state);
            else
              for (int k = 0; k < 4; ++k) st.cur[k] += st.dx[k];
            if (inPlace)
              TexturedColor(st, &px);
            else
              e->proc(e, &px, &m_param);
            span[x - x0] = px;
          }
        } else {
          PixelSum sum = {px.blue * 1024u, px.green * 1024u, px.red * 1024u, px.alpha * 1024u, 1024};
          for (LONG x = x0; x < runEnd; ++x) {
            if (x > x0 && textured) {
              st.pixelX = x;
              isect.SetCurVal2(&st, state);
              e->proc(e, &px, &m_param);
              sum = {px.blue * 1024u, px.green * 1024u, px.red * 1024u, px.alpha * 1024u, 1024};
            }
            BlendInto(out.Pixel(x), sum, w);
          }
        }
        st.pixelX = runEnd - 1;
        isect.Step(&st, 1024, state);
        if (head->region->finished) {
          head->inUse = 0;
          head = tail = nullptr;
        }
        rb = (runEnd + 1) * kOne;
        if (!head && !rec) break;
        continue;
      }
    }
    // Several flat regions none of which has an edge due before `repeatEnd` (nor does a new
    // region start before it): each one's coverage stays as it is on this pixel, so the
    // pixels up to there repeat this pixel's colour, coverage and weight.
    LONG repeatEnd = 0;
    if (head->next) {
      repeatEnd = m_width;
      for (const tACTIVEREGIONLIST *e = head; e && repeatEnd; e = e->next) {
        const SCANLINESTEP &st = e->step;
        if (e->proc != FlatPixel || e->region->isect.m_state == KY3DRS_TEXTURED || st.activeCount) {
          repeatEnd = 0;
          break;
        }
        if (st.endX < repeatEnd) repeatEnd = st.endX;
        if (st.nextSeg < st.segCount && st.segMinX[st.nextSeg] / kOne < repeatEnd)
          repeatEnd = st.segMinX[st.nextSeg] / kOne;
      }
      if (rec && rec->startX < lastStart && rec->startX / kOne < repeatEnd) repeatEnd = rec->startX / kOne;
    }
    // 2. Gather the pixel in list order. A fully covering region replaces the colour
    // gathered so far (so of several, the last one in the list decides); partly covering
    // regions share the sub-pixels that no earlier partly covering region took, whether or
    // not a fully covering region came before them.
    PixelSum sum = {0, 0, 0, 0, 0};
    bool maskClear = false, fullSeen = false;
    tKYPIXEL32 fullColor = {0, 0, 0, 0};
    LONG afterFull = 0;  // sub-pixels taken by partly covering regions after the last full one
    tACTIVEREGIONLIST *prev = nullptr;
    for (tACTIVEREGIONLIST *e = head; e;) {
      LONG cov = 0;
      tKYPIXEL32 px;
      if (e->step.full) {
        cov = 1024;
        e->proc(e, &px, &m_param);
        sum.b = px.blue * 1024u;
        sum.g = px.green * 1024u;
        sum.r = px.red * 1024u;
        sum.a = px.alpha * 1024u;
        sum.total += 1024;
        fullSeen = true;
        fullColor = px;
        afterFull = 0;
      } else if (e->step.edgeCount > 0) {
        memset(&e->mask, 0, sizeof(e->mask));
        GetSubPixelCoverage(&e->step, &e->mask);
        if (!maskClear) {
          memset(&covered, 0, sizeof(covered));
          maskClear = true;
        }
        LONG c = 0;
        for (int r = 0; r < 32; ++r) {
          const DWORD m = e->mask.row[r] & ~covered.row[r];
          covered.row[r] |= m;
          e->mask.row[r] = m;
          c += m_bitCount[m & 0xFFFF] + m_bitCount[m >> 16];
        }
        if (c) {
          e->proc(e, &px, &m_param);
          sum.b += px.blue * static_cast<DWORD>(c);
          sum.g += px.green * static_cast<DWORD>(c);
          sum.r += px.red * static_cast<DWORD>(c);
          sum.a += px.alpha * static_cast<DWORD>(c);
          sum.total += c;
          if (fullSeen) afterFull += c;
        }
        cov = c;
      }
      e->region->isect.Step(&e->step, cov, e->region->isect.m_state);
      e = Advance(e, prev, head, tail);
    }
    // 3. The pixel writer: coverage weight (full coverage and more weigh 1024) times the
    // frame's opacity. Where a fully covering region is joined by partly covering ones
    // after it, those show their colours on their own sub-pixels and the full region's
    // colour fills the rest (the partial sub-pixels are disjoint, so afterFull <= 1024).
    if (fullSeen && afterFull > 0) {
      sum.b -= fullColor.blue * static_cast<DWORD>(afterFull);
      sum.g -= fullColor.green * static_cast<DWORD>(afterFull);
      sum.r -= fullColor.red * static_cast<DWORD>(afterFull);
      sum.a -= fullColor.alpha * static_cast<DWORD>(afterFull);
    }
    const LONG x = rb / kOne - 1;
    if (sum.total > 0 && x >= 0 && x < m_width) {
      const LONG w = sum.total >= 1024 ? m_weightSize : m_weight[sum.total];
      for (LONG xr = x; xr < repeatEnd || xr == x; ++xr)
        BlendInto(out.Pixel(xr), sum, (w * m_opacity16384) >> 14);
    }
    if (repeatEnd - x >= 2) {
      // The regions step over the repeated pixels at once: nothing enters them on the way.
      tACTIVEREGIONLIST *prev = nullptr;
      for (tACTIVEREGIONLIST *e = head; e;) {
        e->step.pixelX = repeatEnd - 1;
        e->region->isect.Step(&e->step, e->step.full ? 1024 : 0, e->region->isect.m_state);
        e = Advance(e, prev, head, tail);
      }
      rb = repeatEnd * kOne;
    }
    // 5. Next pixel.
    rb += kOne;
    if (!head && !rec) break;
  }
}
