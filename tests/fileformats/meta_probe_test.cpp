// The wave-format probe and the AIFF description, against soxi's view of independent files
// and hand-made AIFF files with unusual sample sizes.
#include <stdio.h>
#include <stdlib.h>

#include <fstream>
#include <sstream>

#include "ky_iff.h"
#include "ky_status.h"
#include "meta_testutil.h"

using namespace metatest;
using kytest::DataPath;

namespace {

struct Probe {
  WAVEFORMATEX *wfx = nullptr;
  ULONGLONG frames = 0xDEAD, offset = 0xBEEF;
  explicit Probe(const std::string &path) { wfx = KyGetFileWfx(path.c_str(), &frames, &offset); }
  ~Probe() { free(wfx); }
};

// The data offset as an independent reader finds it: after "data"'s header in a WAVE file, or
// after SSND's header, offset and block-size fields plus the offset in an AIFF file.
ULONGLONG DataOffsetOf(const Bytes &b) {
  auto find = [&](const char *id) -> size_t {
    for (size_t p = 12; p + 8 <= b.size();) {
      uint32_t size = b[0] == 'R'
                          ? (b[p + 4] | b[p + 5] << 8 | b[p + 6] << 16 | (uint32_t)b[p + 7] << 24)
                          : ((uint32_t)b[p + 4] << 24 | b[p + 5] << 16 | b[p + 6] << 8 | b[p + 7]);
      if (memcmp(&b[p], id, 4) == 0) return p;
      p += 8 + size + (size & 1);
    }
    return 0;
  };
  if (b[0] == 'R') return find("data") + 8;
  size_t s = find("SSND");
  uint32_t off = (uint32_t)b[s + 8] << 24 | b[s + 9] << 16 | b[s + 10] << 8 | b[s + 11];
  return s + 16 + off;
}

// soxi.txt (made by make_fixtures.sh): file rate channels frames bits.
TEST(MetaProbe, AgreesWithSoxi) {
  std::string text;
  {
    Bytes raw = ReadFileBytes(DataPath("meta/soxi.txt"));
    text.assign(raw.begin(), raw.end());
  }
  std::istringstream in(text);
  std::string name;
  DWORD rate, channels, bits;
  ULONGLONG frames;
  int checked = 0;
  while (in >> name >> rate >> channels >> frames >> bits) {
    Probe p(DataPath("meta/" + name));
    bool aiff = name.find(".aif") != std::string::npos;
    // The probe knows plain AIFF only and, in WAVE files, tags 1, 3 and FE00-FE02: AIFF-C and
    // the extensible WAVE form are refused.
    if (name.find(".aifc") != std::string::npos || name.find("_ext.wav") != std::string::npos) {
      EXPECT_EQ(nullptr, p.wfx) << name;
      continue;
    }
    ASSERT_NE(nullptr, p.wfx) << name;
    EXPECT_EQ(rate, p.wfx->nSamplesPerSec) << name;
    EXPECT_EQ(channels, p.wfx->nChannels) << name;
    EXPECT_EQ(bits, p.wfx->wBitsPerSample) << name;
    EXPECT_EQ(frames, p.frames) << name;
    WORD align = (WORD)(bits / 8 * channels);
    EXPECT_EQ(align, p.wfx->nBlockAlign) << name;
    EXPECT_EQ(align * rate, p.wfx->nAvgBytesPerSec) << name;
    bool isFloat = name.find("f32") != std::string::npos || name.find("float") != std::string::npos;
    WORD tag = aiff ? (bits == 8 ? 0xFE01 : 0xFE02) : (isFloat ? 3 : 1);
    EXPECT_EQ(tag, p.wfx->wFormatTag) << name;
    EXPECT_EQ(DataOffsetOf(ReadFileBytes(DataPath("meta/" + name))), p.offset) << name;
    ++checked;
  }
  EXPECT_GE(checked, 17);
}

struct Comm {
  uint16_t channels;
  uint32_t frames;
  uint16_t bits;
  uint16_t rate[5];
};

Bytes Aiff(const Comm &c, uint32_t ssndBytes, uint32_t ssndOffset = 0, bool aifc = false) {
  Bytes comm;
  Put16be(comm, c.channels);
  Put32be(comm, c.frames);
  Put16be(comm, c.bits);
  for (uint16_t w : c.rate) Put16be(comm, w);
  Bytes ssnd;
  Put32be(ssnd, ssndOffset);
  Put32be(ssnd, 0);
  ssnd.resize(8 + ssndOffset + ssndBytes, 0x55);
  Bytes body = IffChunk("ANNO", {'h', 'i', '!'});
  Append(body, IffChunk("COMM", comm));
  Append(body, IffChunk("SSND", ssnd));
  return IffForm(aifc ? "AIFC" : "AIFF", body);
}

TEST(MetaProbe, UnusualAiffSampleSizes) {
  const uint16_t r44[5] = {0x400E, 0xAC44, 0, 0, 0};
  struct {
    const char *what;
    Comm comm;
    uint32_t ssndBytes, ssndOffset;
    WORD tag, align;
    DWORD avg;
    DWORD frames;
  } cases[] = {
      // 12 bits in mono: 12 / 8 = 1 byte a frame.
      {"12-bit", {1, 100, 12, {}}, 200, 0, 0xFE02, 1, 44100, 100},
      // 4 bits: the alignment is raised to 1 after the average rate came out 0.
      {"4-bit", {2, 100, 4, {}}, 100, 0, 0xFE02, 1, 0, 100},
      {"8-bit stereo", {2, 50, 8, {}}, 100, 0, 0xFE01, 2, 88200, 50},
      // SSND holds more than COMM's frame count: the COMM count stands.
      {"long SSND", {1, 10, 16, {}}, 400, 0, 0xFE02, 2, 88200, 10},
      // SSND holds fewer: its size decides; the offset is left out of the sample bytes.
      {"short SSND", {1, 1000, 16, {}}, 64, 6, 0xFE02, 2, 88200, 32},
  };
  for (auto &c : cases) {
    memcpy(c.comm.rate, r44, sizeof r44);
    TempFile f("probe_aiff.aiff", Aiff(c.comm, c.ssndBytes, c.ssndOffset));
    WAVEFORMATEX w;
    memset(&w, 0xCD, sizeof w);
    DWORD frames = 0, offset = 0;
    ASSERT_EQ(S_OK, iff_GetAIFFWfx(f.h(), &w, &frames, &offset)) << c.what;
    EXPECT_EQ(c.tag, w.wFormatTag) << c.what;
    EXPECT_EQ(c.align, w.nBlockAlign) << c.what;
    EXPECT_EQ(c.avg, w.nAvgBytesPerSec) << c.what;
    EXPECT_EQ(44100u, w.nSamplesPerSec) << c.what;
    EXPECT_EQ(c.comm.bits, w.wBitsPerSample) << c.what;
    EXPECT_EQ(0xCDCD, w.cbSize) << c.what;  // nothing beyond the six fields
    EXPECT_EQ(c.frames, frames) << c.what;
    // FORM(12) + ANNO(8+3+1) + COMM(8+18) + SSND header and fields (16) + offset
    EXPECT_EQ(12u + 12 + 26 + 16 + c.ssndOffset, offset) << c.what;
  }
}

TEST(MetaProbe, AiffFailures) {
  const Comm c = {1, 10, 16, {0x400E, 0xAC44, 0, 0, 0}};
  WAVEFORMATEX w = {};
  TempFile aifc("probe.aifc", Aiff(c, 20, 0, true));
  EXPECT_EQ(KYERR_FILE_CORRUPT, iff_GetAIFFWfx(aifc.h(), &w, nullptr, nullptr));
  TempFile wav("probe.wav", Riff("WAVE", Chunk("fmt ", Bytes(16, 0))));
  EXPECT_EQ(KYERR_FILE_CORRUPT, iff_GetAIFFWfx(wav.h(), nullptr, nullptr, nullptr));

  // No COMM inside the FORM, and no SSND.
  TempFile nc("probe_nocomm.aiff", IffForm("AIFF", IffChunk("SSND", Bytes(4, 0))));
  EXPECT_EQ(KYERR_NOT_FOUND, iff_GetAIFFWfx(nc.h(), &w, nullptr, nullptr));
  Bytes noSsnd = Aiff(c, 20);
  noSsnd.resize(12 + 12 + 26);
  noSsnd[7] = (uint8_t)(4 + 12 + 26);
  TempFile ns("probe_nossnd.aiff", noSsnd);
  EXPECT_EQ(KYERR_NOT_FOUND, iff_GetAIFFWfx(ns.h(), &w, nullptr, nullptr));

  Fixture trunc("dmg_trunc.aiff");
  EXPECT_EQ(KYERR_FILE_READ, iff_GetAIFFWfx(trunc.h(), &w, nullptr, nullptr));
  Probe pt(trunc.path());
  EXPECT_EQ(nullptr, pt.wfx);
  EXPECT_EQ(0u, pt.frames);

  // A zero rate is read as 0 Hz; the probe still describes the file.
  Probe p0(DataPath("meta/dmg_rate0.aiff"));
  ASSERT_NE(nullptr, p0.wfx);
  EXPECT_EQ(0u, p0.wfx->nSamplesPerSec);
  EXPECT_EQ(0u, p0.wfx->nAvgBytesPerSec);
  EXPECT_EQ(441u, p0.frames);
}

TEST(MetaProbe, WaveFailures) {
  // Block alignment disagreeing with bits and channels: refused, not tried as AIFF.
  Probe bad(DataPath("meta/bad_align.wav"));
  EXPECT_EQ(nullptr, bad.wfx);
  Probe missing(DataPath("meta/no_such_file.wav"));
  EXPECT_EQ(nullptr, missing.wfx);
  EXPECT_EQ(0xDEADu, missing.frames);  // an unopenable file touches nothing
  EXPECT_EQ(nullptr, KyGetFileWfx(nullptr, nullptr, nullptr));

  // A PCM header with a wrong alignment is repaired first and then accepted.
  Bytes fmt;
  for (uint16_t v : {1, 2}) Put16le(fmt, v);
  Put32le(fmt, 8000);
  Put32le(fmt, 32000);
  Put16le(fmt, 3);  // should be 4
  Put16le(fmt, 16);
  Bytes body = Chunk("fmt ", fmt);
  Append(body, Chunk("data", Bytes(40, 0)));
  std::string path = Scratch("probe_repair.wav");
  WriteFileBytes(path, Riff("WAVE", body));
  Probe rep(path);
  ASSERT_NE(nullptr, rep.wfx);
  EXPECT_EQ(4, rep.wfx->nBlockAlign);
  EXPECT_EQ(10u, rep.frames);
  EXPECT_EQ(12u + 24 + 8, rep.offset);

  // No "data" chunk, and a private tag accepted from a WAVE file.
  WriteFileBytes(path, Riff("WAVE", Chunk("fmt ", fmt)));
  Probe nodata(path);
  EXPECT_EQ(nullptr, nodata.wfx);
  fmt[0] = 0x00;
  fmt[1] = 0xFE;
  fmt[12] = 4;
  body = Chunk("fmt ", fmt);
  Append(body, Chunk("data", Bytes(40, 0)));
  WriteFileBytes(path, Riff("WAVE", body));
  Probe priv(path);
  ASSERT_NE(nullptr, priv.wfx);
  EXPECT_EQ(0xFE00, priv.wfx->wFormatTag);

  // Zero rate in "fmt ": still a description.
  Probe r0(DataPath("meta/dmg_rate0.wav"));
  ASSERT_NE(nullptr, r0.wfx);
  EXPECT_EQ(0u, r0.wfx->nSamplesPerSec);
  EXPECT_EQ(44100u, r0.frames);
}

}  // namespace
