// Summary lists: items in memory, the IStream form, the INFO writer's exact bytes, and the
// summary records of independent writers' files.
#include <objbase.h>
#include <stdlib.h>

#include "ky_displist.h"
#include "ky_list.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "ky_summary.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

const DWORD kINAM = 0x4D414E49, kIART = 0x54524149, kICMT = 0x544D4349;

struct Table : SUMMARYLIST {
  Table() : SUMMARYLIST{0, nullptr} {}
  ~Table() { KySummary_Free(this); }
};

TEST(MetaSummary, ItemsCopyCompare) {
  Table t;
  EXPECT_EQ(KYERR_NOT_FOUND, KySummary_GetItemIndex(&t, kINAM));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kINAM, "Title"));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kIART, nullptr));  // appended without text
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kICMT, "x"));
  ASSERT_EQ(3u, t.count);
  EXPECT_EQ(2, KySummary_GetItemIndex(&t, kICMT));
  EXPECT_EQ(nullptr, KySummary_GetItemText(&t, kIART));
  EXPECT_NE(nullptr, GlobalHandle(t.items[0].text));  // the table's own global blocks
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kINAM, "A much longer title"));
  EXPECT_STREQ("A much longer title", KySummary_GetItemText(&t, kINAM));
  EXPECT_EQ(S_OK, KySummary_SetItem(&t, kINAM, nullptr));  // cleared; the item stays
  EXPECT_EQ(0, KySummary_GetItemIndex(&t, kINAM));
  EXPECT_EQ(nullptr, KySummary_GetItemText(&t, kINAM));

  Table c;
  ASSERT_EQ(S_OK, KySummary_Copy(&c, &t));
  EXPECT_TRUE(KySummary_Compare(&t, &c));
  EXPECT_NE(t.items[2].text, c.items[2].text);  // deep
  KySummary_SetItem(&c, kINAM, "");  // an empty text is not "no text"
  EXPECT_FALSE(KySummary_Compare(&t, &c));
  Table x, y;  // ids are deliberately not compared
  KySummary_SetItem(&x, kINAM, "same");
  KySummary_SetItem(&y, kICMT, "same");
  EXPECT_TRUE(KySummary_Compare(&x, &y));
  EXPECT_FALSE(KySummary_Compare(&x, nullptr));
  EXPECT_EQ(S_OK, KySummary_Free(&t));
  EXPECT_EQ(nullptr, t.items);
  EXPECT_EQ(0u, t.count);
}

TEST(MetaSummary, StreamForm) {
  Table t;
  KySummary_SetItem(&t, kINAM, "Ab");
  KySummary_SetItem(&t, kIART, nullptr);
  KySummary_SetItem(&t, 0x31323334, "caf\xE9");  // code page 1252
  IStream *s = nullptr;
  ASSERT_EQ(S_OK, CreateStreamOnHGlobal(nullptr, TRUE, &s));
  EXPECT_EQ(S_OK, t.Persist(s, FALSE));
  Bytes want;
  PutLe(want, {8, 3, kINAM, 6});
  PutWide(want, L"Ab");
  PutLe(want, {kIART, 0, 0x31323334, 10});
  PutWide(want, L"caf\u00E9");
  HGLOBAL h = nullptr;
  GetHGlobalFromStream(s, &h);
  EXPECT_EQ(0, memcmp(want.data(), GlobalLock(h), want.size()));
  GlobalUnlock(h);
  LARGE_INTEGER zero = {};
  s->Seek(zero, STREAM_SEEK_SET, nullptr);
  Table back;
  EXPECT_EQ(S_OK, SUMMARYLIST::Create(s, FALSE, &back));
  s->Release();
  ASSERT_EQ(3u, back.count);
  EXPECT_STREQ("Ab", back.items[0].text);
  EXPECT_EQ(nullptr, back.items[1].text);
  EXPECT_STREQ("caf\xE9", back.items[2].text);
  EXPECT_EQ(0x31323334u, back.items[2].id);
  EXPECT_EQ(E_INVALIDARG, SUMMARYLIST::Create(nullptr, FALSE, nullptr));

  // An odd byte length is read whole (the next item starts after it); a stream that ends
  // early leaves the remaining items empty.
  Bytes odd;
  PutLe(odd, {8, 3, kINAM, 5, 'A' | 'B' << 16});
  odd.push_back(0x77);
  PutLe(odd, {kIART, 4, 'C'});
  CreateStreamOnHGlobal(nullptr, TRUE, &s);
  s->Write(odd.data(), (ULONG)odd.size(), nullptr);
  s->Seek(zero, STREAM_SEEK_SET, nullptr);
  Table u;
  EXPECT_EQ(S_OK, SUMMARYLIST::Create(s, FALSE, &u));
  s->Release();
  ASSERT_EQ(3u, u.count);
  EXPECT_STREQ("A", u.items[0].text);  // L / 2 bytes of room: one character and the zero
  EXPECT_STREQ("C", u.items[1].text);
  EXPECT_EQ(nullptr, u.items[2].text);
}

TEST(MetaSummary, SaveWritesIndexPadBytes) {
  Table t;
  KySummary_SetItem(&t, kINAM, "sixsix");  // 7 bytes, pad byte 0x00 (index 0)
  KySummary_SetItem(&t, kIART, nullptr);   // skipped
  KySummary_SetItem(&t, kICMT, "ab");      // 3 bytes, pad byte 0x02 (index 2)
  File f("summary_save.bin", {'x', 'y'});
  f.Seek(2);
  DWORD written = 0;
  ASSERT_EQ(S_OK, KySummary_Save(f.h(), &t, &written));
  EXPECT_EQ(40u, written);
  EXPECT_EQ(42u, f.Pos());
  Bytes want = {'x', 'y'};
  Put(want, ListChunk("INFO", Cat({Chunk("INAM", {'s', 'i', 'x', 's', 'i', 'x', 0}),
                                   Chunk("ICMT", {'a', 'b', 0})})));
  want.back() = 0x02;
  EXPECT_EQ(want, f.Contents());

  f.Seek(2 + 12);  // load it back from the first item
  Table back;
  LONG left = 28;
  ASSERT_EQ(S_OK, KySummary_Load(f.h(), &back, &left));
  ASSERT_EQ(2u, back.count);
  EXPECT_STREQ("ab", back.items[1].text);
  char buf[5];
  f.Seek(2);
  EXPECT_EQ(S_OK, KySummary_GetStringFromFile(f.h(), kINAM, buf, sizeof buf, nullptr));
  EXPECT_STREQ("sixs", buf);  // capacity - 1 characters
  EXPECT_EQ(2u, f.Pos());     // position restored
}

std::vector<std::pair<DWORD, std::wstring>> FillSummary(HANDLE h, HRESULT *hr) {
  std::vector<std::pair<DWORD, std::wstring>> out;
  HKYLIST list = nullptr;
  KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0);
  *hr = KyFMMeta_fillSummaryFromFile(h, list);
  for (LONG i = 0; i < list->count; ++i) {
    const KYSUMMARYRECORD *r = reinterpret_cast<KYSUMMARYRECORD **>(list->items)[i];
    EXPECT_EQ(12u, r->headerSize);
    EXPECT_EQ((wcslen(r->text) + 1) * 2, r->textSize);
    EXPECT_EQ((LONG)(12 + r->textSize), KyList_AllocSize(list, i));
    out.push_back({r->id, r->text});
  }
  KyList_Destroy(list);
  return out;
}

TEST(MetaSummary, RecordsFromFiles) {
  using Items = std::vector<std::pair<DWORD, std::wstring>>;
  HRESULT hr;
  File wf("wf_markers.wav");
  EXPECT_EQ((Items{{kINAM, L"Take five"}, {kIART, L"Orvanel test band"}, {kICMT, L"odd"}}),
            FillSummary(wf.h(), &hr));
  // libsndfile counts the pad byte in an item's size: the text stops at the first zero.
  File sf("sf_cues.wav");
  EXPECT_EQ((Items{{kINAM, L"Sndfile title"}, {kIART, L"Sndfile artist"}, {kICMT, L"A comment"}}),
            FillSummary(sf.h(), &hr));
  File none("sox_s16_44100_2.wav");
  EXPECT_TRUE(FillSummary(none.h(), &hr).empty());
  EXPECT_EQ(KYERR_NOT_FOUND, hr);
  EXPECT_EQ(KYERR_FILE_OPEN, KyFMMeta_fillSummaryFromFile(INVALID_HANDLE_VALUE, nullptr));
  // A form without a form type, "LIST" at offset 8; items without text are skipped.
  File untyped("untyped.bin", Chunk("RIFF", ListChunk("INFO", Cat({Chunk("INAM", {'x', 0}),
                                                                   Chunk("ICMT", {})}))));
  EXPECT_EQ((Items{{kINAM, L"x"}, {kICMT, L""}}), FillSummary(untyped.h(), &hr));
}

// Display chunks and an INFO list from this library's writers, in a WAVE file in the build's
// bin folder, where sndfile-info reads them (meta_readers.cmake). The odd DISP payload with
// its index pad byte comes first, so the INFO items are only found if the layout is right.
TEST(MetaSummary, WritersForIndependentReader) {
  const char *bin = getenv("TELLAROK_BIN");
  if (!bin) GTEST_SKIP() << "TELLAROK_BIN not set";
  Bytes fmt;
  PutLe(fmt, {1 | 1 << 16, 8000, 16000, 2 | 16 << 16});
  File f("meta_written.wav", Riff("WAVE", Cat({Chunk("fmt ", fmt), Chunk("data", Bytes(32, 0))})));
  SetFilePointer(f.h(), 0, nullptr, FILE_END);
  static BYTE payload[5] = {1, 2, 3, 4, 5};
  KYDISPITEM items[2] = {{2, 0, nullptr}, {CF_TEXT, 5, payload}};
  KYDISPLIST disp = {2, items};
  Table t;
  KySummary_SetItem(&t, kINAM, "Written title");
  KySummary_SetItem(&t, kIART, "Tellaro");
  KySummary_SetItem(&t, kICMT, "odd");
  DWORD d = 0, s = 0;
  EXPECT_EQ(S_OK, displist_Save(f.h(), &disp, &d));
  EXPECT_EQ(18u, d);
  EXPECT_EQ(S_OK, KySummary_Save(f.h(), &t, &s));
  EXPECT_EQ(S_OK, riff_UpdateRIFFSize(f.h(), (LONG)(d + s)));
  HRESULT hr;
  EXPECT_EQ(3u, FillSummary(f.h(), &hr).size());
  WriteFileBytes(std::string(bin) + "/meta_written.wav", f.Contents());
}

}  // namespace
