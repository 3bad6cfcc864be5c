// Display lists: DISP chunks written and read back, and GDI bitmaps made from DIB chunks.
#include "ky_displist.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

void *Global(const Bytes &b) {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, b.size());
  void *p = GlobalLock(h);
  memcpy(p, b.data(), b.size());
  return p;
}

Bytes Disp(DWORD format, const Bytes &payload) {
  Bytes d;
  Put32le(d, format);
  Append(d, payload);
  return Chunk("DISP", d);
}

TEST(MetaDisplist, SaveLayoutAndPadByte) {
  KYDISPITEM items[3] = {{2, 5, Global({1, 2, 3, 4, 5})},
                         {8, 4, Global({6, 7, 8, 9})},
                         {14, 0, Global({1})}};  // data but size 0: not written
  KYDISPLIST list = {3, items};
  TempFile f("disp_save.bin", {});
  DWORD written = 0;
  ASSERT_EQ(S_OK, displist_Save(f.h(), &list, &written));
  EXPECT_EQ(34u, written);
  Bytes want;
  PutText(want, "DISP");
  Put32le(want, 9);
  Put32le(want, 2);
  Append(want, {1, 2, 3, 4, 5, 0x00});
  PutText(want, "DISP");
  Put32le(want, 8);
  Put32le(want, 8);
  Append(want, {6, 7, 8, 9});
  EXPECT_EQ(want, f.Contents());

  // The pad byte is the item's index: the same odd payload as item 1 gives 0x01.
  KYDISPITEM odd[2] = {{2, 0, nullptr}, {3, 3, items[0].data}};
  KYDISPLIST ol = {2, odd};
  TempFile g("disp_pad.bin", {});
  ASSERT_EQ(S_OK, displist_Save(g.h(), &ol, &written));
  EXPECT_EQ(16u, written);
  EXPECT_EQ(0x01, g.Contents().back());

  KYDISPITEM only = {8, 0, items[0].data};
  KYDISPLIST one = {1, &only};
  written = 5;
  EXPECT_EQ(S_OK, displist_Save(g.h(), &one, &written));
  EXPECT_EQ(0u, written);
  displist_Free(&list);
  EXPECT_EQ(nullptr, items[0].data);
  EXPECT_EQ(5u, items[0].size);  // sizes stay
}

TEST(MetaDisplist, LoadWantedFormats) {
  Bytes body = Chunk("junk", {1, 2, 3});
  Append(body, Disp(2, {9, 9, 9}));          // nobody wants format 2
  Append(body, Disp(8, {1, 2, 3, 4, 5}));    // odd payload
  Append(body, Chunk("LIST", {'I', 'N', 'F', 'O'}));
  TempFile f("disp_load.wav", Riff("TEST", body));
  KYDISPITEM items[2] = {{14, 0, nullptr}, {8, 0, nullptr}};
  KYDISPLIST list = {2, items};
  f.Seek(12);
  LONG left = (LONG)body.size();
  ASSERT_EQ(S_OK, displist_Load(f.h(), &list, &left));
  EXPECT_EQ(0, left);
  EXPECT_EQ(12u, f.Pos());  // back where it started
  EXPECT_EQ(nullptr, items[0].data);
  ASSERT_NE(nullptr, items[1].data);
  EXPECT_EQ(5u, items[1].size);
  EXPECT_EQ(0, memcmp(items[1].data, "\1\2\3\4\5", 5));
  EXPECT_EQ(&items[1], displist_GetItem(&list, 8));
  EXPECT_EQ(nullptr, displist_GetItem(&list, 2));
  EXPECT_EQ(nullptr, displist_GetItem(nullptr, 8));
  KYDISPLIST none = {0, items};
  EXPECT_EQ(nullptr, displist_GetItem(&none, 8));
  displist_Free(&list);

  // A second chunk of the same format replaces the first one's data.
  Bytes twice = Disp(8, {1});
  Append(twice, Disp(8, {2, 2}));
  TempFile t("disp_twice.bin", twice);
  left = (LONG)twice.size();
  ASSERT_EQ(S_OK, displist_Load(t.h(), &list, &left));
  EXPECT_EQ(2u, items[1].size);
  EXPECT_EQ(2, static_cast<BYTE *>(items[1].data)[0]);
  displist_Free(&list);

  KYDISPLIST empty = {0, nullptr};
  EXPECT_EQ(S_OK, displist_Load(t.h(), &empty, &left));
}

TEST(MetaDisplist, LoadDamaged) {
  KYDISPITEM items[2] = {{8, 0, nullptr}, {2, 0, nullptr}};
  KYDISPLIST list = {2, items};
  // Format 8 loads, then a DISP chunk too short for its format number.
  Bytes body = Disp(8, {1, 2});
  Append(body, Chunk("DISP", {2, 0}));
  Append(body, Disp(2, {1}));
  TempFile f("disp_short.bin", body);
  LONG left = (LONG)body.size();
  EXPECT_EQ(KYERR_FILE_READ, displist_Load(f.h(), &list, &left));
  EXPECT_EQ(nullptr, items[0].data);  // everything loaded is freed
  EXPECT_EQ(0u, f.Pos());
  // A payload cut short by the end of the file.
  Bytes cut = Disp(2, Bytes(100, 7));
  cut.resize(50);
  TempFile c("disp_cut.bin", cut);
  left = 108;
  EXPECT_EQ(KYERR_FILE_READ, displist_Load(c.h(), &list, &left));
  EXPECT_EQ(nullptr, items[1].data);
  // A header cut short: the read error comes back at once.
  TempFile h("disp_hdr.bin", {'D', 'I', 'S'});
  left = 100;
  EXPECT_EQ(KYERR_FILE_READ, displist_Load(h.h(), &list, &left));
}

// A packed DIB: header, optional colour table, bottom-up rows.
Bytes Dib(int w, int h, int bits, DWORD clrUsed, const Bytes &palette, const Bytes &pixels) {
  Bytes d;
  Put32le(d, 40);
  Put32le(d, (uint32_t)w);
  Put32le(d, (uint32_t)h);
  Put16le(d, 1);
  Put16le(d, (uint16_t)bits);
  Put32le(d, BI_RGB);
  Put32le(d, 0);
  Put32le(d, 0);
  Put32le(d, 0);
  Put32le(d, clrUsed);
  Put32le(d, 0);
  Append(d, palette);
  Append(d, pixels);
  return d;
}

// The bitmap's pixels as 32-bit BGRX, top row first.
std::vector<DWORD> Pixels(HBITMAP bmp, int w, int h) {
  std::vector<DWORD> px((size_t)w * h);
  BITMAPINFO bi = {};
  bi.bmiHeader.biSize = sizeof bi.bmiHeader;
  bi.bmiHeader.biWidth = w;
  bi.bmiHeader.biHeight = -h;
  bi.bmiHeader.biPlanes = 1;
  bi.bmiHeader.biBitCount = 32;
  HDC dc = GetDC(nullptr);
  GetDIBits(dc, bmp, 0, h, px.data(), &bi, DIB_RGB_COLORS);
  ReleaseDC(nullptr, dc);
  for (DWORD &p : px) p &= 0xFFFFFF;
  return px;
}

HBITMAP BitmapFrom(const std::string &name, const Bytes &fileBytes) {
  std::string path = Scratch(name);
  WriteFileBytes(path, fileBytes);
  return displist_CreateBitmapFromFile(path.c_str());
}

TEST(MetaDisplist, BitmapFromDibChunk) {
  // 24 bits, no colour table: 2 x 2, rows padded to 8 bytes, bottom row first.
  Bytes rows = {0, 0, 255, 0, 255, 0, 0, 0,     // bottom: red, green
                255, 0, 0, 255, 255, 255, 0, 0};  // top: blue, white
  Bytes body = Chunk("fmt ", Bytes(16, 0));
  Append(body, Disp(2, {1, 2, 3}));
  Append(body, Disp(CF_DIB, Dib(2, 2, 24, 0, {}, rows)));
  HBITMAP bmp = BitmapFrom("disp24.wav", Riff("WAVE", body));
  ASSERT_NE(nullptr, bmp);
  BITMAP bm = {};
  GetObject(bmp, sizeof bm, &bm);
  EXPECT_EQ(2, bm.bmWidth);
  EXPECT_EQ(2, bm.bmHeight);
  EXPECT_EQ((std::vector<DWORD>{0x0000FF, 0xFFFFFF, 0xFF0000, 0x00FF00}), Pixels(bmp, 2, 2));
  DeleteObject(bmp);

  // 8 bits with a colour count of 2: the bits follow two palette entries.
  Bytes pal = {0, 0, 0, 0, 0, 128, 255, 0};  // black, orange (BGR0)
  Bytes idx = {1, 0, 1, 0};                   // one row of 3 pixels, padded to 4
  bmp = BitmapFrom("disp8.wav", Riff("ANY ", Disp(CF_DIB, Dib(3, 1, 8, 2, pal, idx))));
  ASSERT_NE(nullptr, bmp);
  EXPECT_EQ((std::vector<DWORD>{0xFF8000, 0x000000, 0xFF8000}), Pixels(bmp, 3, 1));
  DeleteObject(bmp);

  // 4 bits with no colour count: a full 16-entry table.
  Bytes pal16(64, 0);
  pal16[4 * 5 + 1] = 255;  // entry 5 is green
  bmp =
      BitmapFrom("disp4.wav", Riff("WAVE", Disp(CF_DIB, Dib(2, 1, 4, 0, pal16, {0x50, 0, 0, 0}))));
  ASSERT_NE(nullptr, bmp);
  EXPECT_EQ((std::vector<DWORD>{0x00FF00, 0x000000}), Pixels(bmp, 2, 1));
  DeleteObject(bmp);
}

TEST(MetaDisplist, BitmapFailures) {
  const Bytes rows = {0, 0, 255, 0};
  // Not RIFF, missing file, no DIB chunk, a DIB whose bits run past its chunk.
  EXPECT_EQ(nullptr, BitmapFrom("dispnotriff.bin", Disp(CF_DIB, Dib(1, 1, 24, 0, {}, rows))));
  EXPECT_EQ(nullptr, displist_CreateBitmapFromFile(Scratch("disp_missing.wav").c_str()));
  EXPECT_EQ(nullptr, displist_CreateBitmapFromFile(nullptr));
  EXPECT_EQ(nullptr, BitmapFrom("dispnone.wav", Riff("WAVE", Disp(2, {1, 2}))));
  EXPECT_EQ(nullptr,
            BitmapFrom("dispshort.wav", Riff("WAVE", Disp(CF_DIB, Dib(64, 64, 24, 0, {}, rows)))));
  EXPECT_EQ(nullptr, BitmapFrom("disphuge.wav",
                                Riff("WAVE", Disp(CF_DIB, Dib(2, 2, 8, 0x7FFFFFFF, {}, rows)))));
  EXPECT_EQ(nullptr, BitmapFrom("dispcore.wav", Riff("WAVE", Disp(CF_DIB, {12, 0, 0}))));
}

}  // namespace
