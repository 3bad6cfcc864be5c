// Helpers of the A-buffer tests: a 32-bit destination, frame set-up, polygon builders and
// the per-pixel coverage that the rasteriser's own stepping gives a frame's regions.
#pragma once

#include <math.h>
#include <algorithm>
#include <numeric>
#include <string.h>
#include <vector>

#include "ky_abuffer.h"
#include "ky_testutil.h"

namespace abtest {

struct Canvas {
  int w, h;
  std::vector<DWORD> px;  // bottom-up rows, BGRA
  Canvas(int width, int height, DWORD fill = 0xFF000000u) : w(width), h(height), px(width * height, fill) {}
  DWORD &At(int x, int y) { return px[(h - 1 - y) * w + x]; }  // y from the top
};

inline BITMAPINFOHEADER Header32(int w, int h, DWORD compression) {
  return BITMAPINFOHEADER{sizeof(BITMAPINFOHEADER), w, h, 1, 32, compression, 0, 0, 0, 0, 0};
}

inline tA_BUFFER_PARAM Params(Canvas &c, float opacity = 1.0f) {
  tA_BUFFER_PARAM p;
  memset(&p, 0, sizeof(p));
  p.dstHeader = Header32(c.w, c.h, KY_BI_KYDB);  // 32-bit with alpha: every byte is kept
  p.dstPixels = c.px.data();
  p.dstStride = c.w * 4;
  p.opacity = opacity;
  return p;
}

inline void AddTexture(tA_BUFFER_PARAM &p, int w, int h, const DWORD *pixels) {
  tKYABUFFERTEXTURE &t = p.textures[p.textureCount++];
  t.header = Header32(w, h, BI_RGB);
  t.pixels = const_cast<DWORD *>(pixels);
  t.stride = w * 4;
}

inline KY3DVERTEX V(float x, float y, float u = 0, float v = 0, float rhw = 1) {
  KY3DVERTEX r = {x, y, 0.0f, rhw, u, v, 1.0f};
  return r;
}

inline KY3DPOLY Flat(std::initializer_list<KY3DVERTEX> vs, DWORD bgra) {
  KY3DPOLY p;
  memset(&p, 0, sizeof(p));
  for (const KY3DVERTEX &v : vs) p.v[p.count++] = v;
  p.state = KY3DRS_FLAT;
  memcpy(&p.color, &bgra, 4);
  return p;
}

// A fixture with an initialised A_Buffer, cleaned up after the test.
class WithABuffer : public ::testing::Test {
protected:
  void SetUp() override { ASSERT_EQ(1, ab.Init()); }
  void TearDown() override { ab.Cleanup(); }
  // Starts a frame into the canvas.
  void Begin(Canvas &c, float opacity = 1.0f) {
    prm = Params(c, opacity);
    ASSERT_EQ(1, ab.BeginFrame(&prm));
  }
  A_Buffer ab;
  tA_BUFFER_PARAM prm;
};

// Per-pixel coverage (0..1024 per region, summed over regions) of everything drawn since
// BeginFrame, found by walking the row lists with the exported stepping and mask code.
// With `maskOut` the per-pixel masks of the regions are OR-ed and their overlaps counted.
struct CoverageMap {
  std::vector<int> cov;
  std::vector<SUBPIXELMASK> masks;
  long long overlapBits = 0;
};

inline CoverageMap Coverage(A_Buffer &ab, int w, int h) {
  CoverageMap m{std::vector<int>(w * h, 0), std::vector<SUBPIXELMASK>(w * h), 0};
  memset(m.masks.data(), 0, sizeof(SUBPIXELMASK) * w * h);
  static SCANLINESTEP st;
  for (int row = 0; row < h && row < KY_ABUFFER_MAX_ROWS; ++row) {
    for (tKYABREGION *r = ab.m_rows[row]; r; r = r->next) {
      memset(&st, 0, sizeof(st));
      st.pixelX = r->startX / 16384;
      r->finished = 0;
      r->isect.PreStep(&st, row, r->isect.m_state);
      for (int guard = 0; guard <= w + 1 && !r->finished; ++guard) {
        SUBPIXELMASK mk;
        if (st.full) {
          for (DWORD &word : mk.row) word = 0xFFFFFFFFu;
        } else {
          memset(&mk, 0, sizeof(mk));
          ab.GetSubPixelCoverage(&st, &mk);
        }
        const LONG c = ab.CountBits(&mk);
        const int x = st.pixelX;
        if (x >= 0 && x < w) {
          m.cov[row * w + x] += c;
          SUBPIXELMASK &acc = m.masks[row * w + x];
          for (int k = 0; k < 32; ++k) {
            m.overlapBits += __builtin_popcount(acc.row[k] & mk.row[k]);
            acc.row[k] |= mk.row[k];
          }
        }
        r->isect.Step(&st, c, r->isect.m_state);
      }
    }
  }
  return m;
}

inline long long Sum(const std::vector<int> &v) { return std::accumulate(v.begin(), v.end(), 0LL); }

// Exact area (pixels) of a simple polygon by the shoelace formula, vertices rounded to the
// rasteriser's 18.14 grid first; its perimeter; and the horizontal travel of its edges.
inline double Area(const KY3DPOLY &p) {
  auto grid = [](float c) { return floor(c * 16384.0 + 0.5) / 16384.0; };
  double a = 0;
  for (int i = 0; i < p.count; ++i) {
    const KY3DVERTEX &u = p.v[i], &v = p.v[(i + 1) % p.count];
    a += grid(u.x) * grid(v.y) - grid(v.x) * grid(u.y);
  }
  return fabs(a) / 2;
}

inline double Perimeter(const KY3DPOLY &p, bool onlyX = false) {
  double s = 0;
  for (int i = 0; i < p.count; ++i) {
    const KY3DVERTEX &u = p.v[i], &v = p.v[(i + 1) % p.count];
    s += onlyX ? fabs(v.x - u.x) : hypot(v.x - u.x, v.y - u.y);
  }
  return s;
}

// A small deterministic generator (the seed is printed by the tests that use it).
struct Rng {
  unsigned s;
  explicit Rng(unsigned seed) : s(seed ? seed : 1) {}
  unsigned Next() {
    s ^= s << 13;
    s ^= s >> 17;
    s ^= s << 5;
    return s;
  }
  double Uniform(double lo, double hi) { return lo + (hi - lo) * (Next() % 1000003) / 1000003.0; }
};

}  // namespace abtest
