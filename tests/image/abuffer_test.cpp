// A-buffer rasteriser: tables, coverage masks, classification, and the coverage that scan
// conversion gives random triangles and polygons against their exact areas.
#include "abuffer_util.h"

using namespace abtest;

namespace {

class ABuffer : public WithABuffer {};

SCANLINESTEP Edges(const std::vector<tSCANEDGE> &es) {
  static SCANLINESTEP st;
  memset(&st, 0, sizeof(st));
  for (const tSCANEDGE &e : es) st.edges[st.edgeCount++] = e;
  return st;
}

TEST_F(ABuffer, WeightAndBitCountTables) {
  EXPECT_TRUE(ab.m_weight[0] == 0 && ab.m_weight[512] == 724 && ab.m_weight[1023] == 1023);
  EXPECT_EQ(32, ab.m_weight[1]);  // sqrt(1/1024) * 1024
  // A coverage of exactly 1024 reads the word right after the table: its size.
  EXPECT_EQ(1024, (&ab.m_weight[0])[1024]);
  EXPECT_TRUE(ab.m_bitCount[0] == 0 && ab.m_bitCount[0xFFFF] == 16 && ab.m_bitCount[0xAAAA] == 8 &&
              ab.m_bitCount[0x8000] == 1);
  for (int i = 1; i < 1024; ++i) ASSERT_LE(ab.m_weight[i - 1], ab.m_weight[i]) << i;
}

struct MaskCase {
  const char *name;
  std::vector<tSCANEDGE> edges;
  DWORD prefill;
  LONG bits;                 // expected coverage
  std::vector<DWORD> rows;   // expected words of the first rows (when given)
};

TEST_F(ABuffer, SubPixelCoverageCases) {
  const MaskCase cases[] = {
      {"vertical edge through the middle column", {{8192, 0, 8192, 16384}}, 0, 512, {0x0000FFFFu}},
      {"edge given upwards is swapped", {{8192, 16384, 8192, 0}}, 0, 512, {0x0000FFFFu}},
      {"left side: whole rows", {{0, 0, 0, 16384}}, 0, 1024, {0xFFFFFFFFu}},
      {"a pair makes a span", {{0, 0, 0, 16384}, {8192, 0, 8192, 16384}}, 0, 512, {0xFFFF0000u}},
      {"top half only; first edge clears the rest", {{4096, 0, 4096, 8192}}, 0xFFFFFFFFu, 16 * 24,
       {0x00FFFFFFu}},
      {"x at the right side leaves rows unwritten", {{16384, 0, 16384, 16384}}, 0x12345678u,
       32 * 13, {0x12345678u}},
      {"later edge outside its rows leaves them", {{0, 0, 0, 16384}, {0, 0, 0, 8192}}, 0, 512,
       {0u}},
      {"coordinates clamped to the pixel", {{-5000, -100, -5000, 30000}}, 0, 1024, {0xFFFFFFFFu}},
      {"no edges: mask untouched", {}, 0xFFFFFFFFu, 1024, {0xFFFFFFFFu}},
  };
  for (const MaskCase &c : cases) {
    SCANLINESTEP st = Edges(c.edges);
    SUBPIXELMASK m;
    for (DWORD &w : m.row) w = c.prefill;
    ab.GetSubPixelCoverage(&st, &m);
    EXPECT_EQ(c.bits, ab.CountBits(&m)) << c.name;
    for (size_t i = 0; i < c.rows.size(); ++i) EXPECT_EQ(c.rows[i], m.row[i]) << c.name;
  }
}

TEST_F(ABuffer, SlopedEdgeFollowsTheDescribedStepping) {
  // From (0, 0) to (16384, 16384): rows 0..31, slope 16384 / 31 = 528; the first row
  // advances by (512 * 528) >> 14 = 16.
  SCANLINESTEP st = Edges({{0, 0, 16384, 16384}});
  SUBPIXELMASK m;
  memset(&m, 0, sizeof(m));
  ab.GetSubPixelCoverage(&st, &m);
  LONG x = 0;
  for (int r = 0; r < 32; ++r) {
    const DWORD want = (x >> 9) < 32 ? 0xFFFFFFFFu >> (x >> 9) : 0u;
    EXPECT_EQ(want, m.row[r]) << r;
    x += r == 0 ? 16 : 528;
  }
}

TEST_F(ABuffer, EmptyOperationsChangeNothing) {
  SUBPIXELMASK m;
  for (int i = 0; i < 32; ++i) m.row[i] = 0x01010101u * i;
  ab.GetSubPixelMaskVal(1, 2, 3, 4, &m);
  ab.DrawScanLineFast(0);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(0x01010101u * i, m.row[i]);
}

TEST_F(ABuffer, ClassifyPoly) {
  struct Row {
    const char *name;
    KY3DPOLY poly;
    LONG want;
  } rows[] = {
      {"square clockwise", Flat({V(0, 0), V(10, 0), V(10, 10), V(0, 10)}, 0), 1},
      {"square the other way", Flat({V(0, 0), V(0, 10), V(10, 10), V(10, 0)}, 0), 1},
      {"dart", Flat({V(0, 0), V(10, 5), V(0, 10), V(3, 5)}, 0), 4},
      {"bow tie", Flat({V(0, 0), V(10, 10), V(10, 0), V(0, 10)}, 0), 4},
      {"no vertices", Flat({}, 0), 1},
  };
  for (auto &r : rows) EXPECT_EQ(r.want, ab.ClassifyPoly(&r.poly)) << r.name;
  // A triangle still reads a fourth vertex as the previous vertex of vertex 0.
  KY3DPOLY tri = Flat({V(0, 0), V(10, 0), V(10, 10)}, 0);
  tri.v[3] = V(0, 10);
  EXPECT_EQ(1, ab.ClassifyPoly(&tri));
  tri.v[3] = V(20, -5);
  EXPECT_EQ(4, ab.ClassifyPoly(&tri));
}

// A star-shaped polygon (convex or not) of n vertices around a centre: vertex i at an angle
// jittered within its n-th of the turn, at a radius drawn from [rLo, rHi] (fixed when equal).
KY3DPOLY Star(Rng &rng, int n, double cx, double cy, double jLo, double jHi, double rLo, double rHi) {
  KY3DPOLY p = Flat({}, 0xFFFFFFFF);
  p.count = n;
  for (int i = 0; i < n; ++i) {
    const double a = (i + rng.Uniform(jLo, jHi)) * 2 * 3.14159265358979 / n;
    const double r = rLo == rHi ? rLo : rng.Uniform(rLo, rHi);
    p.v[i] = V(float(cx + r * cos(a)), float(cy + r * sin(a)));
  }
  return p;
}

// Random polygons: the coverage summed over all pixels equals the exact area within
// 24 sub-pixels per pixel of horizontal edge travel plus 4 per pixel of perimeter (the mask
// code places a sloped edge on a sub-row by stepping from the piece's top end, which lags
// the exact crossing by a fraction of a sub-row's worth of the edge's travel).
TEST_F(ABuffer, CoverageMatchesExactArea) {
  const unsigned seed = 20261123;
  Rng rng(seed);
  Canvas c(96, 96);
  for (int iter = 0; iter < 120; ++iter) {
    Begin(c);
    KY3DPOLY poly;
    const int kind = iter % 3;
    if (kind == 0) {  // triangle
      poly = Flat({V(rng.Uniform(2, 93), rng.Uniform(2, 93)), V(rng.Uniform(2, 93), rng.Uniform(2, 93)),
                   V(rng.Uniform(2, 93), rng.Uniform(2, 93))}, 0xFFFFFFFF);
    } else {
      const int n = kind == 1 ? 4 + rng.Next() % 5 : 5 + rng.Next() % 12;
      const double cx = rng.Uniform(30, 66), cy = rng.Uniform(30, 66);
      poly = kind == 1 ? Star(rng, n, cx, cy, 0.1, 0.9, 25, 25) : Star(rng, n, cx, cy, 0.1, 0.9, 3, 28);
    }
    ASSERT_EQ(1, ab.DrawPoly(&poly, 0.0, 0.0));
    const CoverageMap m = Coverage(ab, c.w, c.h);
    const double tol = 24.0 * Perimeter(poly, true) + 4.0 * Perimeter(poly);
    EXPECT_NEAR(Area(poly) * 1024.0, double(Sum(m.cov)), tol) << "seed " << seed << " polygon " << iter;
    EXPECT_EQ(0, m.overlapBits) << "a polygon's own regions overlap, seed " << seed << " polygon " << iter;
    ab.EndFrame();
  }
}

// Polygons cut in two along a chord: each pixel's two masks are disjoint and together give
// the whole polygon's mask, sub-pixel for sub-pixel.
TEST_F(ABuffer, SharedEdgesLeaveNoGapAndNoOverlap) {
  const unsigned seed = 77;
  Rng rng(seed);
  Canvas c(64, 64);
  for (int iter = 0; iter < 60; ++iter) {
    const int n = 4 + rng.Next() % 6;
    const double cx = rng.Uniform(24, 40), cy = rng.Uniform(24, 40);
    KY3DPOLY whole = Star(rng, n, cx, cy, 0.2, 0.8, 20, 20);
    const int k = 2 + rng.Next() % (n - 3);  // chord from vertex 0 to vertex k
    KY3DPOLY a = whole, b = whole;
    a.count = k + 1;
    b.count = n - k + 1;
    b.v[0] = whole.v[0];
    for (int i = k; i < n; ++i) b.v[i - k + 1] = whole.v[i];
    Begin(c);
    ASSERT_EQ(1, ab.DrawPoly(&whole, 0, 0));
    const CoverageMap mw = Coverage(ab, c.w, c.h);
    ab.EndFrame();
    Begin(c);
    ASSERT_EQ(1, ab.DrawPoly(&a, 0, 0));
    ASSERT_EQ(1, ab.DrawPoly(&b, 0, 0));
    const CoverageMap mab = Coverage(ab, c.w, c.h);
    ab.EndFrame();
    EXPECT_EQ(0, mab.overlapBits) << "seed " << seed << " polygon " << iter;
    int differing = 0;
    for (int i = 0; i < c.w * c.h; ++i)
      if (memcmp(&mw.masks[i], &mab.masks[i], sizeof(SUBPIXELMASK)) != 0) ++differing;
    EXPECT_EQ(0, differing) << "seed " << seed << " polygon " << iter;
  }
}

}  // namespace
