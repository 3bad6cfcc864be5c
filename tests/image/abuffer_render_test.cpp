// A-buffer rendering against a slow reference of the same rules written plainly here: point
// sampling of every sub-pixel, regions of a row taken in order of their left end, the last
// region in that order that covers a pixel wholly decides it, square-root coverage weights,
// the frame's opacity.
#include <algorithm>

#include "abuffer_util.h"

using namespace abtest;

namespace {

struct RefPoly {
  KY3DPOLY p;
  const DWORD *tex = nullptr;  // 32-bit texture, texW x texH, bottom row first as the frame takes it
  int texW = 0, texH = 0;
};

// Even-odd inside test of a point.
bool Inside(const KY3DPOLY &p, double x, double y) {
  bool in = false;
  for (int i = 0; i < p.count; ++i) {
    const KY3DVERTEX &a = p.v[i], &b = p.v[(i + 1) % p.count];
    if ((a.y > y) != (b.y > y)) {
      const double xc = a.x + (b.x - a.x) * (y - a.y) / (b.y - a.y);
      if (xc <= x) in = !in;
    }
  }
  return in;
}

// Sub-pixel (r, k) of pixel (px, py) sampled at its right side on the sub-row's lower line.
int CoverageOf(const KY3DPOLY &p, int px, int py, double dx = 0, double dy = 0) {
  int c = 0;
  for (int r = 0; r < 32; ++r)
    for (int k = 0; k < 32; ++k) c += Inside(p, px + dx + (k + 0.999) / 32.0, py + dy + (r + 1) / 32.0 - 1e-7);
  return c;
}

// True when the polygon covers the pixel wholly or not at all, and still does with the
// pixel moved by a sixteenth of a pixel each way (the mask code's edge placement may lag the
// exact crossing by that much).
bool Decided(const KY3DPOLY &p, int px, int py, int cov) {
  if (cov != 0 && cov != 1024) return false;
  for (double d : {-1.0 / 16, 1.0 / 16})
    if (CoverageOf(p, px, py, d, 0) != cov || CoverageOf(p, px, py, 0, d) != cov) return false;
  return true;
}

// Left end of the polygon inside row band [y, y + 1], or +inf when it misses the band.
double LeftInRow(const KY3DPOLY &p, int y) {
  double lo = 1e300;
  for (int i = 0; i < p.count; ++i) {
    const KY3DVERTEX &a = p.v[i], &b = p.v[(i + 1) % p.count];
    const double y0 = std::max<double>(std::min(a.y, b.y), y), y1 = std::min<double>(std::max(a.y, b.y), y + 1);
    if (y1 <= y0 || a.y == b.y) continue;
    for (double yy : {y0, y1}) lo = std::min(lo, a.x + (b.x - a.x) * (yy - a.y) / (b.y - a.y));
  }
  return std::max(lo, 0.0);
}

// Colour of a polygon at a pixel centre: flat colour, or the texture at the perspective-
// correct u, v found from screen-space barycentric weights of a fan triangle.
DWORD ColourAt(const RefPoly &rp, double x, double y) {
  const KY3DPOLY &p = rp.p;
  if (p.state == KY3DRS_FLAT) {
    DWORD c;
    memcpy(&c, &p.color, 4);
    return c;
  }
  const KY3DVERTEX &a = p.v[0], &b = p.v[1], &c = p.v[2];
  const double det = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
  const double wb = ((x - a.x) * (c.y - a.y) - (c.x - a.x) * (y - a.y)) / det;
  const double wc = ((b.x - a.x) * (y - a.y) - (x - a.x) * (b.y - a.y)) / det;
  const double wa = 1 - wb - wc;
  const double q = wa * a.rhw + wb * b.rhw + wc * c.rhw;
  const double u = (wa * a.u * a.rhw + wb * b.u * b.rhw + wc * c.u * c.rhw) / q;
  const double v = (wa * a.v * a.rhw + wb * b.v * b.rhw + wc * c.v * c.rhw) / q;
  const double fx = std::clamp(u * rp.texW - 0.5, 0.0, rp.texW - 1.0);
  const double fy = std::clamp(v * rp.texH - 0.5, 0.0, rp.texH - 1.0);
  const int ix = int(fx), iy = int(fy);
  const int ix1 = std::min(ix + 1, rp.texW - 1), iy1 = std::min(iy + 1, rp.texH - 1);
  DWORD out = 0;
  for (int k = 0; k < 4; ++k) {
    auto ch = [&](int tx, int ty) { return double((rp.tex[(rp.texH - 1 - ty) * rp.texW + tx] >> (8 * k)) & 255); };
    const double top = ch(ix, iy) * (1 - (fx - ix)) + ch(ix1, iy) * (fx - ix);
    const double bot = ch(ix, iy1) * (1 - (fx - ix)) + ch(ix1, iy1) * (fx - ix);
    out |= DWORD(std::lround(top * (1 - (fy - iy)) + bot * (fy - iy))) << (8 * k);
  }
  return out;
}

DWORD Blend(DWORD colour, DWORD dst, int w) {
  DWORD out = 0;
  for (int k = 0; k < 4; ++k) {
    const int c = (colour >> (8 * k)) & 255, d = (dst >> (8 * k)) & 255;
    out |= DWORD((c * w + d * (1024 - w) + 512) >> 10) << (8 * k);
  }
  return out;
}

int Weight(int coverage, float opacity) {
  const int w = coverage >= 1024 ? 1024 : int(pow(coverage / 1024.0, 0.5) * 1024.0);
  return (w * int(opacity * 16384 + 0.5f)) >> 14;
}

int ChannelDiff(DWORD a, DWORD b) {
  int m = 0;
  for (int k = 0; k < 3; ++k) m = std::max(m, abs(int((a >> (8 * k)) & 255) - int((b >> (8 * k)) & 255)));
  return m;
}

struct Scene {
  std::vector<RefPoly> polys;
  float opacity = 1.0f;
};

// Draws the scene with the rasteriser and checks every pixel against the reference:
// pixels where each polygon covers all or nothing exactly (flat) or within 3 levels
// (textured); pixels on the edge of a single flat polygon within the levels that a coverage
// error of 64 sub-pixels allows (the mask code steps a sloped edge from its top end, up to
// two sub-rows' worth of its travel behind the exact crossing: 64 on a 45-degree edge); and
// the mean difference over all edge pixels.
void CheckScene(const Scene &s, int w, int h, DWORD background) {
  A_Buffer ab;
  ASSERT_EQ(1, ab.Init());
  Canvas c(w, h, background);
  tA_BUFFER_PARAM prm = Params(c, s.opacity);
  for (const RefPoly &rp : s.polys)  // one texture per scene
    if (rp.tex && prm.textureCount == 0) AddTexture(prm, rp.texW, rp.texH, rp.tex);
  ASSERT_EQ(1, ab.BeginFrame(&prm));
  for (const RefPoly &rp : s.polys) {
    KY3DPOLY p = rp.p;
    ASSERT_EQ(1, ab.DrawPoly(&p, 0, 0));
  }
  ab.EndFrame();
  ab.Cleanup();

  int clean = 0, edges = 0;
  double edgeDiff = 0;
  for (int y = 0; y < h; ++y) {
    std::vector<int> order(s.polys.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](int a, int b) {
      return LeftInRow(s.polys[a].p, y) < LeftInRow(s.polys[b].p, y);
    });
    for (int x = 0; x < w - 1; ++x) {
      std::vector<int> cov(s.polys.size());
      bool isClean = true;
      int partial = 0, partialIndex = -1, touching = 0;
      for (size_t i = 0; i < s.polys.size(); ++i) {
        cov[i] = CoverageOf(s.polys[i].p, x, y);
        if (!Decided(s.polys[i].p, x, y, cov[i])) {
          isClean = false;
          ++partial;
          partialIndex = int(i);
        }
        touching += cov[i] != 0;
      }
      const DWORD got = c.At(x, y);
      if (isClean) {
        DWORD want = background;
        for (int i : order)
          if (cov[i] == 1024)
            want = Blend(ColourAt(s.polys[i], x + 0.5, y + 0.5), background, Weight(1024, s.opacity));
        const bool textured = std::any_of(order.begin(), order.end(), [&](int i) {
          return cov[i] == 1024 && s.polys[i].p.state == KY3DRS_TEXTURED;
        });
        ASSERT_LE(ChannelDiff(want, got), textured ? 3 : 0)
            << "pixel " << x << "," << y << " want " << std::hex << want << " got " << got;
        ++clean;
        continue;
      }
      ++edges;
      if (partial != 1 || touching != 1) continue;  // several polygons share the pixel
      const DWORD col = ColourAt(s.polys[partialIndex], x + 0.5, y + 0.5);
      const int pc = cov[partialIndex];
      edgeDiff += ChannelDiff(Blend(col, background, Weight(pc, s.opacity)), got);
      if (s.polys[partialIndex].p.state != KY3DRS_FLAT) continue;
      const DWORD lo = Blend(col, background, Weight(std::max(0, pc - 64), s.opacity));
      const DWORD hi = Blend(col, background, Weight(std::min(1023, pc + 64), s.opacity));
      for (int k = 0; k < 3; ++k) {
        const int g = (got >> (8 * k)) & 255, a = (lo >> (8 * k)) & 255, b = (hi >> (8 * k)) & 255;
        ASSERT_TRUE(g >= std::min(a, b) && g <= std::max(a, b)) << "edge pixel " << x << "," << y << " coverage " << pc;
      }
    }
  }
  EXPECT_GT(clean, 0);
  if (edges) {
    EXPECT_LT(edgeDiff / edges, 6.0) << "mean difference on " << edges << " edge pixels";
  }
}

// Two flat polygons side by side on grey; two overlapping rectangles at half opacity, the
// one starting further left in each row hiding the other.
TEST(ABufferRender, FlatScenesAgainstReference) {
  Scene side, overlap;
  side.polys.push_back({Flat({V(3.3f, 2.7f), V(40.6f, 9.2f), V(12.1f, 37.8f)}, 0xFF2040E0u)});
  side.polys.push_back({Flat({V(44.2f, 4.4f), V(61.7f, 30.3f), V(36.9f, 41.1f), V(50.2f, 20.6f)}, 0xFF30C050u)});
  CheckScene(side, 64, 48, 0xFF404040u);
  overlap.opacity = 0.5f;
  overlap.polys.push_back({Flat({V(20.5f, 5.5f), V(50.5f, 5.5f), V(50.5f, 30.5f), V(20.5f, 30.5f)}, 0xFFFFFF00u)});
  overlap.polys.push_back({Flat({V(5.25f, 10.5f), V(35.75f, 10.5f), V(35.75f, 40.25f), V(5.25f, 40.25f)}, 0xFF0000FFu)});
  CheckScene(overlap, 64, 48, 0xFF202020u);
}

TEST(ABufferRender, PerspectiveTexturedQuadAgainstReference) {
  std::vector<DWORD> tex(16 * 16);
  for (int y = 0; y < 16; ++y)  // green grows from the top row of the picture down
    for (int x = 0; x < 16; ++x) tex[(15 - y) * 16 + x] = 0xFF000000u | (128u << 16) | (DWORD(y * 15) << 8) | DWORD(x * 15);
  // A square turned away from the viewer: depth 2 on the left, 4 on the right.
  const float z[4] = {2, 4, 4, 2}, X[4] = {-1, 1, 1, -1}, Y[4] = {-1, -1, 1, 1};
  const float uv[4][2] = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
  KY3DPOLY q = Flat({}, 0);
  q.count = 4;
  q.state = KY3DRS_TEXTURED;
  for (int i = 0; i < 4; ++i) q.v[i] = {32 + 40 * X[i] / z[i], 24 + 40 * Y[i] / z[i], z[i], 1 / z[i], uv[i][0], uv[i][1], 1.0f};
  Scene s;
  s.polys.push_back({q, tex.data(), 16, 16});
  CheckScene(s, 64, 48, 0xFF000000u);
}

// Two halves of a square in the same colour: every pixel inside the square gets the full
// colour, the diagonal included.
TEST(ABufferRender, SameColourHalvesResolveToTheFullColour) {
  A_Buffer ab;
  ASSERT_EQ(1, ab.Init());
  Canvas c(40, 40, 0xFF000000u);
  tA_BUFFER_PARAM prm = Params(c);
  ASSERT_EQ(1, ab.BeginFrame(&prm));
  KY3DPOLY a = Flat({V(4, 4), V(36.f, 4), V(36.f, 36.f)}, 0xFFC87D33u);
  KY3DPOLY b = Flat({V(4, 4), V(36.f, 36.f), V(4, 36.f)}, 0xFFC87D33u);
  ASSERT_EQ(1, ab.DrawPoly(&a, 0.3, 0.2));
  ASSERT_EQ(1, ab.DrawPoly(&b, 0.3, 0.2));
  ab.EndFrame();
  ab.Cleanup();
  for (int y = 5; y < 36; ++y)
    for (int x = 5; x < 36; ++x) ASSERT_EQ(0xFFC87D33u, c.At(x, y)) << x << "," << y;
  EXPECT_EQ(0xFF000000u, c.At(2, 20));
}

}  // namespace
