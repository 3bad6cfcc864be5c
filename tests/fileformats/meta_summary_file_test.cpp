// Summary lists in files: the INFO writer's exact bytes, loading, single items, and the
// summary records of independent writers' files.
#include <stdlib.h>

#include <string>

#include "ky_displist.h"
#include "ky_list.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "ky_summary.h"
#include "meta_testutil.h"

using namespace metatest;
using kytest::DataPath;

namespace {

const DWORD kINAM = 0x4D414E49, kIART = 0x54524149, kICMT = 0x544D4349, kICOP = 0x504F4349;

struct Table : SUMMARYLIST {
  Table() : SUMMARYLIST{0, nullptr} {}
  ~Table() { KySummary_Free(this); }
};

TEST(MetaSummaryFile, SaveWritesIndexPadBytes) {
  Table t;
  KySummary_SetItem(&t, kINAM, "sixsix");  // 7 bytes: pad byte 0x00 (index 0)
  KySummary_SetItem(&t, kIART, nullptr);   // skipped
  KySummary_SetItem(&t, kICMT, "ab");      // 3 bytes: pad byte 0x02 (index 2)
  TempFile f("summary_save.bin", {'x', 'y'});
  f.Seek(2);
  DWORD written = 0;
  ASSERT_EQ(S_OK, KySummary_Save(f.h(), &t, &written));
  EXPECT_EQ(40u, written);
  EXPECT_EQ(42u, f.Pos());  // left at the end of the list
  Bytes want = {'x', 'y'};
  PutText(want, "LIST");
  Put32le(want, 32);
  PutText(want, "INFOINAM");
  Put32le(want, 7);
  PutText(want, std::string("sixsix\0\0", 8));
  PutText(want, "ICMT");
  Put32le(want, 3);
  PutText(want, std::string("ab\0\x02", 4));
  EXPECT_EQ(want, f.Contents());

  Table empty;
  written = 99;
  EXPECT_EQ(S_OK, KySummary_Save(f.h(), &empty, &written));
  EXPECT_EQ(0u, written);
  EXPECT_EQ(42u, f.Pos());

  Fixture ro("wf_markers.wav");
  EXPECT_EQ(KYERR_FILE_WRITE, KySummary_Save(ro.h(), &t, &written));
}

TEST(MetaSummaryFile, SaveLoadRoundTrip) {
  Table t;
  KySummary_SetItem(&t, kINAM, "Title");
  KySummary_SetItem(&t, kIART, "");
  KySummary_SetItem(&t, kICMT, "A longer comment, odd.");
  TempFile f("summary_round.bin", {});
  DWORD written = 0;
  ASSERT_EQ(S_OK, KySummary_Save(f.h(), &t, &written));
  f.Seek(0);
  DWORD type = 0, size = 0;
  ASSERT_EQ(S_OK, riff_ReadListHeader(f.h(), &type, &size));
  EXPECT_EQ(written - 12, size);
  Table back;
  LONG left = (LONG)size;
  ASSERT_EQ(S_OK, KySummary_Load(f.h(), &back, &left));
  EXPECT_EQ((LONG)size, left);  // the caller's count is not changed
  ASSERT_EQ(3u, back.count);
  EXPECT_TRUE(KySummary_Compare(&t, &back));
  EXPECT_EQ(kICMT, back.items[2].id);
  EXPECT_EQ(written, f.Pos());
}

TEST(MetaSummaryFile, LoadEdgeCases) {
  // A non-text item is loaded as text up to its first zero byte.
  Bytes content = Chunk("IBIN", {'a', 'b', 0, 'c', 'd'});
  Append(content, Chunk("INAM", {'n', 'o', 'z'}));  // no terminator
  TempFile f("summary_load.bin", content);
  Table t;
  LONG left = (LONG)content.size();
  ASSERT_EQ(S_OK, KySummary_Load(f.h(), &t, &left));
  ASSERT_EQ(2u, t.count);
  EXPECT_STREQ("ab", t.items[0].text);
  EXPECT_STREQ("noz", t.items[1].text);

  Table z;
  left = 0;
  EXPECT_EQ(S_OK, KySummary_Load(f.h(), &z, &left));
  EXPECT_EQ(0u, z.count);
  EXPECT_EQ(nullptr, z.items);

  // An item claiming more bytes than its list: an error, and the table is left empty.
  Bytes bad = Chunk("INAM", {'o', 'k', 0, 0});
  Bytes huge;
  PutText(huge, "ICMT");
  Put32le(huge, 0xFFFFFFFF);
  Append(bad, huge);
  TempFile g("summary_bad.bin", bad);
  Table b;
  left = (LONG)bad.size();
  EXPECT_EQ(KYERR_FILE_READ, KySummary_Load(g.h(), &b, &left));
  EXPECT_EQ(0u, b.count);
  EXPECT_EQ(nullptr, b.items);
  // A list cut short inside an item.
  Bytes cut = Chunk("INAM", Bytes(20, 'q'));
  cut.resize(15);
  TempFile c("summary_cut.bin", cut);
  left = 28;
  EXPECT_EQ(KYERR_FILE_READ, KySummary_Load(c.h(), &b, &left));
  EXPECT_EQ(0u, b.count);
}

TEST(MetaSummaryFile, GetStringFromFile) {
  Fixture f("wf_markers.wav");
  char buf[64];
  SetFilePointer(f.h(), 12, nullptr, FILE_BEGIN);
  ASSERT_EQ(S_OK, KySummary_GetStringFromFile(f.h(), kIART, buf, sizeof buf, nullptr));
  EXPECT_STREQ("Orvanel test band", buf);
  EXPECT_EQ(12u, SetFilePointer(f.h(), 0, nullptr, FILE_CURRENT));  // position restored
  ASSERT_EQ(S_OK, KySummary_GetStringFromFile(f.h(), kINAM, buf, 5, nullptr));
  EXPECT_STREQ("Take", buf);  // capacity - 1 characters
  EXPECT_EQ(KYERR_NOT_FOUND, KySummary_GetStringFromFile(f.h(), kICOP, buf, sizeof buf, nullptr));
  EXPECT_EQ(12u, SetFilePointer(f.h(), 0, nullptr, FILE_CURRENT));
  // Bounded before the INFO list: not found.
  LONG left = 88000;
  EXPECT_EQ(KYERR_NOT_FOUND, KySummary_GetStringFromFile(f.h(), kINAM, buf, sizeof buf, &left));
}

struct Record {
  DWORD id;
  std::wstring text;
};

HRESULT FillSummary(HANDLE h, std::vector<Record> &out) {
  out.clear();
  HKYLIST list = nullptr;
  KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0);
  HRESULT hr = KyFMMeta_fillSummaryFromFile(h, list);
  for (LONG i = 0; list && i < list->count; ++i) {
    const KYSUMMARYRECORD *r = reinterpret_cast<KYSUMMARYRECORD **>(list->items)[i];
    EXPECT_EQ(12u, r->headerSize);
    std::wstring text(r->text);
    EXPECT_EQ((text.size() + 1) * 2, r->textSize);
    EXPECT_EQ((LONG)(12 + r->textSize), KyList_AllocSize(list, i));
    out.push_back({r->id, text});
  }
  KyList_Destroy(list);
  return hr;
}

TEST(MetaSummaryFile, RecordsFromIndependentWriters) {
  std::vector<Record> got;
  Fixture wf("wf_markers.wav");
  ASSERT_EQ(S_OK, FillSummary(wf.h(), got));
  ASSERT_EQ(3u, got.size());
  EXPECT_EQ(kINAM, got[0].id);
  EXPECT_EQ(L"Take five", got[0].text);
  EXPECT_EQ(kIART, got[1].id);
  EXPECT_EQ(L"Orvanel test band", got[1].text);
  EXPECT_EQ(L"odd", got[2].text);
  // libsndfile counts the pad byte in the item size: the text stops at the first zero.
  Fixture sf("sf_cues.wav");
  ASSERT_EQ(S_OK, FillSummary(sf.h(), got));
  ASSERT_EQ(3u, got.size());
  EXPECT_EQ(L"Sndfile title", got[0].text);
  EXPECT_EQ(L"Sndfile artist", got[1].text);
  EXPECT_EQ(L"A comment", got[2].text);
  Fixture fl("wf_float_info.wav");
  ASSERT_EQ(S_OK, FillSummary(fl.h(), got));
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(kICOP, got[1].id);
  EXPECT_EQ(L"2026", got[1].text);
}

TEST(MetaSummaryFile, RecordsEdgeCases) {
  std::vector<Record> got;
  EXPECT_EQ(KYERR_FILE_OPEN, FillSummary(INVALID_HANDLE_VALUE, got));
  Fixture wf("wf_markers.wav");
  EXPECT_EQ(S_OK, KyFMMeta_fillSummaryFromFile(wf.h(), nullptr));
  Fixture none("sox_s16_44100_2.wav");
  EXPECT_EQ(KYERR_NOT_FOUND, FillSummary(none.h(), got));
  EXPECT_TRUE(got.empty());
  TempFile tiny("summary_tiny.bin", {'R', 'I', 'F'});
  EXPECT_EQ(KYERR_FILE_READ, FillSummary(tiny.h(), got));

  // A form without a form type: "LIST" right at offset 8. Items without text are skipped.
  Bytes info = Chunk("INAM", {'x', 0});
  Append(info, Chunk("ICMT", {}));
  Bytes body = ListChunk("INFO", info);
  Bytes f;
  PutText(f, "RIFF");
  Put32le(f, (uint32_t)body.size());
  Append(f, body);
  TempFile untyped("summary_untyped.bin", f);
  ASSERT_EQ(S_OK, FillSummary(untyped.h(), got));
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(L"x", got[0].text);
  EXPECT_EQ(L"", got[1].text);  // an empty chunk still gives an (empty) text
}

// Writes a WAVE file whose display chunks and INFO list come from this library's writers into
// the build's bin folder, where a Linux-side step reads it with sndfile-info
// (meta_readers.cmake). The odd DISP payload (with its index pad byte) comes first, so the
// reader only finds the INFO items if the chunks are laid out right.
TEST(MetaSummaryFile, WriterOutputForIndependentReader) {
  const char *bin = getenv("TELLAROK_BIN");
  if (!bin) GTEST_SKIP() << "TELLAROK_BIN not set";
  std::string path = std::string(bin) + "/meta_written.wav";
  Bytes fmt;
  Put16le(fmt, 1);
  Put16le(fmt, 1);
  Put32le(fmt, 8000);
  Put32le(fmt, 16000);
  Put16le(fmt, 2);
  Put16le(fmt, 16);
  Bytes body = Chunk("fmt ", fmt);
  Append(body, Chunk("data", Bytes(32, 0)));
  WriteFileBytes(path, Riff("WAVE", body));
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                         0, nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, h);
  Table t;
  KySummary_SetItem(&t, kINAM, "Written title");
  KySummary_SetItem(&t, kIART, "Tellaro");
  KySummary_SetItem(&t, kICMT, "odd");
  SetFilePointer(h, 0, nullptr, FILE_END);
  static BYTE payload[5] = {1, 2, 3, 4, 5};
  KYDISPITEM items[2] = {{2, 0, nullptr}, {CF_TEXT, 5, payload}};
  KYDISPLIST disp = {2, items};
  DWORD written = 0, dispWritten = 0;
  EXPECT_EQ(S_OK, displist_Save(h, &disp, &dispWritten));
  EXPECT_EQ(18u, dispWritten);
  EXPECT_EQ(S_OK, KySummary_Save(h, &t, &written));
  EXPECT_EQ(S_OK, riff_UpdateRIFFSize(h, (LONG)(written + dispWritten)));
  CloseHandle(h);

  // This library reads both back as well.
  HANDLE r = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                         nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, r);
  std::vector<Record> got;
  EXPECT_EQ(S_OK, FillSummary(r, got));
  EXPECT_EQ(3u, got.size());
  KYDISPITEM want = {CF_TEXT, 0, nullptr};
  KYDISPLIST in = {1, &want};
  DWORD riffSize = 0;
  SetFilePointer(r, 0, nullptr, FILE_BEGIN);
  ASSERT_EQ(S_OK, riff_ReadFileID(r, &riffSize, nullptr));
  LONG left = (LONG)riffSize;
  EXPECT_EQ(S_OK, displist_Load(r, &in, &left));
  EXPECT_EQ(5u, want.size);
  displist_Free(&in);
  CloseHandle(r);
}

}  // namespace
