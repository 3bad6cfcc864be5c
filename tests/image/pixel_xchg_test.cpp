// Pixel exchange: every type read into and written from both working forms (bit-exact where
// the type fits the form), readers against plain per-channel formulas, the flag and column
// rules, sampling and the row operations.
#include <math.h>
#include <string.h>
#include <random>
#include <tuple>
#include <vector>
#include "ky_testutil.h"
#include "tellarok.h"

namespace {

int Bpp(int type) { return KyGetPixelBitsPerChannel(type, nullptr); }

// A palette of distinct colours for the palette types.
std::vector<RGBQUAD> DistinctPalette(int n) {
  std::vector<RGBQUAD> p(n);
  for (int i = 0; i < n; ++i) p[i] = RGBQUAD{BYTE(i * 7), BYTE(255 - i), BYTE((i * 53) & 0xFF), 0};
  return p;
}

// A random row of `count` valid pixels of a type (unused bits clear, floats on the working
// form's levels).
std::vector<BYTE> RandomRow(int type, int count, bool deep, std::mt19937 &rng) {
  const int bpp = Bpp(type);
  std::vector<BYTE> row(size_t(count) * bpp / 8 + 24);
  for (BYTE &b : row) b = BYTE(rng());
  for (int i = 0; i < count; ++i) {
    if (type == KYPT_RGB555) row[2 * i + 1] &= 0x7F;
    if (type == KYPT_RGB32) row[4 * i + 3] = 0;
    if (type == KYPT_RGB101010) row[4 * i + 3] &= 0x3F;
    if (type == KYPT_RGBAFLOAT)
      for (int c = 0; c < 4; ++c) {
        const float f = deep ? float(rng() % 65536) / 65535.0f : float(rng() % 256) / 255.0f;
        memcpy(&row[16 * i + 4 * c], &f, 4);
      }
  }
  return row;
}

bool BitsEqual(const std::vector<BYTE> &a, const std::vector<BYTE> &b, int from, int bits) {
  for (int k = from; k < from + bits; ++k)
    if (((a[k >> 3] >> (7 - (k & 7))) ^ (b[k >> 3] >> (7 - (k & 7)))) & 1) return false;
  return true;
}

// Types whose every value survives the working form exactly.
bool ExactIn(int type, bool deep) {
  if (deep) return type != KYPT_GRAY32;
  return type <= KYPT_GRAY8 || (type >= KYPT_RGB4 && type <= KYPT_RGBA32);
}

struct Case {
  int type;
  bool deep;
};

class RoundTrip : public ::testing::TestWithParam<std::tuple<int, bool>> {};

TEST_P(RoundTrip, ReadThenWriteKeepsEveryValueTheTypeHolds) {
  const Case c = {std::get<0>(GetParam()), std::get<1>(GetParam())};
  const bool palette = c.type == KYPT_RGB1 || c.type == KYPT_RGB4 || c.type == KYPT_RGB8;
  std::mt19937 rng(c.type * 2 + c.deep);
  const int bpp = Bpp(c.type);
  // Sub-byte types also start inside a byte, as a rectangle's left edge makes them.
  for (int offset : {0, 8 - bpp}) {
    if (offset < 0 || (bpp >= 8 && offset != 0)) continue;
    for (int withTable = 0; withTable <= (palette ? 1 : 0); ++withTable) {
      tKYDIBXCHGPARAMS x;
      ASSERT_EQ(KyDibPrepareXchgParams(c.type, c.type, c.deep ? 0x30 : 0x10, &x, nullptr), S_OK);
      HGLOBAL q = nullptr;
      std::vector<RGBQUAD> pal;
      if (withTable) {
        pal = DistinctPalette(1 << bpp);
        BYTE header[40 + 1024];
        auto *h = reinterpret_cast<BITMAPINFOHEADER *>(header);
        ASSERT_EQ(KyVideo_InitBitmapInfo(h, c.type, 8, 8, pal.data(), 1 << bpp, nullptr), S_OK);
        q = KyDibCreateColorQuantizer(h);
        ASSERT_NE(q, nullptr);
        x.srcColors = x.dstColors = pal.data();
        x.dstQuantizer = q;
      }
      const int count = 37;
      std::vector<BYTE> src = RandomRow(c.type, count, c.deep, rng);
      std::vector<BYTE> dst(src.size(), 0), work(count * 8 + 8);
      void *w = x.readRow(&x, src.data(), offset, work.data(), count);
      x.writeRow(&x, dst.data(), offset, w, count);
      if (ExactIn(c.type, c.deep)) {
        EXPECT_TRUE(BitsEqual(src, dst, offset, count * bpp)) << "type " << c.type << " table " << withTable;
      }
      KyDibDestroyColorQuantizer(q);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Types, RoundTrip, ::testing::Combine(::testing::Range(KYPT_FIRST, KYPT_LAST + 1), ::testing::Bool()),
                         [](const auto &i) {
                           return "T" + std::to_string(std::get<0>(i.param)) + (std::get<1>(i.param) ? "_16" : "_8");
                         });

int Round(double v) { return int(floor(v + 0.5)); }

// Each packed channel scales to round(v x 255 / (2^n - 1)) in the 8-bit form and
// round(v x 65535 / (2^n - 1)) in the 16-bit form; types without alpha read opaque.
TEST(PixelXchg, ReadersMatchPlainChannelFormulas) {
  struct Layout {
    int type, bits, shift[4], width[4];  // blue, green, red, alpha; width 0: no alpha
  } layouts[] = {
      {KYPT_RGB555, 16, {0, 5, 10}, {5, 5, 5}},       {KYPT_RGB565, 16, {0, 5, 11}, {5, 6, 5}},
      {KYPT_RGB101010, 32, {0, 10, 20}, {10, 10, 10}}, {KYPT_GRAY4, 4, {0, 0, 0}, {4, 4, 4}},
      {KYPT_GRAY16, 16, {0, 0, 0}, {16, 16, 16}},     {KYPT_RGBA64, 64, {0, 16, 32, 48}, {16, 16, 16, 16}},
      {KYPT_RGB24, 24, {0, 8, 16}, {8, 8, 8}},
  };
  std::mt19937 rng(7);
  for (int deep = 0; deep <= 1; ++deep) {
    const double max = deep ? 65535 : 255;
    for (const Layout &l : layouts) {
      tKYDIBXCHGPARAMS x;
      ASSERT_EQ(KyDibPrepareXchgParams(l.type, l.type, deep ? 0x30 : 0x10, &x, nullptr), S_OK);
      std::vector<BYTE> row = RandomRow(l.type, 16, deep, rng);
      tKYPIXEL64 out64[16];
      tKYPIXEL32 out32[16];
      x.readRow(&x, row.data(), 0, deep ? (void *)out64 : (void *)out32, 16);
      for (int i = 0; i < 16; ++i) {
        ULONGLONG v = 0;  // sub-byte pixels from the high bits of a byte down
        if (l.bits < 8) v = row[i * l.bits / 8] >> (8 - l.bits - i * l.bits % 8);
        else memcpy(&v, &row[i * l.bits / 8], l.bits / 8);
        const int got[4] = {deep ? out64[i].blue : out32[i].blue, deep ? out64[i].green : out32[i].green,
                             deep ? out64[i].red : out32[i].red, deep ? out64[i].alpha : out32[i].alpha};
        for (int k = 0; k < 4; ++k) {
          const double n = double((1ull << l.width[k]) - 1);
          const int want = l.width[k] ? Round(double((v >> l.shift[k]) & ULONGLONG(n)) * max / n) : int(max);
          EXPECT_EQ(got[k], want) << "type " << l.type << " px " << i << " ch " << k;
        }
      }
    }
  }
}

TEST(PixelXchg, ConversionsBetweenTypes) {
  tKYDIBXCHGPARAMS x;
  // RGB24 -> GRAY8 stores the luminance (77 R + 150 G + 29 B + 128) / 256.
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_GRAY8, KYPT_RGB24, 0, &x, nullptr), S_OK);
  const BYTE rgb[6] = {10, 200, 30, 255, 255, 255};  // blue, green, red
  tKYPIXEL32 w[2];
  BYTE gray[2];
  x.writeRow(&x, gray, 0, x.readRow(&x, rgb, 0, w, 2), 2);
  EXPECT_EQ(gray[0], (77 * 30 + 150 * 200 + 29 * 10 + 128) >> 8);
  EXPECT_EQ(gray[1], 255);
  // RGBA32 -> RGB32 clears the fourth byte; RGB32 reads opaque.
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGB32, KYPT_RGBA32, 0, &x, nullptr), S_OK);
  BYTE px[4] = {1, 2, 3, 4}, out[4];
  x.writeRow(&x, out, 0, x.readRow(&x, px, 0, w, 1), 1);
  EXPECT_TRUE(out[2] == 3 && out[3] == 0);
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGBA32, KYPT_RGB32, 0, &x, nullptr), S_OK);
  x.readRow(&x, out, 0, w, 1);
  EXPECT_EQ(w[0].alpha, 255);
  // Float channels are clamped; not-a-number reads as 0.
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGBA64, KYPT_RGBAFLOAT, 0x20, &x, nullptr), S_OK);
  const float f[4] = {-0.5f, 2.0f, NAN, 0.5f};
  tKYPIXEL64 p;
  x.readRow(&x, f, 0, &p, 1);
  EXPECT_EQ(p.blue, 0); EXPECT_EQ(p.green, 65535); EXPECT_EQ(p.red, 0); EXPECT_EQ(p.alpha, 32768);
  // A palette type without a table reads its index as a gray level.
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGB24, KYPT_RGB4, 0, &x, nullptr), S_OK);
  const BYTE idx = 0x3F;
  x.readRow(&x, &idx, 0, w, 2);
  EXPECT_EQ(w[0].red, 3 * 17);
  EXPECT_EQ(w[1].green, 255);
}

struct FlagRow {
  DWORD given;
  int dst, src;
  DWORD effective;
};

TEST(PixelXchg, EffectiveFlagsAndPaths) {
  const FlagRow rows[] = {
      {0x00000001, KYPT_RGBA32, KYPT_RGBA32, 0x180},
      {0xFFFFFFF1, KYPT_RGBA32, KYPT_RGBA32, (0xFFFFFFF1 & 0x07FFF1F0) + 0x180},
      {0x00000002, KYPT_RGBA32, KYPT_RGBA32, 0x1C0},
      {0x00000003, KYPT_RGBA32, KYPT_RGBA32, 0x1C0 + 0x20 + 0x10},  // RGBA32 is not 16-bit
      {0x00000003, KYPT_RGBA64, KYPT_RGBA64, 0x1C0 + 0x20},
      {0x00000004, KYPT_RGBA64, KYPT_RGBA64, 0x1C0 + 0x30},
      {0x00000002, KYPT_RGB24, KYPT_RGBA32, 0x1C0 + 0x10},
      {0x00AB0005, KYPT_RGBA32, KYPT_RGBA32, 0x00AB0005},
      {0x00000000, KYPT_GRAY8, KYPT_RGBA32, 0x10},
  };
  for (const FlagRow &r : rows) {
    tKYDIBXCHGPARAMS x;
    ASSERT_EQ(KyDibPrepareXchgParams(r.dst, r.src, r.given, &x, nullptr), S_OK);
    EXPECT_EQ(x.flags, r.effective) << std::hex << r.given;
    EXPECT_EQ(x.flagsByte, (r.effective >> 16) & 0xFF);
    EXPECT_TRUE(x.srcType == r.src && x.dstType == r.dst);
  }
  // The direct path hands out the row itself.
  tKYDIBXCHGPARAMS x;
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGBA32, KYPT_RGBA32, 0, &x, nullptr), S_OK);
  BYTE row[8] = {1, 2, 3, 4, 5, 6, 7, 8}, buf[8] = {};
  EXPECT_EQ(x.readRow(&x, row, 0, buf, 2), (void *)row);
  x.writeRow(&x, buf, 0, row, 2);
  EXPECT_EQ(memcmp(buf, row, 8), 0);
  EXPECT_EQ(KyDibPrepareXchgParams(15, KYPT_RGB24, 0, &x, nullptr), E_INVALIDARG);
  EXPECT_EQ(KyDibPrepareXchgParams(KYPT_RGB24, 33, 0, &x, nullptr), E_INVALIDARG);
  EXPECT_EQ(x.readRow, nullptr);
}

TEST(PixelXchg, SamplingAndVerticalBlend) {
  tKYDIBXCHGPARAMS x;
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_GRAY8, KYPT_GRAY8, 0, &x, nullptr), S_OK);
  const BYTE rows[2][4] = {{0, 100, 200, 40}, {255, 255, 255, 255}};
  tKYPIXEL32 w[7];
  // Positions 0, 0.5, 1.0, ... 3.0: linear between neighbours.
  x.readSampled(&x, rows[0], 0, 0, 8192, w, 7);
  const int want[7] = {0, 50, 100, 150, 200, 120, 40};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(w[i].red, want[i]) << i;
  x.readSampledOne(&x, rows[0] + 1, 0, 12345, 999, w, 3);
  EXPECT_EQ(w[2].green, 100);
  x.readPixel(&x, rows[0], 0, 2, w);
  EXPECT_EQ(w[0].blue, 200);
  // A quarter of the way to the next row.
  x.srcNextStride = 4;
  x.yFraction = 4096 | (5 << 14);  // only the low 14 bits count
  x.readBlended(&x, rows[0], 0, w, 4);
  EXPECT_EQ(w[0].red, (255 * 4096 + 8192) >> 14);
  EXPECT_EQ(w[2].red, (200 * 12288 + 255 * 4096 + 8192) >> 14);
  x.readSampledBlended(&x, rows[0], 0, 8192, 16384, w, 2);
  EXPECT_EQ(w[0].red, ((50 * 12288 + 255 * 4096 + 8192) >> 14));
  x.srcNextStride = 0;  // last row: no blending
  x.readBlended(&x, rows[0], 0, w, 4);
  EXPECT_EQ(w[3].red, 40);
}

TEST(PixelXchg, Operations) {
  tKYDIBXCHGPARAMS x;
  DWORD op[7] = {KYXCHGOP_COPY, 0, 0, 0, 0, 0, 0};
  for (DWORD bad : {8u, 0x7FFFFFFFu}) {
    op[0] = bad;
    EXPECT_EQ(KyDibPrepareXchgParams(KYPT_RGBA32, KYPT_RGBA32, 0x10, &x, op), E_NOTIMPL);
    EXPECT_EQ(x.readRow, nullptr);
  }
  // Copy weighted by coverage, no alpha, no opacity.
  op[0] = KYXCHGOP_COPY;
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGBA32, KYPT_RGBA32, 0x10, &x, op), S_OK);
  EXPECT_EQ(x.op[0], 0u);
  tKYPIXEL32 d[2] = {{0, 0, 0, 0}, {100, 100, 100, 100}}, s[2] = {{255, 255, 255, 255}, {0, 50, 200, 0}};
  const BYTE cov[2] = {255, 128};
  x.opRowCoverage(&x, d, s, cov, 2);
  EXPECT_EQ(d[0].red, 255);
  EXPECT_EQ(d[1].blue, (100 * 127 + 0 * 128 + 127) / 255);
  // Preset 2 (opacity set): a solid colour at a quarter opacity in the 16-bit form.
  op[1] = 16384;
  op[2] = 0xFFFF0000;  // opaque red
  ASSERT_EQ(KyDibPrepareXchgParams(KYPT_RGBA64, KYPT_RGBA64, 0x4, &x, op), S_OK);
  tKYPIXEL64 p = {0, 0, 0, 65535};
  x.opSolid(&x, &p, nullptr, nullptr, 1);
  EXPECT_TRUE(p.red == 16384 && p.blue == 0 && p.alpha == 65535);
}

TEST(Quantizer, NearestEntryAndTies) {
  BYTE mem[40 + 16 * 4] = {};
  auto *h = reinterpret_cast<BITMAPINFOHEADER *>(mem);
  const RGBQUAD pal[4] = {{0, 0, 0, 0}, {255, 255, 255, 0}, {0, 0, 200, 0}, {0, 0, 200, 0}};
  ASSERT_EQ(KyVideo_InitBitmapInfo(h, KYPT_RGB4, 4, 4, pal, 4, nullptr), S_OK);
  HGLOBAL q = KyDibCreateColorQuantizer(h);
  ASSERT_NE(q, nullptr);
  EXPECT_EQ(KyDibQuantizeColor(q, 0x000000), 0);
  EXPECT_EQ(KyDibQuantizeColor(q, 0xF0F0F0), 1);
  EXPECT_EQ(KyDibQuantizeColor(q, 0xC00010), 2);  // red 0xC0: entry 2 (its twin 3 loses)
  EXPECT_EQ(KyDibQuantizeColor(q, 0xC00010), 2);  // from the cache this time
  const RGBQUAD in[3] = {{250, 250, 250, 0}, {1, 2, 3, 0}, {0, 0, 190, 0}};
  BYTE out[3];
  EXPECT_EQ(KyDibQuantizePalette(q, in, out, 3), S_OK);
  EXPECT_TRUE(out[0] == 1 && out[1] == 0 && out[2] == 2);
  EXPECT_EQ(KyDibQuantizePalette(q, nullptr, out, 3), E_POINTER);
  KyDibDestroyColorQuantizer(q);
  KyDibDestroyColorQuantizer(nullptr);
  EXPECT_EQ(KyDibQuantizeColor(nullptr, 0), 0);
  BITMAPINFOHEADER deep = {};
  ASSERT_EQ(KyVideo_InitBitmapInfo(&deep, KYPT_RGB24, 4, 4, nullptr, 0, nullptr), S_OK);
  EXPECT_EQ(KyDibCreateColorQuantizer(&deep), nullptr);
}

// Reference of one operation on one channel, in levels of the working form.
double RefOp(int op, double d, double s, double m) {
  switch (op) {
    case KYXCHGOP_COPY: return s;
    case KYXCHGOP_ADD: return d + s > m ? m : d + s;
    case KYXCHGOP_SUBTRACT: return d > s ? d - s : 0;
    case KYXCHGOP_MULTIPLY: return d * s / m;
    case KYXCHGOP_SCREEN: return d + s - d * s / m;
    case KYXCHGOP_DARKEN: return d < s ? d : s;
    case KYXCHGOP_LIGHTEN: return d > s ? d : s;
    default: return fabs(d - s);
  }
}

// Every operation, with and without source alpha and opacity, in both working forms, against
// the blend written out in doubles (within a level and a half for the rounding steps).
TEST(PixelXchg, OperationsMatchReference) {
  std::mt19937 rng(555);
  for (int deep = 0; deep <= 1; ++deep) {
    const double m = deep ? 65535 : 255;
    for (int op = KYXCHGOP_COPY; op <= KYXCHGOP_DIFFERENCE; ++op)
      for (DWORD flags : {0x10u, 0x50u, 0x90u, 0xD0u}) {
        const DWORD opacity = rng() % 65537;
        DWORD block[7] = {DWORD(op), opacity, 0, 0, 0, 0, 0};
        tKYDIBXCHGPARAMS x;
        ASSERT_EQ(KyDibPrepareXchgParams(deep ? KYPT_RGBA64 : KYPT_RGBA32, KYPT_RGBA32,
                                         flags | (deep ? 0x20 : 0), &x, block), S_OK);
        const int n = 64;
        std::vector<WORD> d(4 * n), s(4 * n), before;
        std::vector<BYTE> cov(n), d8(4 * n), s8(4 * n);
        for (int i = 0; i < 4 * n; ++i) {
          d8[i] = BYTE(d[i] = WORD(rng() % DWORD(m + 1)));
          s8[i] = BYTE(s[i] = WORD(rng() % DWORD(m + 1)));
          cov[i / 4] = BYTE(rng());
        }
        before = d;
        if (deep) x.opRowCoverage(&x, d.data(), s.data(), cov.data(), n);
        else x.opRowCoverage(&x, d8.data(), s8.data(), cov.data(), n);
        for (int i = 0; i < n; ++i) {
          double w = cov[i] / 255.0;
          if (flags & 0x80) w *= opacity / 65536.0;
          const double sa = s[4 * i + 3];
          if (flags & 0x40) w *= sa / m;
          for (int ch = 0; ch < 4; ++ch) {
            const double dv = before[4 * i + ch], sv = s[4 * i + ch];
            double want = dv + (RefOp(op, dv, sv, m) - dv) * w;
            if ((flags & 0x40) && ch == 3) want = w * m + dv * (1 - w);
            const double got = deep ? d[4 * i + ch] : d8[4 * i + ch];
            ASSERT_NEAR(got, want, 1.5) << "seed 555 op " << op << " flags " << flags << " deep "
                                        << deep << " pixel " << i << " channel " << ch;
          }
        }
      }
  }
}

} // namespace
