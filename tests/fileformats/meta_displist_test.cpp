// Display lists: DISP chunks written and read back, and GDI bitmaps made from DIB chunks.
#include "ky_displist.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

void *Global(const Bytes &b) {
  void *p = GlobalLock(GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, b.size()));
  memcpy(p, b.data(), b.size());
  return p;
}

Bytes Disp(DWORD format, const Bytes &payload) {
  Bytes d;
  PutLe(d, format);
  Put(d, payload);
  return Chunk("DISP", d);
}

TEST(MetaDisplist, SaveAndLoad) {
  KYDISPITEM items[3] = {{2, 5, Global({1, 2, 3, 4, 5})}, {8, 4, Global({6, 7, 8, 9})},
                         {14, 0, Global({1})}};  // data but size 0: not written
  KYDISPLIST list = {3, items};
  File f("disp.bin", {});
  DWORD written = 0;
  ASSERT_EQ(S_OK, displist_Save(f.h(), &list, &written));
  EXPECT_EQ(34u, written);  // (12 + 6) + (12 + 4)
  Bytes want = Cat({Disp(2, {1, 2, 3, 4, 5}), Disp(8, {6, 7, 8, 9})});
  EXPECT_EQ(want, f.Contents());  // index 0: the pad byte is 0x00
  KYDISPITEM odd[2] = {{2, 0, nullptr}, {3, 3, items[0].data}};
  KYDISPLIST oddList = {2, odd};
  File g("disp_pad.bin", {});
  ASSERT_EQ(S_OK, displist_Save(g.h(), &oddList, &written));
  EXPECT_EQ(0x01, g.Contents().back());  // index 1
  displist_Free(&list);
  EXPECT_EQ(nullptr, items[0].data);
  EXPECT_EQ(5u, items[0].size);  // sizes stay

  // Load: a chunk of a format nobody asks for is skipped; a second chunk of the same format
  // replaces the first one's data.
  Bytes body = Cat({Chunk("junk", {1, 2, 3}), Disp(2, {9, 9, 9}), Disp(8, {1}),
                    Disp(8, {1, 2, 3, 4, 5}), ListChunk("INFO", {})});
  File r("disp_load.wav", Riff("TEST", body));
  KYDISPITEM wanted[2] = {{14, 0, nullptr}, {8, 0, nullptr}};
  KYDISPLIST in = {2, wanted};
  r.Seek(12);
  LONG left = (LONG)body.size();
  ASSERT_EQ(S_OK, displist_Load(r.h(), &in, &left));
  EXPECT_EQ(0, left);
  EXPECT_EQ(12u, r.Pos());
  EXPECT_EQ(nullptr, wanted[0].data);
  ASSERT_EQ(5u, wanted[1].size);
  EXPECT_EQ(0, memcmp(wanted[1].data, "\1\2\3\4\5", 5));
  EXPECT_EQ(&wanted[1], displist_GetItem(&in, 8));
  EXPECT_EQ(nullptr, displist_GetItem(&in, 2));
  displist_Free(&in);

  // Damaged: a DISP chunk too small for its format number; a payload cut by the end of the file.
  for (const Bytes &bad : {Cat({Disp(8, {1, 2}), Chunk("DISP", {2, 0})}), Disp(8, Bytes(99, 7))}) {
    File d("disp_bad.bin", Bytes(bad.begin(), bad.end() - (bad.size() > 100 ? 50 : 0)));
    left = (LONG)bad.size();
    EXPECT_EQ(KYERR_FILE_READ, displist_Load(d.h(), &in, &left));
    EXPECT_EQ(nullptr, wanted[1].data);  // everything loaded is freed
    EXPECT_EQ(0u, d.Pos());
  }
}

// A packed DIB: 40-byte header, colour table, rows.
Bytes Dib(int w, int h, int bits, DWORD clrUsed, const Bytes &palette, const Bytes &pixels) {
  Bytes d;
  PutLe(d, {40, (uint32_t)w, (uint32_t)h, 1 | (uint32_t)bits << 16, BI_RGB, 0, 0, 0, clrUsed, 0});
  return Cat({d, palette, pixels});
}

// The bitmap's pixels as 0xRRGGBB, top row first; empty for no bitmap.
std::vector<DWORD> Pixels(const std::string &name, const Bytes &file, int w, int h) {
  const std::string path = Scratch(name);
  WriteFileBytes(path, file);
  HBITMAP bmp = displist_CreateBitmapFromFile(path.c_str());
  if (!bmp) return {};
  std::vector<DWORD> px((size_t)w * h);
  BITMAPINFO bi = {};
  bi.bmiHeader = {sizeof(BITMAPINFOHEADER), w, -h, 1, 32, BI_RGB, 0, 0, 0, 0, 0};
  HDC dc = GetDC(nullptr);
  GetDIBits(dc, bmp, 0, h, px.data(), &bi, DIB_RGB_COLORS);
  ReleaseDC(nullptr, dc);
  DeleteObject(bmp);
  for (DWORD &p : px) p &= 0xFFFFFF;
  return px;
}

TEST(MetaDisplist, BitmapFromDibChunk) {
  using Px = std::vector<DWORD>;
  // 24 bits, no colour table; rows padded to 8 bytes, bottom row first.
  Bytes rows = {0, 0, 255, 0, 255, 0, 0, 0, 255, 0, 0, 255, 255, 255, 0, 0};
  Bytes body = Cat({Chunk("fmt ", Bytes(16, 0)), Disp(2, {1, 2, 3}),
                    Disp(CF_DIB, Dib(2, 2, 24, 0, {}, rows))});
  EXPECT_EQ((Px{0x0000FF, 0xFFFFFF, 0xFF0000, 0x00FF00}), Pixels("d24.wav", Riff("WAVE", body), 2, 2));
  // 8 bits with a colour count of 2: the bits follow two entries.
  Bytes pal = {0, 0, 0, 0, 0, 128, 255, 0};
  EXPECT_EQ((Px{0xFF8000, 0, 0xFF8000}),
            Pixels("d8.wav", Riff("ANY ", Disp(CF_DIB, Dib(3, 1, 8, 2, pal, {1, 0, 1, 0}))), 3, 1));
  // 4 bits and no colour count: a full 16-entry table (entry 5 is green).
  Bytes pal16(64, 0);
  pal16[21] = 255;
  EXPECT_EQ((Px{0x00FF00, 0}),
            Pixels("d4.wav", Riff("WAVE", Disp(CF_DIB, Dib(2, 1, 4, 0, pal16, {0x50, 0, 0, 0}))), 2, 1));
  // Not RIFF, no DIB, bits running past the chunk, an absurd colour count, a core header cut short.
  const Bytes px = {0, 0, 255, 0};
  for (const Bytes &bad : {Disp(CF_DIB, Dib(1, 1, 24, 0, {}, px)), Riff("WAVE", Disp(2, px)),
                           Riff("WAVE", Disp(CF_DIB, Dib(64, 64, 24, 0, {}, px))),
                           Riff("WAVE", Disp(CF_DIB, Dib(2, 2, 8, 0x7FFFFFFF, {}, px))),
                           Riff("WAVE", Disp(CF_DIB, {12, 0, 0}))})
    EXPECT_TRUE(Pixels("dbad.wav", bad, 1, 1).empty());
  EXPECT_EQ(nullptr, displist_CreateBitmapFromFile(Scratch("d_missing.wav").c_str()));
}

}  // namespace
