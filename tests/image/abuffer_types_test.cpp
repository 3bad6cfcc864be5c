// A-buffer destinations of every pixel type: a scene drawn onto black into a packed bitmap
// of each type gives, byte for byte, what the pixel-exchange routines make of the same scene
// drawn into a 32-bit RGBA bitmap (the resolve blends in the 8-bit working form, and black
// reads back as black from every type).
#include "abuffer_util.h"

using namespace abtest;

namespace {

constexpr int kW = 37, kH = 23;  // odd width: sub-byte rows end inside a byte

BYTE *PixelsOf(BITMAPINFOHEADER *h) {
  DWORD table = h->biCompression == BI_BITFIELDS ? 12 : h->biClrUsed * 4;
  return reinterpret_cast<BYTE *>(h) + h->biSize + table;
}

LONG Stride(const BITMAPINFOHEADER *h) { return ((h->biBitCount * h->biWidth + 31) & ~31) / 8; }

// Black first, then a colour ramp: biClrUsed entries exactly.
std::vector<RGBQUAD> Palette(int n) {
  std::vector<RGBQUAD> p(n);
  for (int i = 0; i < n; ++i) {
    const BYTE v = BYTE(i * 255 / (n > 1 ? n - 1 : 1));
    p[i] = RGBQUAD{BYTE(i % 3 == 0 ? v : 0), BYTE(i % 3 == 1 ? v : v / 2), BYTE(v), 0};
  }
  return p;
}

// Draws the scene into a packed bitmap.
void DrawScene(BITMAPINFOHEADER *dib) {
  tA_BUFFER_PARAM prm;
  memset(&prm, 0, sizeof(prm));
  prm.dstHeader = *dib;
  prm.dstPixels = PixelsOf(dib);
  prm.opacity = 1.0f;
  A_Buffer ab;
  ASSERT_EQ(1, ab.Init());
  ASSERT_EQ(1, ab.BeginFrame(&prm)) << "type of " << prm.dstHeader.biBitCount << " bits";
  KY3DPOLY a = Flat({V(2.3f, 1.6f), V(30.2f, 5.1f), V(9.7f, 21.4f)}, 0xFF3080E0u);
  KY3DPOLY b = Flat({V(18.5f, 3.2f), V(35.1f, 12.6f), V(22.4f, 20.9f), V(26.0f, 11.0f)}, 0xFFE0E040u);
  ASSERT_EQ(1, ab.DrawPoly(&a, 0, 0));
  ASSERT_EQ(1, ab.DrawPoly(&b, 0, 0));
  ab.EndFrame();
  EXPECT_EQ(nullptr, ab.m_quantizer) << "the frame's quantizer is freed by EndFrame";
  ab.Cleanup();
}

class ABufferTypes : public ::testing::TestWithParam<int> {};

TEST_P(ABufferTypes, MatchesTheExchangeOfARgbaRendering) {
  const int type = GetParam();
  const bool palettised = type == 16 || type == 23 || type == 24;
  const int entries = type == 16 ? 2 : type == 23 ? 16 : 256;
  const std::vector<RGBQUAD> pal = Palette(entries);
  BITMAPINFOHEADER *dst = nullptr;
  ASSERT_EQ(S_OK, KyDibAlloc(&dst, type, kW, kH, palettised ? pal.data() : nullptr,
                             palettised ? entries : 0, 1));
  ASSERT_EQ(type, KyGetPixelType(dst));
  DrawScene(dst);

  BITMAPINFOHEADER *ref = nullptr;
  ASSERT_EQ(S_OK, KyDibAlloc(&ref, KYPT_RGBA32, kW, kH, nullptr, 0, 1));
  DrawScene(ref);

  // The expected rows: RGBA rows written as the destination type.
  tKYDIBXCHGPARAMS x;
  ASSERT_EQ(S_OK, KyDibPrepareXchgParams(type, KYPT_RGBA32, 35, &x, nullptr));
  HGLOBAL q = nullptr;
  if (type == 23 || type == 24) {
    q = KyDibCreateColorQuantizer(dst);
    ASSERT_NE(nullptr, q);
    x.dstQuantizer = q;
  }
  x.dstColors = palettised ? reinterpret_cast<const RGBQUAD *>(dst + 1) : nullptr;
  const LONG stride = Stride(dst);
  std::vector<BYTE> want(stride * kH, 0), work(kW * 8);
  for (int y = 0; y < kH; ++y) {
    void *w = x.readRow(&x, PixelsOf(ref) + y * Stride(ref), 0, work.data(), kW);
    x.writeRow(&x, want.data() + y * stride, 0, w, kW);
  }
  KyDibDestroyColorQuantizer(q);
  // Compare the pixel bits of every row (padding bits of sub-byte rows are not pixels).
  const LONG bits = dst->biBitCount * kW;
  int differing = 0;
  for (int y = 0; y < kH; ++y) {
    const BYTE *got = PixelsOf(dst) + y * stride, *exp = want.data() + y * stride;
    for (LONG b = 0; b < bits; ++b) {
      const int gb = (got[b / 8] >> (7 - b % 8)) & 1, eb = (exp[b / 8] >> (7 - b % 8)) & 1;
      differing += gb != eb;
    }
  }
  EXPECT_EQ(0, differing) << "type " << type;
  EXPECT_TRUE(std::any_of(PixelsOf(dst), PixelsOf(dst) + stride * kH, [](BYTE b) { return b != 0; }))
      << "nothing drawn, type " << type;
  KyDibFree(dst, 0);
  KyDibFree(ref, 0);
}

INSTANTIATE_TEST_SUITE_P(EveryType, ABufferTypes, ::testing::Range(16, 33));

// A textured polygon reads its texture through the exchange routines: a palettised 8-bit
// texture gives the same picture as the same texture expanded to 32 bits.
TEST(ABufferTextures, PalettisedTextureMatchesItsExpansion) {
  const int tw = 8, th = 8;
  const std::vector<RGBQUAD> pal = Palette(256);
  BITMAPINFOHEADER *t8 = nullptr, *t32 = nullptr;
  ASSERT_EQ(S_OK, KyDibAlloc(&t8, KYPT_RGB8, tw, th, pal.data(), 256, 1));
  ASSERT_EQ(S_OK, KyDibAlloc(&t32, KYPT_RGB32, tw, th, nullptr, 0, 1));
  for (int y = 0; y < th; ++y)
    for (int x = 0; x < tw; ++x) {
      const BYTE idx = BYTE((x * 37 + y * 11) & 255);
      PixelsOf(t8)[y * Stride(t8) + x] = idx;
      memcpy(PixelsOf(t32) + y * Stride(t32) + x * 4, &pal[idx], 4);
    }
  Canvas out8(32, 32), out32(32, 32);
  for (int pass = 0; pass < 2; ++pass) {
    BITMAPINFOHEADER *t = pass ? t32 : t8;
    Canvas &c = pass ? out32 : out8;
    tA_BUFFER_PARAM prm = Params(c);
    prm.textureCount = 1;
    prm.textures[0].header = *t;
    prm.textures[0].pixels = PixelsOf(t);
    A_Buffer ab;
    ASSERT_EQ(1, ab.Init());
    ASSERT_EQ(1, ab.BeginFrame(&prm));
    KY3DPOLY q = Flat({V(2, 3, 0, 0, 1.0f), V(29, 1, 1, 0, 0.5f), V(30, 30, 1, 1, 0.5f), V(1, 28, 0, 1, 1.0f)}, 0);
    q.state = KY3DRS_TEXTURED;
    ASSERT_EQ(1, ab.DrawPoly(&q, 0, 0));
    ab.EndFrame();
    ab.Cleanup();
  }
  int differing = 0;
  for (int i = 0; i < 32 * 32; ++i) differing += (out8.px[i] & 0xFFFFFF) != (out32.px[i] & 0xFFFFFF);
  EXPECT_EQ(0, differing);
  EXPECT_NE(out8.At(15, 15) & 0xFFFFFF, 0u);
  KyDibFree(t8, 0);
  KyDibFree(t32, 0);
}

}  // namespace
