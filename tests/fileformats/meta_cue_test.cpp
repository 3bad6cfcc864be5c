// Cue points from files: positions, names and regions against what the independent writers
// were told to write, rounding, and the damaged variants.
#include <string>
#include <vector>

#include "ky_fmmeta.h"
#include "ky_list.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

struct Cue {
  LONGLONG position, length;
  DWORD region;
  std::wstring name;
  bool operator==(const Cue &o) const {
    return position == o.position && length == o.length && region == o.region && name == o.name;
  }
};
void PrintTo(const Cue &c, std::ostream *os) {
  *os << "{" << c.position << ", " << c.length << ", " << c.region << ", " << c.name.size()
      << " characters}";
}

// The cues of a file as plain records, checking each item's layout on the way.
HRESULT ReadCues(HANDLE h, DWORD rate, std::vector<Cue> &out) {
  out.clear();
  HKYLIST list = nullptr;
  if (FAILED(KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0))) return E_FAIL;
  HRESULT hr = KyFMMeta_fillCuesFromFile(h, rate, list);
  for (LONG i = 0; i < list->count; ++i) {
    const KYCUERECORD *r = reinterpret_cast<KYCUERECORD **>(list->items)[i];
    std::wstring name(r->name);
    EXPECT_EQ(28u, r->headerSize);
    EXPECT_EQ((name.size() + 1) * 2, r->nameSize);
    EXPECT_EQ((LONG)(28 + r->nameSize), KyList_AllocSize(list, i));
    out.push_back({r->position, r->length, r->isRegion, name});
  }
  KyList_Destroy(list);
  return hr;
}

TEST(MetaCues, IndependentWriters) {
  const struct {
    const char *file;
    DWORD rate;
    std::vector<Cue> want;
  } cases[] = {
      // wavefile: markers at 0 and 250 ms, a region from 500 to 750 ms.
      {"wf_markers.wav", 44100,
       {{0, 0, 0, L"Start"}, {2500000, 0, 0, L"Verse one"}, {5000000, 2500000, 1, L"Chorus"}}},
      {"wf_markers.wav", 0,  // no rate: times of 0, names and regions still there
       {{0, 0, 0, L"Start"}, {0, 0, 0, L"Verse one"}, {0, 0, 1, L"Chorus"}}},
      // wavefile: an unlabelled marker at 100 ms, a region from 200 to 450 ms.
      {"wf_region24.wav", 48000, {{1000000, 0, 0, L""}, {2000000, 2500000, 1, L"Bridge"}}},
      // libsndfile: samples 0, 8000 and 12345 at 16 kHz; it writes no "adtl" names.
      {"sf_cues.wav", 16000, {{0, 0, 0, L""}, {5000000, 0, 0, L""}, {7715625, 0, 0, L""}}},
      {"sox_s16_44100_2.wav", 44100, {}},
      // Damaged: the count says 1000, the chunk holds 3.
      {"dmg_cue_count.wav", 44100,
       {{0, 0, 0, L"Start"}, {2500000, 0, 0, L"Verse one"}, {5000000, 2500000, 1, L"Chorus"}}},
      // A truncated "adtl" cannot be loaded: no names, no regions.
      {"dmg_adtl_trunc.wav", 44100, {{0, 0, 0, L""}, {2500000, 0, 0, L""}, {5000000, 0, 0, L""}}},
      // Labels without terminators, one of 3000 bytes (too long for the name buffer: not
      // copied), one too short for its cue id (it ends the search for those after it), and an
      // "ltxt" shorter than its header.
      {"dmg_labels.wav", 8000,
       {{12500, 0, 0, L"ABCDE"}, {25000, 0, 0, L""}, {37500, 0, 0, L""},
        {50000, 0, 0, L""}}},
  };
  for (const auto &c : cases) {
    File f(c.file);
    std::vector<Cue> got;
    EXPECT_EQ(S_OK, ReadCues(f.h(), c.rate, got)) << c.file;
    EXPECT_EQ(c.want, got) << c.file << " at " << c.rate;
  }
}

Bytes CueChunk(const std::vector<std::pair<DWORD, DWORD>> &points) {
  Bytes c;
  PutLe(c, (uint32_t)points.size());
  for (auto &p : points) {
    PutLe(c, p.first);
    PutLe(c, {0, Fourcc("data"), 0, 0, p.second});
  }
  return Chunk("cue ", c);
}

Bytes Adtl(const char *id, DWORD cue, const Bytes &rest) {
  Bytes d;
  PutLe(d, cue);
  Put(d, rest);
  return Chunk(id, d);
}

TEST(MetaCues, RoundingLookupsAndFailures) {
  Bytes ltxt = {0x22, 0x56, 0, 0};  // 22050 samples
  ltxt.resize(16, 0);
  const Bytes adtl = ListChunk("adtl", Cat({Adtl("ltxt", 3, ltxt), Adtl("labl", 3, {'3', 0}),
                                            Adtl("note", 2, {'n', 0}),
                                            Adtl("labl", 2, {'c', 'a', 'f', 0xE9, 0}),
                                            // fills the name buffer exactly: kept, terminated
                                            Adtl("labl", 4, Bytes(1024, 'Y'))}));
  File f("cues.wav", Riff("WAVE", Cat({CueChunk({{1, 1}, {2, 44100}, {3, 3}, {4, 0xFFFFFFFF}}),
                                       adtl})));
  std::vector<Cue> got;
  EXPECT_EQ(S_OK, ReadCues(f.h(), 44100, got));
  EXPECT_EQ((std::vector<Cue>{{227, 0, 0, L""},  // 226.76 + 0.5, truncated
                              {10000000, 0, 0, L"caf\u00E9"},
                              {680, 5000000, 1, L"3"},  // a label after its "ltxt"
                              {973915486395LL, 0, 0, std::wstring(1023, L'Y')}}),
            got);

  // Size and count claiming more points than the file holds: those there are kept and the
  // short read is reported.
  Bytes cue = CueChunk({{1, 8}, {2, 16}});
  cue[5] = cue[6] = 0xFF;
  cue[8] = 200;
  File longCue("cues_long.wav", Riff("WAVE", cue));
  EXPECT_EQ(KYERR_FILE_READ, ReadCues(longCue.h(), 8000, got));
  EXPECT_EQ(2u, got.size());
  File aiff("sox_s16_44100_2.aiff");
  EXPECT_EQ(KYERR_RIFF_MISSING, ReadCues(aiff.h(), 44100, got));
  EXPECT_EQ(E_POINTER, KyFMMeta_fillCuesFromFile(aiff.h(), 44100, nullptr));

  EXPECT_EQ(S_OK, KyFMMeta_LookForMarkers(Data("wf_markers.wav").c_str()));
  EXPECT_EQ(S_OK, KyFMMeta_LookForMarkers(Data("sf_cues.wav").c_str()));
  for (const char *name : {"wf_float_info.wav", "sf_marks.aiff", "missing.wav"})
    EXPECT_EQ(KYERR_NOT_FOUND, KyFMMeta_LookForMarkers(Data(name).c_str())) << name;
}

}  // namespace
