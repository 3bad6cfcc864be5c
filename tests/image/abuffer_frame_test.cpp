// A-buffer frames: parameter checks, refused polygons, the pool's wrap-around, rows and
// columns at the destination's limits, and the offsets of DrawPoly.
#include "abuffer_util.h"

using namespace abtest;

namespace {

class ABufferFrame : public WithABuffer {};

TEST(ABufferFrameSetup, BeginFrameChecksItsParameters) {
  A_Buffer ab;
  Canvas c(16, 16);
  tA_BUFFER_PARAM p = Params(c);
  EXPECT_EQ(0, ab.BeginFrame(&p)) << "before Init";
  ASSERT_EQ(1, ab.Init());
  EXPECT_EQ(1, ab.BeginFrame(&p));
  DWORD tex32[4] = {0, 0, 0, 0};
  BYTE tex24[16] = {0};
  AddTexture(p, 2, 2, tex32);
  AddTexture(p, 2, 2, tex32);
  EXPECT_EQ(1, ab.BeginFrame(&p)) << "two textures of one type";
  p.textures[1].header.biBitCount = 24;
  p.textures[1].pixels = tex24;
  EXPECT_EQ(0, ab.BeginFrame(&p)) << "second texture of another type";
  p.textureCount = 1;
  EXPECT_EQ(1, ab.BeginFrame(&p)) << "only the first texture counts";
  p.textureCount = 33;
  EXPECT_EQ(0, ab.BeginFrame(&p));
  p.textureCount = 0;
  p.dstStride = 16 * 4 - 1;
  EXPECT_EQ(0, ab.BeginFrame(&p)) << "stride shorter than a row";
  p.dstStride = 0;
  p.dstHeader.biWidth = 65536;
  EXPECT_EQ(0, ab.BeginFrame(&p)) << "too wide";
  p.dstHeader.biWidth = 16;
  p.dstPixels = nullptr;
  EXPECT_EQ(0, ab.BeginFrame(&p));
  EXPECT_EQ(0, ab.BeginFrame(nullptr));
  ab.Cleanup();
  ab.Cleanup();  // a second clean-up is harmless
}

TEST_F(ABufferFrame, RefusedPolygonsDrawNothing) {
  Canvas c(16, 16);
  KY3DPOLY ok = Flat({V(1, 1), V(9, 1), V(9, 9)}, 0xFFFFFFFFu);
  EXPECT_EQ(0, ab.DrawPoly(&ok, 0, 0)) << "outside a frame";
  Begin(c);
  struct Case {
    const char *name;
    void (*spoil)(KY3DPOLY &);
  } cases[] = {
      {"two vertices", [](KY3DPOLY &q) { q.count = 2; }},
      {"17 vertices", [](KY3DPOLY &q) { q.count = 17; }},
      {"unknown state", [](KY3DPOLY &q) { q.state = 1; }},
      {"texture not in the frame", [](KY3DPOLY &q) { q.state = KY3DRS_TEXTURED; }},
      {"not a number", [](KY3DPOLY &q) { q.v[1].x = NAN; }},
      {"far away", [](KY3DPOLY &q) { q.v[2].y = 1e6f; }},
  };
  for (const Case &k : cases) {
    KY3DPOLY q = ok;
    k.spoil(q);
    EXPECT_EQ(0, ab.DrawPoly(&q, 0, 0)) << k.name;
  }
  EXPECT_EQ(0, ab.DrawPoly(&ok, NAN, 0.0));
  EXPECT_EQ(0, ab.DrawPoly(nullptr, 0, 0));
  EXPECT_EQ(0, ab.DrawTriangle(nullptr));
  ab.EndFrame();
  for (DWORD px : c.px) ASSERT_EQ(0xFF000000u, px);
}

// More regions than the pool holds: records are reused from the first one on, the row lists
// stay well formed and the polygons drawn last are all there.
TEST_F(ABufferFrame, PoolWrapsAroundWithinAFrame) {
  Canvas c(64, 200);
  Begin(c);
  // 25 bars of 200 rows: 5000 regions.
  for (int i = 0; i < 25; ++i) {
    KY3DPOLY bar = Flat({V(2.0f * i + 1, 0), V(2.0f * i + 2, 0), V(2.0f * i + 2, 200), V(2.0f * i + 1, 200)},
                        0xFFFFFFFFu);
    ASSERT_EQ(1, ab.DrawPoly(&bar, 0, 0));
  }
  EXPECT_EQ(1000, ab.m_poolUsed);
  long long records = 0;
  for (int row = 0; row < 200; ++row) {
    LONG last = -1;
    int n = 0;
    for (tKYABREGION *r = ab.m_rows[row]; r && n <= 4000; r = r->next, ++n) {
      EXPECT_LE(last, r->startX);
      EXPECT_EQ(row, r->isect.m_row);
      last = r->startX;
    }
    records += n;
  }
  EXPECT_EQ(4000, records);
  ab.EndFrame();
  // Bars 5..24 (the last 4000 regions) are drawn whole; bar 0's column stays black.
  for (int y = 0; y < 200; ++y) EXPECT_TRUE(c.At(2 * 24 + 1, y) == 0xFFFFFFFFu && c.At(2 * 5 + 1, y) == 0xFFFFFFFFu) << y;
  EXPECT_EQ(0xFF000000u, c.At(1, 100));
}

TEST_F(ABufferFrame, RowsAndColumnsAtTheLimits) {
  Canvas c(8, 4);
  Begin(c);
  // Covers the whole destination and far beyond on every side.
  KY3DPOLY big = Flat({V(-50, -50), V(60, -50), V(60, 60), V(-50, 60)}, 0xFF0000FFu);
  ASSERT_EQ(1, ab.DrawPoly(&big, 0, 0));
  ab.EndFrame();
  for (DWORD px : c.px) EXPECT_EQ(0xFF0000FFu, px);
  // A region starting in the last column ends its row's activation: not drawn.
  KY3DPOLY last = Flat({V(7.25f, 0), V(8, 0), V(8, 1), V(7.25f, 1)}, 0xFF00FF00u);
  Canvas d(8, 4);
  Begin(d);
  ASSERT_EQ(1, ab.DrawPoly(&last, 0, 0));
  ab.EndFrame();
  EXPECT_EQ(0xFF000000u, d.At(7, 0));
}

// DrawPoly's two doubles move the polygon: the coverage is the moved polygon's.
TEST_F(ABufferFrame, OffsetsMoveThePolygon) {
  Canvas c(32, 32);
  KY3DPOLY a = Flat({V(3.3f, 4.1f), V(20.7f, 6.2f), V(9.9f, 17.4f)}, 0xFFFFFFFFu);
  KY3DPOLY b = a;
  for (int i = 0; i < 3; ++i) b.v[i].x += 5.25f, b.v[i].y += 7.5f;
  Begin(c);
  ASSERT_EQ(1, ab.DrawPoly(&a, 5.25, 7.5));
  const CoverageMap ma = Coverage(ab, 32, 32);
  ab.EndFrame();
  Begin(c);
  ASSERT_EQ(1, ab.DrawPoly(&b, 0, 0));
  const CoverageMap mb = Coverage(ab, 32, 32);
  ab.EndFrame();
  EXPECT_EQ(ma.cov, mb.cov);
  EXPECT_GT(Sum(ma.cov), 0);
}

// An assigned object gets the tables but keeps its own pool: both clean up.
TEST_F(ABufferFrame, AssignmentKeepsEachObjectsBlocks) {
  A_Buffer other;
  ASSERT_EQ(1, other.Init());
  tKYABREGION *pool = other.m_pool;
  other = ab;
  EXPECT_EQ(pool, other.m_pool);
  EXPECT_EQ(724, other.m_weight[512]);
  EXPECT_EQ(16, other.m_bitCount[0xFFFF]);
  Canvas c(8, 8);
  prm = Params(c);
  EXPECT_EQ(1, other.BeginFrame(&prm));
  other.Cleanup();
}

// An edge through the middle of a pixel gives 512 sub-pixels, weighted 724; a region that
// starts further left in the row hides the sub-pixels of one drawn before it.
TEST_F(ABufferFrame, HalfCoveredPixelAndHidingOrder) {
  Canvas c(16, 4);
  Begin(c);
  KY3DPOLY white = Flat({V(4.5f, 0), V(9, 0), V(9, 4), V(4.5f, 4)}, 0xFFFFFFFFu);
  KY3DPOLY green = Flat({V(10.5f, 0), V(14, 0), V(14, 4), V(10.5f, 4)}, 0xFF00FF00u);
  KY3DPOLY red = Flat({V(10.25f, 0), V(14, 0), V(14, 4), V(10.25f, 4)}, 0xFFFF0000u);
  ASSERT_EQ(1, ab.DrawPoly(&white, 0, 0));
  ASSERT_EQ(1, ab.DrawPoly(&green, 0, 0));
  ASSERT_EQ(1, ab.DrawPoly(&red, 0, 0));
  ab.EndFrame();
  const DWORD half = (255 * 724 + 512) >> 10;  // 180
  EXPECT_EQ(0xFF000000u | half * 0x010101u, c.At(4, 1));
  EXPECT_EQ(0xFFFFFFFFu, c.At(5, 1));
  // Pixel 10: red covers 768 sub-pixels and comes first; green's 512 lie under it.
  const DWORD red768 = (255 * ab.m_weight[768] + 512) >> 10;
  EXPECT_EQ(0xFF000000u | (red768 << 16), c.At(10, 2));
  EXPECT_EQ(0u, (c.At(10, 2) >> 8) & 0xFF) << "green is hidden";
}

// A background drawn first over the whole frame: a later polygon that starts further right
// shows wholly where it covers whole pixels, and over the background by its share of the
// sub-pixels on its edge.
TEST_F(ABufferFrame, BackgroundDrawnFirstHidesNothingLater) {
  Canvas c(16, 4);
  Begin(c);
  KY3DPOLY back = Flat({V(0, 0), V(16, 0), V(16, 4), V(0, 4)}, 0xFF404040u);
  KY3DPOLY white = Flat({V(4.5f, 0), V(9, 0), V(9, 4), V(4.5f, 4)}, 0xFFFFFFFFu);
  ASSERT_EQ(1, ab.DrawPoly(&back, 0, 0));
  ASSERT_EQ(1, ab.DrawPoly(&white, 0, 0));
  ab.EndFrame();
  const DWORD mix = (0x40 * 512 + 255 * 512 + 512) >> 10;  // 160
  for (int y = 0; y < 4; ++y) {
    EXPECT_EQ(0xFF404040u, c.At(3, y));
    EXPECT_EQ(0xFF000000u | mix * 0x010101u, c.At(4, y)) << "row " << y;
    for (int x = 5; x < 9; ++x) EXPECT_EQ(0xFFFFFFFFu, c.At(x, y)) << x << "," << y;
    EXPECT_EQ(0xFF404040u, c.At(9, y));
  }
}

}  // namespace
