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
  Bytes fmt, cue, ltxt = {2, 0, 0, 0, 9};
  PutLe(fmt, {1 | 1 << 16, 8000, 16000, 2 | 16 << 16});
  PutLe(cue, {2, 1, 0, 0, 0, 0, 5, 2, 0, 0, 0, 0, 10});
  ltxt.resize(20, 0);
  Bytes disp, dib;
  PutLe(dib, {40, 1, 1, 1 | 24 << 16, 0, 0, 0, 0, 0, 0, 0});
  PutLe(disp, CF_DIB);
  Put(disp, dib);
  return Riff("WAVE", Cat({Chunk("fmt ", fmt), Chunk("data", Bytes(40, 1)), Chunk("cue ", cue),
                           ListChunk("adtl", Cat({Chunk("labl", {1, 0, 0, 0, 'o', 'n', 'e', 0}),
                                                  Chunk("ltxt", ltxt),
                                                  Chunk("labl", {2, 0, 0, 0, 't', 'w', 'o', 0})})),
                           ListChunk("INFO", Chunk("INAM", {'n', 'a', 'm', 'e', 0})),
                           Chunk("DISP", disp), Chunk("KYPI", {'a', '.', 'w', 'a', 'v', 0})}));
}

Bytes SmallAiff() {
  Bytes comm, mark;
  PutBe(comm, 1, 2);
  PutBe(comm, 8);
  PutBe(comm, 16, 2);
  for (uint16_t w : {0x400B, 0xFA00, 0, 0, 0}) PutBe(comm, w, 2);
  PutBe(mark, 2, 2);
  for (uint16_t id : {1, 2}) {
    PutBe(mark, id, 2);
    PutBe(mark, id * 3u);
    Put(mark, std::string("\1m", 2));
  }
  return IffForm("AIFF", Cat({IffChunk("COMM", comm), IffChunk("MARK", mark),
                             IffChunk("SSND", Bytes(24, 0))}));
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
