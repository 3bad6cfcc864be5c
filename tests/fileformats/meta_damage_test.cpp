// Damaged files: seeded random corruption and truncation of small but complete files, fed to
// every metadata reader. Each must come back (with any status) without a crash, an overrun or
// a hang; the seed is printed so that a failure can be replayed.
#include <stdlib.h>

#include <random>

#include "ky_displist.h"
#include "ky_fmmeta.h"
#include "ky_iff.h"
#include "ky_list.h"
#include "ky_riff.h"
#include "ky_summary.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

Bytes SmallWave() {
  Bytes fmt;
  for (uint16_t v : {1, 1}) Put16le(fmt, v);
  Put32le(fmt, 8000);
  Put32le(fmt, 16000);
  Put16le(fmt, 2);
  Put16le(fmt, 16);
  Bytes body = Chunk("fmt ", fmt);
  Append(body, Chunk("data", Bytes(40, 1)));
  Bytes cue;
  Put32le(cue, 2);
  for (uint32_t id : {1u, 2u}) {
    Put32le(cue, id);
    for (int i = 0; i < 4; ++i) Put32le(cue, 0);
    Put32le(cue, id * 5);
  }
  Append(body, Chunk("cue ", cue));
  Bytes adtl;
  Append(adtl, Chunk("labl", {1, 0, 0, 0, 'o', 'n', 'e', 0}));
  Bytes ltxt = {2, 0, 0, 0, 9, 0, 0, 0};
  ltxt.resize(20, 0);
  Append(adtl, Chunk("ltxt", ltxt));
  Append(adtl, Chunk("labl", {2, 0, 0, 0, 't', 'w', 'o', 0}));
  Append(body, ListChunk("adtl", adtl));
  Append(body, ListChunk("INFO", Chunk("INAM", {'n', 'a', 'm', 'e', 0})));
  Bytes dib;
  Put32le(dib, 40);
  Put32le(dib, 1);
  Put32le(dib, 1);
  Put16le(dib, 1);
  Put16le(dib, 24);
  dib.resize(44, 0);
  Bytes disp;
  Put32le(disp, CF_DIB);
  Append(disp, dib);
  Append(body, Chunk("DISP", disp));
  Append(body, Chunk("KYPI", {'a', '.', 'w', 'a', 'v', 0}));
  return Riff("WAVE", body);
}

Bytes SmallAiff() {
  Bytes comm;
  Put16be(comm, 1);
  Put32be(comm, 8);
  Put16be(comm, 16);
  for (uint16_t w : {0x400B, 0xFA00, 0, 0, 0}) Put16be(comm, w);
  Bytes mark;
  Put16be(mark, 2);
  for (uint16_t id : {1, 2}) {
    Put16be(mark, id);
    Put32be(mark, id * 3u);
    mark.push_back(1);
    mark.push_back('m');
  }
  Bytes ssnd(8 + 16, 0);
  Bytes body = IffChunk("COMM", comm);
  Append(body, IffChunk("MARK", mark));
  Append(body, IffChunk("SSND", ssnd));
  return IffForm("AIFF", body);
}

void RunReaders(const std::string &path, size_t fileSize) {
  HANDLE h = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0,
                         nullptr);
  ASSERT_NE(INVALID_HANDLE_VALUE, h);
  HKYLIST list = nullptr;
  KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0);
  KyFMMeta_fillCuesFromFile(h, 44100, list);
  EXPECT_LE((size_t)list->count, fileSize / 24);  // never more points than the file holds
  KyList_Destroy(list);
  KyList_CreateExZ(&list, 0, 0, 0, KYLIST_HEAPITEMS, 0, 0, 0);
  KyFMMeta_fillSummaryFromFile(h, list);
  KyList_Destroy(list);

  KYDISPITEM item = {CF_DIB, 0, nullptr};
  KYDISPLIST dl = {1, &item};
  SetFilePointer(h, 0, nullptr, FILE_BEGIN);
  DWORD size = 0;
  if (SUCCEEDED(riff_ReadFileID(h, &size, nullptr))) {
    LONG left = (LONG)size;
    displist_Load(h, &dl, &left);
    displist_Free(&dl);
  }
  SetFilePointer(h, 12, nullptr, FILE_BEGIN);
  char text[16];
  KySummary_GetStringFromFile(h, Fourcc("INAM"), text, sizeof text, nullptr);

  WAVEFORMATEX w = {};
  DWORD frames = 0, offset = 0;
  iff_GetAIFFWfx(h, &w, &frames, &offset);
  AIFFMARKER m;
  iff_FindMarker(h, &m, 2);
  CloseHandle(h);

  ULONGLONG f64 = 0, o64 = 0;
  free(KyGetFileWfx(path.c_str(), &f64, &o64));
  KyFMMeta_LookForMarkers(path.c_str());
  KyFMMeta_IsMetaFile("a.wav", path.c_str());
  HBITMAP bmp = displist_CreateBitmapFromFile(path.c_str());
  if (bmp) DeleteObject(bmp);
}

TEST(MetaDamage, RandomCorruptionAndTruncation) {
  const unsigned seed = (unsigned)GetTickCount();
  std::mt19937 rng(seed);
  SCOPED_TRACE("seed " + std::to_string(seed));
  const Bytes originals[2] = {SmallWave(), SmallAiff()};
  const std::string path = Scratch("damaged.bin");
  for (int round = 0; round < 400; ++round) {
    Bytes b = originals[round & 1];
    int kind = (int)(rng() % 3);
    if (kind != 1) {
      // Overwrite a few bytes, mostly of headers and sizes near the start.
      int n = 1 + (int)(rng() % 4);
      for (int i = 0; i < n; ++i) {
        size_t at = rng() % b.size();
        b[at] = (rng() & 1) ? (uint8_t)rng() : (uint8_t)(rng() & 1 ? 0xFF : 0x00);
      }
    }
    if (kind != 0) b.resize(rng() % b.size());
    WriteFileBytes(path, b);
    RunReaders(path, b.size());
    if (HasFatalFailure()) return;
  }
}

}  // namespace
