// Pixel-type table, classification of headers made by hand and by the platform, texts,
// palette conversion, header initialisation and bitmap blocks.
#include <string.h>
#include <string>
#include <vector>
#include "ky_testutil.h"
#include "tellarok.h"

namespace {

const DWORD KYDB = 'K' | ('Y' << 8) | ('D' << 16) | ('B' << 24);
const DWORD KYGS = 'K' | ('Y' << 8) | ('G' << 16) | ('S' << 24);
const DWORD MJPG = 'M' | ('J' << 8) | ('P' << 16) | ('G' << 24);

struct TypeRow {
  int type;
  DWORD compression;
  int bitCount;
  BYTE bits[4];
};

const TypeRow kTable[] = {
    {16, BI_RGB, 1, {0, 0, 0, 1}},      {17, KYGS, 1, {0, 0, 0, 1}},
    {18, KYGS, 2, {0, 0, 0, 2}},        {19, KYGS, 4, {0, 0, 0, 4}},
    {20, KYGS, 8, {0, 0, 0, 8}},        {21, KYGS, 16, {0, 0, 0, 16}},
    {22, KYGS, 32, {0, 0, 0, 32}},      {23, BI_RGB, 4, {8, 8, 8, 0}},
    {24, BI_RGB, 8, {8, 8, 8, 0}},      {25, BI_RGB, 16, {5, 5, 5, 1}},
    {26, BI_BITFIELDS, 16, {5, 6, 5, 0}}, {27, BI_RGB, 24, {8, 8, 8, 0}},
    {28, BI_RGB, 32, {8, 8, 8, 8}},     {29, KYDB, 32, {8, 8, 8, 8}},
    {30, BI_BITFIELDS, 32, {10, 10, 10, 2}}, {31, KYDB, 64, {16, 16, 16, 16}},
    {32, KYDB, 128, {32, 32, 32, 32}},
};

TEST(PixelTypes, TableAndHeadersRoundTrip) {
  for (const TypeRow &r : kTable) {
    BYTE bits[4] = {9, 9, 9, 9};
    EXPECT_EQ(KyGetPixelBitsPerChannel(r.type, bits), r.bitCount) << r.type;
    EXPECT_EQ(memcmp(bits, r.bits, 4), 0) << r.type;
    DWORD comp = 77, masks[3] = {1, 1, 1};
    const ULONGLONG attr = KyPixelTypeToBitAttribs(r.type, &comp, nullptr, 0, masks);
    EXPECT_EQ(attr, (ULONGLONG(r.compression) << 32) | DWORD(r.bitCount)) << r.type;
    EXPECT_EQ(comp, r.compression);
    if (r.compression != BI_BITFIELDS) {
      EXPECT_EQ(masks[0] | masks[1] | masks[2], 0u);
    }
    // A header written for the type classifies as the type.
    BYTE mem[40 + 1024] = {};
    auto *h = reinterpret_cast<BITMAPINFOHEADER *>(mem);
    DWORD size = 0;
    ASSERT_EQ(KyVideo_InitBitmapInfo(h, r.type, 13, 3, nullptr, 0, &size), S_OK);
    EXPECT_EQ(KyGetPixelType(h), r.type);
    EXPECT_EQ(KyVideo_IsCompressed(h), 0);
    EXPECT_EQ(size, DWORD(((r.bitCount * 13 + 31) / 32) * 4 * 3));
    EXPECT_EQ(h->biSizeImage, size);
  }
  for (int bad : {0, 15, 33, -1}) {
    BYTE bits[4] = {9, 9, 9, 9};
    EXPECT_EQ(KyGetPixelBitsPerChannel(bad, bits), 0);
    EXPECT_EQ(bits[0] | bits[1] | bits[2] | bits[3], 0);
    DWORD comp = 5;
    EXPECT_EQ(KyPixelTypeToBitAttribs(bad, &comp, nullptr, 0, nullptr), 0ull);
    EXPECT_EQ(comp, 0u);
  }
}

TEST(PixelTypes, MasksAndAttributeBlock) {
  DWORD m[3];
  KyPixelTypeToBitAttribs(KYPT_RGB565, nullptr, nullptr, 0, m);
  EXPECT_TRUE(m[0] == 0xF800u && m[1] == 0x07E0u && m[2] == 0x001Fu);
  KyPixelTypeToBitAttribs(KYPT_RGB101010, nullptr, nullptr, 0, m);
  EXPECT_TRUE(m[0] == 0x3FF00000u && m[1] == 0x000FFC00u && m[2] == 0x000003FFu);
  DWORD block[16];
  memset(block, 0xAB, sizeof block);
  EXPECT_EQ(KyPixelTypeToBitAttribs(KYPT_RGB24, nullptr, block, 63, nullptr), ULONGLONG(BI_RGB) << 32);
  EXPECT_EQ(block[0], 0xABABABABu);  // too small: untouched, bits reported 0
  for (int type : {KYPT_GRAY8, KYPT_RGB24}) {
    EXPECT_EQ(KyPixelTypeToBitAttribs(type, nullptr, block, 64, nullptr) & 0xFFFFFFFF,
              ULONGLONG(type == KYPT_GRAY8 ? 8 : 24));
    const double one = 1.0;
    DWORD want[16] = {64, type == KYPT_GRAY8 ? 4096u : 0xFFFFFFFFu, 0, 0xFFFFFFFFu};
    memcpy(&want[6], &one, 8);
    for (int i = 0; i < 16; ++i) EXPECT_EQ(block[i], want[i]) << type << " word " << i;
  }
}

// A 40-byte header with three mask words behind it.
BITMAPINFOHEADER *Header(BYTE *mem, DWORD compression, int bitCount, const DWORD *masks, LONG w = 4, LONG h = 4) {
  auto *hd = reinterpret_cast<BITMAPINFOHEADER *>(mem);
  *hd = BITMAPINFOHEADER{40, w, h, 1, WORD(bitCount), compression, 0, 0, 0, 0, 0};
  memcpy(mem + 40, masks, 12);
  return hd;
}

struct ClassifyRow {
  DWORD compression;
  int bitCount;
  DWORD masks[3];
  int type;
  int compressed;
};

TEST(PixelTypes, ClassifiesHandMadeHeaders) {
  const ClassifyRow rows[] = {
      {BI_BITFIELDS, 16, {0x7C00, 0x03E0, 0x001F}, 25, 0},
      {BI_BITFIELDS, 16, {0xF800, 0x07E0, 0x001F}, 26, 0},
      {BI_BITFIELDS, 16, {0xF000, 0x0FF0, 0x000F}, 0, 1},
      {BI_BITFIELDS, 32, {0xFF0000, 0xFF00, 0xFF}, 28, 0},
      {BI_BITFIELDS, 32, {0x3FF00000, 0xFFC00, 0x3FF}, 30, 0},
      {BI_BITFIELDS, 24, {0xFF0000, 0xFF00, 0xFF}, 0, 1},
      // Depths no type has (every valid one is classified in TableAndHeadersRoundTrip).
      {KYDB, 24, {}, 0, 1}, {KYGS, 24, {}, 0, 1}, {BI_RGB, 2, {}, 0, 1}, {BI_RGB, 64, {}, 0, 1},
      {MJPG, 24, {}, 27, 1}, {BI_RLE8, 8, {}, 24, 1},
  };
  for (const ClassifyRow &r : rows) {
    BYTE mem[52];
    BITMAPINFOHEADER *h = Header(mem, r.compression, r.bitCount, r.masks);
    EXPECT_EQ(KyGetPixelType(h), r.type) << std::hex << r.compression << " " << std::dec << r.bitCount;
    EXPECT_EQ(KyVideo_IsCompressed(h), r.compressed) << std::hex << r.compression;
  }
  EXPECT_EQ(KyGetPixelType(nullptr), 0);
  EXPECT_EQ(KyVideo_IsCompressed(nullptr), 1);
}

// Headers made by GDI: DIB sections of each bit depth, and GetDIBits describing a
// device-dependent bitmap of the screen.
TEST(PixelTypes, ClassifiesPlatformHeaders) {
  const ClassifyRow rows[] = {
      {BI_RGB, 1, {}, 16, 0}, {BI_RGB, 4, {}, 23, 0}, {BI_RGB, 8, {}, 24, 0}, {BI_RGB, 16, {}, 25, 0},
      {BI_BITFIELDS, 16, {0xF800, 0x07E0, 0x001F}, 26, 0}, {BI_RGB, 24, {}, 27, 0}, {BI_RGB, 32, {}, 28, 0},
      {BI_BITFIELDS, 32, {0xFF0000, 0xFF00, 0xFF}, 28, 0},
  };
  HDC screen = GetDC(nullptr);
  ASSERT_NE(screen, nullptr);
  for (auto &r : rows) {
    BYTE mem[40 + 1024] = {};
    auto *bi = reinterpret_cast<BITMAPINFO *>(Header(mem, r.compression, r.bitCount, r.masks, 9, 5));
    void *bits = nullptr;
    HBITMAP dib = CreateDIBSection(screen, bi, DIB_RGB_COLORS, &bits, nullptr, 0);
    ASSERT_NE(dib, nullptr) << r.bitCount;
    DIBSECTION ds = {};
    ASSERT_EQ(GetObjectA(dib, sizeof ds, &ds), int(sizeof ds));
    BYTE copy[52] = {};
    memcpy(copy, &ds.dsBmih, 40);
    memcpy(copy + 40, ds.dsBitfields, 12);
    EXPECT_EQ(KyGetPixelType(reinterpret_cast<BITMAPINFOHEADER *>(copy)), r.type) << r.bitCount;
    DeleteObject(dib);
  }
  HBITMAP ddb = CreateCompatibleBitmap(screen, 7, 3);
  ASSERT_NE(ddb, nullptr);
  BYTE mem[40 + 1024] = {};
  auto *bi = reinterpret_cast<BITMAPINFO *>(mem);
  bi->bmiHeader.biSize = 40;
  ASSERT_NE(GetDIBits(screen, ddb, 0, 3, nullptr, bi, DIB_RGB_COLORS), 0);
  // The first call fills the header; the second one adds the masks of a bit-field format.
  ASSERT_NE(GetDIBits(screen, ddb, 0, 3, nullptr, bi, DIB_RGB_COLORS), 0);
  EXPECT_GE(KyGetPixelType(&bi->bmiHeader), KYPT_RGB1)  // the screen's own format is one of ours
      << bi->bmiHeader.biBitCount << " " << bi->bmiHeader.biCompression << " " << std::hex
      << *reinterpret_cast<DWORD *>(mem + 40) << " " << *reinterpret_cast<DWORD *>(mem + 44);
  DeleteObject(ddb);
  ReleaseDC(nullptr, screen);
}

TEST(PixelTypes, BitsAndChannels) {
  EXPECT_TRUE(KyCountBits(0) == 0 && KyCountBits(0xFFFFFFFF) == 32 && KyCountBits(0x80000001) == 2);
  EXPECT_TRUE(KyCreateBitMask(11, 5) == 0xF800u && KyCreateBitMask(0, 32) == 0xFFFFFFFFu);
  EXPECT_TRUE(KyCreateBitMask(3, 0) == 0u && KyCreateBitMask(3, -2) == 0u);
  const int offs[][3] = {{0, 4, 0}, {1, 4, 1}, {3, 4, 3}, {2, 16, 8}, {3, 8, 6}, {7, 4, 0}, {-1, 16, 0}, {1, 3, 0}};
  for (auto &o : offs) EXPECT_EQ(GetByteOffsetFromChannelEnum(o[0], o[1]), o[2]) << o[0] << "," << o[1];
}

TEST(PixelTypes, Texts) {
  struct {
    DWORD comp;
    int size;
    const char *want;
  } rows[] = {
      {BI_RGB, 32, "RGB"}, {BI_BITFIELDS, 32, "RGB (bitfields)"}, {KYDB, 32, "RGBA"},
      {KYGS, 32, "Grayscale"}, {BI_BITFIELDS, 5, "RGB "}, {KYGS, 1, ""}, {MJPG, 32, "MJPG"}, {MJPG, 3, "MJ"},
  };
  for (auto &r : rows) {
    char buf[40];
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(KyVideo_GetFormatText(r.comp, buf, r.size), 0);
    EXPECT_STREQ(buf, r.want);
    EXPECT_EQ(buf[r.size], 'x');  // nothing beyond the buffer
  }
  EXPECT_EQ(KyVideo_GetFormatText(0, nullptr, 10), 0);
  BITMAPINFOHEADER h = {};
  h.biWidth = 640;
  h.biHeight = -480;
  h.biBitCount = 24;
  char buf[32];
  EXPECT_EQ(KyVideo_GetAttribsText(&h, buf, sizeof buf), 0);
  EXPECT_STREQ(buf, "640x-480x24");
  buf[0] = 0;
  EXPECT_EQ(KyVideo_GetAttribsTextEx(&h, 1, buf, sizeof buf, 2), 0);
  EXPECT_STREQ(buf, "640x-480x24");
}

TEST(PixelTypes, PaletteConversion) {
  const PALETTEENTRY e[2] = {{10, 20, 30, PC_RESERVED}, {1, 2, 3, 4}};
  RGBQUAD q[3] = {{9, 9, 9, 9}, {9, 9, 9, 9}, {7, 7, 7, 7}};
  KyVideo_PaletteRGBAFromEntry(q, e, 2);
  EXPECT_TRUE(q[0].rgbBlue == 30 && q[0].rgbGreen == 20 && q[0].rgbRed == 10 && q[0].rgbReserved == 0);
  EXPECT_EQ(q[2].rgbBlue, 7);  // nothing past the count
  PALETTEENTRY back[2];
  KyVideo_PaletteEntryFromRGBA(back, q, 2);
  EXPECT_TRUE(back[1].peRed == 1 && back[1].peBlue == 3 && back[1].peFlags == 0);
  KyVideo_PaletteRGBAFromEntry(q, e, 0);
  KyVideo_PaletteRGBAFromEntry(q, e, -5);
  EXPECT_EQ(q[0].rgbBlue, 30);
}

TEST(PixelTypes, InitBitmapInfoColourCounts) {
  struct {
    int type;
    bool table;
    int count;
    DWORD clrUsed;
  } rows[] = {
      {KYPT_RGB8, false, 0, 255}, {KYPT_RGB4, false, 0, 15}, {KYPT_RGB1, false, 0, 1},
      {KYPT_GRAY8, false, 0, 255}, {KYPT_RGB8, true, 0, 0}, {KYPT_RGB8, true, 3, 3},
      {KYPT_RGB8, false, -4, 0}, {KYPT_RGB24, false, 0, 0}, {KYPT_RGB565, true, 3, 0},
  };
  const RGBQUAD table[3] = {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 8, 9, 0}};
  for (auto &r : rows) {
    BYTE mem[40 + 1024];
    memset(mem, 0xEE, sizeof mem);
    auto *h = reinterpret_cast<BITMAPINFOHEADER *>(mem);
    ASSERT_EQ(KyVideo_InitBitmapInfo(h, r.type, 4, 2, r.table ? table : nullptr, r.count, nullptr), S_OK);
    EXPECT_EQ(h->biClrUsed, r.clrUsed) << r.type;
    EXPECT_TRUE(h->biSize == 40u && h->biPlanes == 1 && h->biClrImportant == 0u);
    if (r.table && r.clrUsed) {
      EXPECT_EQ(memcmp(mem + 40, table, 12), 0);
    }
    if (r.type == KYPT_RGB565) {
      EXPECT_EQ(*reinterpret_cast<DWORD *>(mem + 40), 0xF800u);
    }
    if (!r.table && r.type != KYPT_RGB565) {  // no table written
      EXPECT_EQ(mem[40], 0xEE);
    }
  }
  BITMAPINFOHEADER h;
  EXPECT_EQ(KyVideo_InitBitmapInfo(nullptr, KYPT_RGB24, 4, 4, nullptr, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(KyVideo_InitBitmapInfo(&h, 40, 4, 4, nullptr, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(KyVideo_InitBitmapInfo(&h, KYPT_RGBAFLOAT, 100000, 100000, nullptr, 0, nullptr), E_INVALIDARG);
  EXPECT_EQ(KyVideo_InitBitmapInfo(&h, KYPT_RGB24, -1, 4, nullptr, 0, nullptr), E_INVALIDARG);
}

// Leaves a stretch of the stack non-zero where the next call's locals will lie.
__attribute__((noinline)) void DirtyStack() {
  volatile BYTE junk[4096];
  for (size_t i = 0; i < sizeof junk; ++i) junk[i] = 0xA5;
}

TEST(PixelTypes, AllocAndFree) {
  BITMAPINFOHEADER *bmp = reinterpret_cast<BITMAPINFOHEADER *>(1);
  EXPECT_EQ(KyDibAlloc(&bmp, 99, 4, 4, nullptr, 0, 0), E_INVALIDARG);
  EXPECT_EQ(bmp, nullptr);
  EXPECT_EQ(KyDibAlloc(nullptr, KYPT_RGB24, 4, 4, nullptr, 0, 0), E_POINTER);
  struct {
    int type;
    DWORD flags;
    SIZE_T size;
  } rows[] = {
      {KYPT_RGB8, 1, 40 + 255 * 4 + 8 * 3}, {KYPT_RGB565, 0x80000001, 52 + 12 * 3},
      {KYPT_RGBA64, 0, 40 + 48 * 3}, {KYPT_GRAY1, 1, 40 + 1 * 4 + 4 * 3},
  };
  for (auto &r : rows) {
    DirtyStack();
    ASSERT_EQ(KyDibAlloc(&bmp, r.type, 6, 3, nullptr, 0, r.flags), S_OK);
    ASSERT_NE(bmp, nullptr);
    HGLOBAL mem = GlobalHandle(bmp);
    ASSERT_NE(mem, nullptr);
    EXPECT_GE(GlobalSize(mem), r.size) << r.type;
    EXPECT_EQ(KyGetPixelType(bmp), r.type);
    EXPECT_EQ(bmp->biSizeImage + bmp->biSize + (r.type == KYPT_RGB565 ? 12 : bmp->biClrUsed * 4), r.size);
    if (r.type != KYPT_RGB565) {  // a counted table nobody gave is black, not stack bytes
      const BYTE *table = reinterpret_cast<BYTE *>(bmp) + bmp->biSize;
      for (DWORD i = 0; i < bmp->biClrUsed * 4; ++i) ASSERT_EQ(table[i], 0) << r.type << " " << i;
    }
    if (r.flags & 1) {
      const BYTE *px = reinterpret_cast<BYTE *>(bmp) + r.size - bmp->biSizeImage;
      for (DWORD i = 0; i < bmp->biSizeImage; ++i) ASSERT_EQ(px[i], 0);
    }
    EXPECT_EQ(KyDibFree(bmp, r.flags), 0);
  }
  EXPECT_EQ(KyDibFree(nullptr, 0), 0);
  EXPECT_EQ(KyDibFree(nullptr, 0x80000000), 0);
}

} // namespace
