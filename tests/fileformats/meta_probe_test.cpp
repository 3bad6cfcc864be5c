// The wave-format probe and the AIFF description, against soxi's view of independent files
// and hand-made AIFF files with unusual sample sizes.
#include <stdlib.h>

#include <sstream>

#include "ky_iff.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;

namespace {

struct Probe {
  WAVEFORMATEX *wfx = nullptr;
  ULONGLONG frames = 0xDEAD, offset = 0xBEEF;
  explicit Probe(const std::string &path) { wfx = KyGetFileWfx(path.c_str(), &frames, &offset); }
  ~Probe() { free(wfx); }
};

// Where the samples start, as found by walking the file here: after "data"'s header, or after
// SSND's header and fields plus its offset.
ULONGLONG DataOffsetOf(const Bytes &b) {
  const bool le = b[0] == 'R';
  auto u32 = [&](size_t p) {
    return le ? (b[p] | b[p + 1] << 8 | b[p + 2] << 16 | (uint32_t)b[p + 3] << 24)
              : ((uint32_t)b[p] << 24 | b[p + 1] << 16 | b[p + 2] << 8 | b[p + 3]);
  };
  for (size_t p = 12; p + 8 <= b.size(); p += 8 + u32(p + 4) + (u32(p + 4) & 1)) {
    if (memcmp(&b[p], le ? "data" : "SSND", 4) == 0) return le ? p + 8 : p + 16 + u32(p + 8);
  }
  return 0;
}

// soxi.txt, made by make_fixtures.sh: file rate channels frames bits.
TEST(MetaProbe, AgreesWithSoxi) {
  Bytes raw = ReadFileBytes(Data("soxi.txt"));
  std::istringstream in(std::string(raw.begin(), raw.end()));
  std::string name;
  DWORD rate, channels, bits;
  ULONGLONG frames;
  int checked = 0;
  while (in >> name >> rate >> channels >> frames >> bits) {
    Probe p(Data(name));
    auto has = [&](const char *s) { return name.find(s) != std::string::npos; };
    // Plain AIFF only, and WAVE tags 1, 3 and FE00-FE02: AIFF-C and extensible WAVE are refused.
    if (has(".aifc") || has("_ext.wav")) {
      EXPECT_EQ(nullptr, p.wfx) << name;
      continue;
    }
    ASSERT_NE(nullptr, p.wfx) << name;
    const WORD align = (WORD)(bits / 8 * channels);
    const WORD tag = has(".aif") ? (bits == 8 ? 0xFE01 : 0xFE02) : has("f32") || has("float") ? 3 : 1;
    EXPECT_EQ(tag, p.wfx->wFormatTag) << name;
    EXPECT_EQ(rate, p.wfx->nSamplesPerSec) << name;
    EXPECT_EQ(channels, p.wfx->nChannels) << name;
    EXPECT_EQ(bits, p.wfx->wBitsPerSample) << name;
    EXPECT_EQ(align, p.wfx->nBlockAlign) << name;
    EXPECT_EQ(align * rate, p.wfx->nAvgBytesPerSec) << name;
    EXPECT_EQ(frames, p.frames) << name;
    EXPECT_EQ(DataOffsetOf(ReadFileBytes(Data(name))), p.offset) << name;
    ++checked;
  }
  EXPECT_GE(checked, 17);
}

Bytes Aiff(uint16_t channels, uint32_t frames, uint16_t bits, uint32_t ssndBytes,
           uint32_t ssndOffset) {
  Bytes comm, ssnd;
  PutBe(comm, channels, 2);
  PutBe(comm, frames);
  PutBe(comm, bits, 2);
  for (uint16_t w : {0x400E, 0xAC44, 0, 0, 0}) PutBe(comm, w, 2);  // 44100 Hz
  PutBe(ssnd, ssndOffset);
  PutBe(ssnd, 0);
  ssnd.resize(8 + ssndOffset + ssndBytes, 0x55);
  return IffForm("AIFF", Cat({IffChunk("ANNO", {'h', 'i', '!'}), IffChunk("COMM", comm),
                            IffChunk("SSND", ssnd)}));
}

TEST(MetaProbe, UnusualAiffSampleSizes) {
  const struct {
    uint16_t channels, bits;
    uint32_t frames, ssndBytes, ssndOffset;
    WORD tag, align;
    DWORD avg, framesOut;
  } cases[] = {
      {1, 12, 100, 200, 0, 0xFE02, 1, 44100, 100},  // 12 / 8 = 1 byte a frame
      {2, 4, 100, 100, 0, 0xFE02, 1, 0, 100},       // alignment raised to 1 after avg came out 0
      {2, 8, 50, 100, 0, 0xFE01, 2, 88200, 50},
      {1, 16, 10, 400, 0, 0xFE02, 2, 88200, 10},    // SSND longer than COMM's count
      {1, 16, 1000, 64, 6, 0xFE02, 2, 88200, 32},   // shorter; the offset is not sample data
  };
  for (const auto &c : cases) {
    File f("probe_aiff.aiff", Aiff(c.channels, c.frames, c.bits, c.ssndBytes, c.ssndOffset));
    WAVEFORMATEX w;
    memset(&w, 0xCD, sizeof w);
    DWORD frames = 0, offset = 0;
    ASSERT_EQ(S_OK, iff_GetAIFFWfx(f.h(), &w, &frames, &offset)) << c.bits;
    EXPECT_EQ(c.tag, w.wFormatTag) << c.bits;
    EXPECT_EQ(c.align, w.nBlockAlign) << c.bits;
    EXPECT_EQ(c.avg, w.nAvgBytesPerSec) << c.bits;
    EXPECT_EQ(0xCDCD, w.cbSize);  // nothing beyond the six fields
    EXPECT_EQ(c.framesOut, frames) << c.bits;
    EXPECT_EQ(12u + 12 + 26 + 16 + c.ssndOffset, offset) << c.bits;
  }
  File nocomm("probe_nocomm.aiff", IffForm("AIFF", IffChunk("SSND", Bytes(4, 0))));
  EXPECT_EQ(KYERR_NOT_FOUND, iff_GetAIFFWfx(nocomm.h(), nullptr, nullptr, nullptr));
}

Bytes Wave(WORD tag, WORD align, bool withData = true) {
  Bytes fmt;
  PutLe(fmt, {tag | 2u << 16, 8000, 32000, align | 16u << 16});
  return Riff("WAVE", Cat({Chunk("fmt ", fmt), withData ? Chunk("data", Bytes(40, 0)) : Bytes()}));
}

TEST(MetaProbe, RefusedAndRepairedFiles) {
  for (const char *name : {"bad_align.wav", "dmg_trunc.aiff", "no_such_file.wav"})
    EXPECT_EQ(nullptr, Probe(Data(name)).wfx) << name;
  EXPECT_EQ(0u, Probe(Data("dmg_trunc.aiff")).frames);  // AIFF outputs are stored even then
  EXPECT_EQ(0xDEADu, Probe(Data("no_such_file.wav")).frames);
  const std::string path = Scratch("probe.wav");
  WriteFileBytes(path, Wave(1, 3));  // PCM alignment repaired before the check
  Probe rep(path);
  ASSERT_NE(nullptr, rep.wfx);
  EXPECT_EQ(4, rep.wfx->nBlockAlign);
  EXPECT_EQ(10u, rep.frames);
  EXPECT_EQ(12u + 24 + 8, rep.offset);
  WriteFileBytes(path, Wave(0xFE00, 4));
  EXPECT_NE(nullptr, Probe(path).wfx);
  WriteFileBytes(path, Wave(1, 4, false));
  EXPECT_EQ(nullptr, Probe(path).wfx);
  // Zero rates are read as 0 Hz, in either container.
  for (const char *name : {"dmg_rate0.wav", "dmg_rate0.aiff"}) {
    Probe p(Data(name));
    ASSERT_NE(nullptr, p.wfx) << name;
    EXPECT_EQ(0u, p.wfx->nSamplesPerSec);
    EXPECT_EQ(0u, p.wfx->nAvgBytesPerSec);
  }
}

}  // namespace
