// Rectangle-pair clipping against a plainly written reference of its arithmetic, and the
// generic, sub-pixel and plug-in records: pixel offsets, strides, first bytes, steps,
// colour-table pointers and the cases with nothing to do.
#include <string.h>
#include <algorithm>
#include <random>
#include <vector>
#include "ky_testutil.h"
#include "tellarok.h"

namespace {

// Reference: clip a to k, trimming partner b by (b extent x cut) / (k extent). The
// horizontal pass is skipped for bounds of no positive width, the vertical one only for a
// height of exactly 0.
void RefClip(RECT &a, const RECT &k, RECT &b) {
  if (a.left >= k.left && a.top >= k.top && a.right <= k.right && a.bottom <= k.bottom) return;
  if (a.right <= k.left || a.left >= k.right || a.bottom <= k.top || a.top >= k.bottom) {
    a = b = RECT{0, 0, 0, 0};
    return;
  }
  auto axis = [](LONG &a0, LONG &a1, LONG k0, LONG k1, LONG &b0, LONG &b1) {
    const long long ke = k1 - k0, be = b1 - b0, c0 = std::max(0L, k0 - a0), c1 = std::max(0L, a1 - k1);
    b0 += LONG(be * c0 / ke);
    b1 -= LONG(be * c1 / ke);
    a0 += LONG(c0);
    a1 -= LONG(c1);
  };
  if (k.right - k.left > 0) axis(a.left, a.right, k.left, k.right, b.left, b.right);
  if (k.bottom - k.top != 0) axis(a.top, a.bottom, k.top, k.bottom, b.top, b.bottom);
}

bool Same(const RECT &a, const RECT &b) {
  return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

TEST(ClipRects, TableCasesMatchTheArithmetic) {
  const RECT k = {0, 0, 100, 50};
  struct {
    RECT a, b, wantA, wantB;
  } rows[] = {
      // inside: untouched
      {{10, 10, 20, 20}, {0, 0, 7, 7}, {10, 10, 20, 20}, {0, 0, 7, 7}},
      // outside (touching the right or bottom edge): both emptied
      {{100, 0, 120, 10}, {3, 3, 9, 9}, {0, 0, 0, 0}, {0, 0, 0, 0}},
      {{0, 50, 10, 60}, {3, 3, 9, 9}, {0, 0, 0, 0}, {0, 0, 0, 0}},
      // straddling the left edge: partner cut by 200 x 10 / 100 = 20 (bounds' width)
      {{-10, 0, 90, 50}, {0, 0, 200, 50}, {0, 0, 90, 50}, {20, 0, 200, 50}},
      // straddling right and bottom
      {{50, 40, 150, 60}, {0, 0, 100, 20}, {50, 40, 100, 50}, {0, 0, 50, 16}},
      // larger than the bounds on every side
      {{-50, -25, 150, 75}, {0, 0, 400, 100}, {0, 0, 100, 50}, {200, 50, 200, 50}},
  };
  for (auto &r : rows) {
    RECT a = r.a, b = r.b;
    KyDibClipRectPair(&a, &k, &b);
    EXPECT_TRUE(Same(a, r.wantA)) << a.left << "," << a.top << "," << a.right << "," << a.bottom;
    EXPECT_TRUE(Same(b, r.wantB)) << b.left << "," << b.top << "," << b.right << "," << b.bottom;
  }
}

TEST(ClipRects, RandomPairsMatchTheArithmetic) {
  std::mt19937 rng(2024);
  std::uniform_int_distribution<LONG> c(-300, 300);
  for (int n = 0; n < 2000; ++n) {
    auto rect = [&](DWORD most) {
      RECT r = {c(rng), c(rng), 0, 0};
      r.right = r.left + LONG(rng() % most);
      r.bottom = r.top + LONG(rng() % most);
      return r;
    };
    const RECT k = rect(200);
    RECT a = rect(400), b = rect(400), ra = a, rb = b;
    KyDibClipRectPair(&a, &k, &b);
    RefClip(ra, k, rb);
    ASSERT_TRUE(Same(a, ra) && Same(b, rb)) << "seed 2024 case " << n;
  }
}

// Headers with their pixels behind them, as the records expect.
struct Bitmap {
  std::vector<BYTE> mem;
  BITMAPINFOHEADER *h() { return reinterpret_cast<BITMAPINFOHEADER *>(mem.data()); }
  BYTE *at(size_t offset) { return mem.data() + offset; }
};

Bitmap Make(int type, LONG w, LONG hgt, bool withTable = false) {
  Bitmap b;
  b.mem.resize(52 + 1024 + 16 * size_t(w + 8) * hgt);
  std::vector<RGBQUAD> table(256);
  EXPECT_EQ(KyVideo_InitBitmapInfo(b.h(), type, w, hgt, withTable ? table.data() : nullptr, 0, nullptr), S_OK);
  return b;
}

TEST(ClipRects, PrepareRectsDeltasAndMissingRectangles) {
  Bitmap d = Make(KYPT_RGB24, 100, 50), s = Make(KYPT_RGB24, 40, 40);
  const RECT dr = {-10, 0, 90, 50}, sr = {-10, -10, 50, 50};
  RECT dOut, sOut;
  LONG deltas[4];
  KyDibPrepareRects(d.h(), &dOut, &dr, s.h(), &sOut, &sr, deltas);
  // Source first: cut 10 on every side against the source (40 wide), the destination
  // trimmed by 100 x 10 / 40 = 25 across and 50 x 10 / 40 = 12 down; then the destination clip.
  RECT ra = sr, rb = dr;
  const RECT sk = {0, 0, 40, 40}, dk = {0, 0, 100, 50};
  RefClip(ra, sk, rb);
  RefClip(rb, dk, ra);
  EXPECT_TRUE(Same(sOut, ra) && Same(dOut, rb));
  const LONG want[4] = {ra.left + 10, ra.top + 10, 50 - ra.right, 50 - ra.bottom};
  EXPECT_EQ(memcmp(deltas, want, sizeof want), 0) << deltas[0] << "," << deltas[1] << "," << deltas[2] << "," << deltas[3];
  // A missing source is never clipped and reports no deltas.
  const RECT outside = {200, 0, 300, 10};
  KyDibPrepareRects(d.h(), &dOut, &outside, s.h(), &sOut, nullptr, deltas);
  EXPECT_TRUE(Same(dOut, RECT{0, 0, 0, 0}));
  EXPECT_TRUE(Same(sOut, RECT{0, 0, 40, 40}));
  EXPECT_EQ(deltas[0] | deltas[1] | deltas[2] | deltas[3], 0);
}

// The generic record for whole bitmaps or rectangles of them, with the bitmaps' own pixels.
int Generic(tKYDIBGENERICPARAMS &p, Bitmap &d, const RECT *dr, Bitmap *s, const RECT *sr = nullptr,
            DWORD flags = 0) {
  return KyDibPrepareGenericParams(&p, d.h(), nullptr, dr, 0, s ? s->h() : nullptr, nullptr, sr, 0, flags);
}

TEST(GenericParams, SameSizeCopyFields) {
  Bitmap d = Make(KYPT_RGB8, 10, 6), s = Make(KYPT_RGB24, 12, 8);
  const RECT dr = {2, 1, 7, 4}, sr = {3, 3, 8, 6};
  tKYDIBGENERICPARAMS p;
  ASSERT_EQ(Generic(p, d, &dr, &s, &sr, 0xABC), 1);
  EXPECT_EQ(p.scaled, 0u);
  EXPECT_TRUE(p.xStep == 16384 && p.yStep == 16384);
  EXPECT_EQ(p.srcX | p.srcY, 0);
  // biClrUsed 255 (the initialiser's count): pixels after 255 entries, table pointer set.
  EXPECT_EQ(p.dstPixels, d.at(40 + 255 * 4));
  EXPECT_EQ(p.dstColors, reinterpret_cast<RGBQUAD *>(d.at(40)));
  EXPECT_EQ(p.dstStride, 12);
  EXPECT_EQ(p.dstFirst, d.at(40 + 255 * 4) + (6 - 4) * 12 + 2);
  EXPECT_TRUE(p.dstWidth == 5 && p.dstHeight == 3);
  EXPECT_NE(p.quantizer, nullptr);
  EXPECT_EQ(p.srcPixels, s.at(40));
  EXPECT_EQ(p.srcColors, nullptr);
  EXPECT_EQ(p.srcStride, 36);
  EXPECT_EQ(p.srcFirst, s.at(40) + (8 - 6) * 36 + 3 * 3);
  EXPECT_EQ(p.flags, 0xABCu);
  EXPECT_EQ(p.clipLeft | p.clipTop | p.clipRight | p.clipBottom, 0);
  KyDibCleanupGenericParams(&p);
  EXPECT_EQ(p.quantizer, nullptr);
  KyDibCleanupGenericParams(&p);
}

TEST(GenericParams, StepsOffsetsAndRules) {
  // Scaled: 10 -> 4 wide, end pixels mapped onto each other; one-pixel-wide destination.
  Bitmap d = Make(KYPT_RGB32, 4, 3), s = Make(KYPT_RGB32, 10, 7);
  tKYDIBGENERICPARAMS p;
  ASSERT_EQ(Generic(p, d, nullptr, &s), 1);
  EXPECT_EQ(p.scaled, 1u);
  EXPECT_EQ(p.xStep, (10 * 16384 - 16384) / 3);
  EXPECT_EQ(p.yStep, (7 * 16384 - 16384) / 2);
  EXPECT_EQ(p.quantizer, nullptr);
  const RECT one = {1, 0, 2, 3};
  ASSERT_EQ(Generic(p, d, &one, &s), 1);
  EXPECT_EQ(p.xStep, 10 * 16384 - 16384);
  EXPECT_EQ(p.dstFirst, d.at(40) + 4);
  // Sub-byte destination: bit offset of the left edge; given stride and pixels are kept.
  Bitmap g = Make(KYPT_GRAY1, 30, 4);
  BYTE pixels[64];
  const RECT r = {11, 0, 20, 2};
  ASSERT_EQ(KyDibPrepareGenericParams(&p, g.h(), pixels, &r, 8, s.h(), nullptr, nullptr, 0, 0), 1);
  EXPECT_EQ(p.dstBitOffset, 3);
  EXPECT_EQ(p.dstFirst, pixels + 2 * 8 + 1);
  EXPECT_EQ(p.dstStride, 8);
  // Palette with an implied table (biClrUsed 0): pixels after 256 entries, no table pointer.
  Bitmap t = Make(KYPT_RGB8, 8, 2, true);
  ASSERT_EQ(t.h()->biClrUsed, 0u);
  ASSERT_EQ(Generic(p, d, nullptr, &t), 1);
  EXPECT_EQ(p.srcPixels, t.at(40 + 1024));
  EXPECT_EQ(p.srcColors, nullptr);
  // Bit fields: pixels 52 bytes in whatever biSize says.
  Bitmap b = Make(KYPT_RGB565, 8, 2);
  b.h()->biSize = 124;
  ASSERT_EQ(Generic(p, d, nullptr, &b), 1);
  EXPECT_EQ(p.srcPixels, b.at(52));
}

TEST(GenericParams, NothingToDo) {
  Bitmap d = Make(KYPT_RGB24, 10, 10), s = Make(KYPT_RGB24, 10, 10);
  tKYDIBGENERICPARAMS p;
  const RECT outside = {20, 20, 30, 30}, empty = {3, 3, 3, 9};
  const tKYDIBGENERICPARAMS zero = {};
  EXPECT_EQ(Generic(p, d, &outside, &s), 0);
  EXPECT_EQ(memcmp(&p, &zero, sizeof p), 0);
  EXPECT_EQ(Generic(p, d, nullptr, &s, &empty), 0);
  EXPECT_EQ(Generic(p, d, nullptr, nullptr), 0);
  s.h()->biBitCount = 7;
  EXPECT_EQ(Generic(p, d, nullptr, &s), 0);
  EXPECT_EQ(memcmp(&p, &zero, sizeof p), 0);
}

TEST(SubpixelParams, ScalesStepsAndUsedSource) {
  Bitmap d = Make(KYPT_RGB8, 10, 10), s = Make(KYPT_RGB24, 20, 20);
  tKYDIBSUBPIXELPARAMS p;
  auto prepare = [&](const RECT *dr, const RECT *sr, DWORD flags) {
    return DibPrepareSubpixelParam(&p, d.h(), nullptr, dr, 0, s.h(), nullptr, sr, 0, flags);
  };
  ASSERT_EQ(prepare(nullptr, nullptr, 7), 1);
  EXPECT_TRUE(p.xScale == 32768 && p.yScale == 32768);
  EXPECT_EQ(p.xStep, LONG(19LL * 16384 * 16384 / (9 * 16384)));
  EXPECT_TRUE(Same(p.srcUsed, RECT{0, 0, 20 * 16384, 20 * 16384}));
  EXPECT_TRUE(Same(p.dstGiven, RECT{0, 0, 10 * 16384, 10 * 16384}));
  EXPECT_EQ(p.dstLastRow, d.at(40 + 255 * 4) + 9 * 12);
  EXPECT_TRUE(p.dstRowStep == -12 && p.srcRowStep == -60);
  EXPECT_NE(p.quantizer, nullptr);
  EXPECT_EQ(p.flags, 7u);
  DibCleanupSubpixelParam(&p);
  EXPECT_EQ(p.quantizer, nullptr);
  // Half the destination hangs off the left edge: only the right half of the source is used.
  const RECT dr = {-5 * 16384, 0, 5 * 16384, 10 * 16384};
  ASSERT_EQ(prepare(&dr, nullptr, 0), 1);
  EXPECT_TRUE(Same(p.dstClipped, RECT{0, 0, 5 * 16384, 10 * 16384}));
  EXPECT_TRUE(Same(p.srcUsed, RECT{10 * 16384, 0, 20 * 16384, 20 * 16384}));
  EXPECT_EQ(p.xStep, LONG((10LL * 16384 - 16384) * 16384 / (4 * 16384)));
  DibCleanupSubpixelParam(&p);
  // Nothing to do: destination outside, less than a pixel of source, under a pixel left.
  const RECT out = {20 * 16384, 0, 30 * 16384, 16384}, tiny = {0, 0, 16383, 16384};
  const RECT sliver = {-16384, 0, 8192, 16384};
  EXPECT_EQ(prepare(&out, nullptr, 0), 0);
  EXPECT_EQ(prepare(nullptr, &tiny, 0), 0);
  EXPECT_EQ(prepare(&sliver, nullptr, 0), 0);
  EXPECT_EQ(p.quantizer, nullptr);
}

TEST(PluginParams, TypesSizesAndFields) {
  Bitmap d = Make(KYPT_RGB32, 8, 6), s = Make(KYPT_RGB32, 8, 6), f = Make(KYPT_RGBAFLOAT, 8, 6);
  Bitmap c = Make(KYPT_RGB24, 8, 6), a = Make(KYPT_RGBA32, 8, 6);
  tKYDIBPLUGINPARAMS p;
  LONG isFloat = 9, isEmpty = 9;
  int context = 0;
  auto prepare = [&](tKYDIBPLUGINPARAMS *pp, Bitmap *dst, const RECT *dr, Bitmap &src, const RECT *sr) {
    return DibPreparePluginParam(pp, dst ? dst->h() : nullptr, nullptr, dr, 0, src.h(), nullptr, sr, 0,
                                 &context, &isFloat, &isEmpty);
  };
  EXPECT_EQ(prepare(nullptr, &d, nullptr, s, nullptr), E_POINTER);
  EXPECT_EQ(prepare(&p, nullptr, nullptr, s, nullptr), E_POINTER);
  EXPECT_EQ(prepare(&p, &d, nullptr, a, nullptr), E_INVALIDARG);  // types differ
  EXPECT_EQ(prepare(&p, &c, nullptr, c, nullptr), E_INVALIDARG);  // 24-bit is not a plug-in type
  EXPECT_EQ(isFloat, 0);
  ASSERT_EQ(prepare(&p, &f, nullptr, f, nullptr), S_OK);
  EXPECT_EQ(isFloat, 1);
  EXPECT_EQ(p.dstStride, 128);
  const RECT dr = {2, 1, 6, 4}, sr = {-2, 0, 2, 3}, sr2 = {0, 2, 4, 5};
  ASSERT_EQ(prepare(&p, &d, &dr, s, &sr), E_INVALIDARG);  // clipping would change the sizes
  ASSERT_EQ(prepare(&p, &d, &dr, s, &sr2), S_OK);
  EXPECT_TRUE(isFloat == 0 && isEmpty == 0);
  EXPECT_EQ(p.context, &context);
  EXPECT_EQ(p.dstFirst, d.at(40) + (6 - 4) * 32 + 2 * 4);
  EXPECT_EQ(p.srcFirst, s.at(40) + (6 - 5) * 32);
  EXPECT_TRUE(p.dstWidth == 4 && p.srcHeight == 3);
  const RECT outside = {100, 0, 110, 6};
  ASSERT_EQ(prepare(&p, &d, &outside, s, nullptr), S_OK);
  EXPECT_EQ(isEmpty, 1);
}

} // namespace
