// Cue points from files: positions, names and regions, against what the independent writers
// were told to write, and the damaged variants.
#include <string>
#include <vector>

#include "ky_fmmeta.h"
#include "ky_list.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;
using kytest::DataPath;

namespace {

struct Cue {
  LONGLONG position;
  LONGLONG length;
  DWORD region;
  std::wstring name;
};

// Reads the cues of an open file into plain records, checking each item's layout on the way.
HRESULT ReadCues(HANDLE h, DWORD rate, std::vector<Cue> &out) {
  out.clear();
  HKYLIST list = nullptr;
  EXPECT_EQ(S_OK, KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0));
  if (!list) return E_FAIL;
  HRESULT hr = KyFMMeta_fillCuesFromFile(h, rate, list);
  for (LONG i = 0; i < list->count; ++i) {
    const KYCUERECORD *r = reinterpret_cast<KYCUERECORD **>(list->items)[i];
    EXPECT_EQ(28u, r->headerSize);
    EXPECT_EQ((LONG)(28 + r->nameSize), KyList_AllocSize(list, i));
    std::wstring name(r->name);
    EXPECT_EQ((name.size() + 1) * 2, r->nameSize);
    out.push_back({r->position, r->length, r->isRegion, name});
  }
  KyList_Destroy(list);
  return hr;
}

void ExpectCues(const std::vector<Cue> &want, const std::vector<Cue> &got, const char *what) {
  ASSERT_EQ(want.size(), got.size()) << what;
  for (size_t i = 0; i < want.size(); ++i) {
    EXPECT_EQ(want[i].position, got[i].position) << what << " cue " << i;
    EXPECT_EQ(want[i].length, got[i].length) << what << " cue " << i;
    EXPECT_EQ(want[i].region, got[i].region) << what << " cue " << i;
    EXPECT_EQ(want[i].name, got[i].name) << what << " cue " << i;
  }
}

TEST(MetaCues, IndependentWriters) {
  // wavefile: markers at 0 and 250 ms and a region 500..750 ms, at 44100 Hz.
  {
    Fixture f("wf_markers.wav");
    std::vector<Cue> got;
    EXPECT_EQ(S_OK, ReadCues(f.h(), 44100, got));
    ExpectCues({{0, 0, 0, L"Start"},
                {2500000, 0, 0, L"Verse one"},
                {5000000, 2500000, 1, L"Chorus"}},
               got, "wf_markers");
  }
  // wavefile: an unlabelled marker at 100 ms and a region 200..450 ms, at 48000 Hz.
  {
    Fixture f("wf_region24.wav");
    std::vector<Cue> got;
    EXPECT_EQ(S_OK, ReadCues(f.h(), 48000, got));
    ExpectCues({{1000000, 0, 0, L""}, {2000000, 2500000, 1, L"Bridge"}}, got, "wf_region24");
  }
  // libsndfile: cue points at samples 0, 8000 and 12345 at 16000 Hz; it writes no names.
  {
    Fixture f("sf_cues.wav");
    std::vector<Cue> got;
    EXPECT_EQ(S_OK, ReadCues(f.h(), 16000, got));
    ExpectCues({{0, 0, 0, L""}, {5000000, 0, 0, L""}, {7715625, 0, 0, L""}}, got, "sf_cues");
  }
}

TEST(MetaCues, ZeroRateKeepsNamesAndRegions) {
  Fixture f("wf_markers.wav");
  std::vector<Cue> got;
  EXPECT_EQ(S_OK, ReadCues(f.h(), 0, got));
  ExpectCues({{0, 0, 0, L"Start"}, {0, 0, 0, L"Verse one"}, {0, 0, 1, L"Chorus"}}, got, "rate 0");
}

Bytes CueChunk(const std::vector<std::pair<DWORD, DWORD>> &points) {
  Bytes c;
  Put32le(c, (uint32_t)points.size());
  for (auto &p : points) {
    Put32le(c, p.first);
    for (int i = 0; i < 4; ++i) Put32le(c, i == 1 ? Fourcc("data") : 0);
    Put32le(c, p.second);
  }
  return Chunk("cue ", c);
}

Bytes Labl(DWORD id, const std::string &text) {
  Bytes d;
  Put32le(d, id);
  PutText(d, text);
  d.push_back(0);
  return Chunk("labl", d);
}

Bytes Ltxt(DWORD id, DWORD length) {
  Bytes d;
  Put32le(d, id);
  Put32le(d, length);
  Put32le(d, Fourcc("rgn "));
  for (int i = 0; i < 4; ++i) Put16le(d, 0);
  return Chunk("ltxt", d);
}

TEST(MetaCues, RoundingAndLookups) {
  Bytes adtl;
  Append(adtl, Ltxt(3, 22050));
  Append(adtl, Labl(3, "third"));  // a label after an "ltxt" is still found
  Append(adtl, Chunk("note", Bytes{2, 0, 0, 0, 'n', 0}));
  Append(adtl, Labl(2, "caf\xE9"));
  Bytes body = CueChunk({{1, 1}, {2, 44100}, {3, 3}, {4, 0xFFFFFFFF}});
  Append(body, ListChunk("adtl", adtl));
  TempFile f("cues_round.wav", Riff("WAVE", body));
  std::vector<Cue> got;
  EXPECT_EQ(S_OK, ReadCues(f.h(), 44100, got));
  ExpectCues({{227, 0, 0, L""},  // 226.76 + 0.5, truncated
              {10000000, 0, 0, L"caf\u00E9"},
              {680, 5000000, 1, L"third"},
              {973915486395LL, 0, 0, L""}},
             got, "handmade");
}

TEST(MetaCues, FilesWithoutCues) {
  std::vector<Cue> got;
  Fixture sox("sox_s16_44100_2.wav");
  EXPECT_EQ(S_OK, ReadCues(sox.h(), 44100, got));
  EXPECT_TRUE(got.empty());
  TempFile zero("cues_zero.wav", Riff("WAVE", CueChunk({})));
  EXPECT_EQ(S_OK, ReadCues(zero.h(), 44100, got));
  EXPECT_TRUE(got.empty());
  Fixture aiff("sox_s16_44100_2.aiff");
  EXPECT_EQ(KYERR_RIFF_MISSING, ReadCues(aiff.h(), 44100, got));
  TempFile empty("cues_empty.wav", {});
  EXPECT_NE(S_OK, ReadCues(empty.h(), 44100, got));
  EXPECT_EQ(E_POINTER, KyFMMeta_fillCuesFromFile(sox.h(), 44100, nullptr));
}

TEST(MetaCues, DamagedFiles) {
  std::vector<Cue> got;
  // The cue count says 1000; only the 3 points the chunk holds are read.
  Fixture count("dmg_cue_count.wav");
  EXPECT_EQ(S_OK, ReadCues(count.h(), 44100, got));
  ASSERT_EQ(3u, got.size());
  EXPECT_EQ(L"Chorus", got[2].name);
  // A truncated "adtl" cannot be loaded: the points come without names or regions.
  Fixture trunc("dmg_adtl_trunc.wav");
  EXPECT_EQ(S_OK, ReadCues(trunc.h(), 44100, got));
  ExpectCues({{0, 0, 0, L""}, {2500000, 0, 0, L""}, {5000000, 0, 0, L""}}, got, "truncated");
  // Labels without terminators, one of 3000 bytes (cut to 1023 characters), a "labl" too short
  // for its cue id (it ends the search for the entries after it) and a short "ltxt".
  Fixture labels("dmg_labels.wav");
  EXPECT_EQ(S_OK, ReadCues(labels.h(), 8000, got));
  ASSERT_EQ(4u, got.size());
  EXPECT_EQ(L"ABCDE", got[0].name);
  EXPECT_EQ(std::wstring(1023, L'X'), got[1].name);
  EXPECT_EQ(L"", got[2].name);
  EXPECT_EQ(L"", got[3].name);
  for (const Cue &c : got) EXPECT_EQ(0u, c.region);
  EXPECT_EQ(12500, got[0].position);  // 10 samples at 8000 Hz

  // A cue chunk whose size and count claim more points than the file holds: the points that
  // are there are kept and the short read is reported.
  Bytes cue = CueChunk({{1, 8}, {2, 16}});
  cue[4] = 0xF4;  // size 0x7FFFFFF4: room for many points
  cue[5] = 0xFF;
  cue[6] = 0xFF;
  cue[7] = 0x7F;
  cue[8] = 200;  // count
  TempFile longCue("cues_long.wav", Riff("WAVE", cue));
  EXPECT_EQ(KYERR_FILE_READ, ReadCues(longCue.h(), 8000, got));
  ASSERT_EQ(2u, got.size());
  EXPECT_EQ(20000, got[1].position);
}

TEST(MetaCues, LookForMarkers) {
  EXPECT_EQ(S_OK, KyFMMeta_LookForMarkers(DataPath("meta/wf_markers.wav").c_str()));
  EXPECT_EQ(S_OK, KyFMMeta_LookForMarkers(DataPath("meta/sf_cues.wav").c_str()));
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_LookForMarkers(DataPath("meta/wf_float_info.wav").c_str()));
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_LookForMarkers(DataPath("meta/sf_marks.aiff").c_str()));
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_LookForMarkers(DataPath("meta/missing.wav").c_str()));
  EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_LookForMarkers(nullptr));
}

}  // namespace
