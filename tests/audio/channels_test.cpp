// Channel routing, channel count changes, extraction, silence, gain, the flush cross-fade,
// peaks and reversal.
#include "ky_testutil.h"
#include "audio_ref.h"

using namespace audioref;

namespace {

WAVEFORMATEX FmtOf(KYSAMPLETYPE t, WORD channels) {
  WAVEFORMATEX f = {};
  f.wFormatTag = WORD(KyAudio_FormatTagFromSampleType(t));
  f.wBitsPerSample = WORD(KyAudio_BitsFromSampleType(t));
  f.nChannels = channels;
  f.nSamplesPerSec = 44100;
  f.nBlockAlign = WORD(KyAudio_BytesFromSampleType(t) * channels);
  return f;
}

TEST(AudioChannels, RoutingConvertsMappedChannelsOnly) {
  // Every pair with a converter routes: source channel 0 -> 2, 1 -> skipped, 2 -> 0.
  const unsigned seed = 99;
  for (const Type &S : kTypes) {
    const std::vector<uint8_t> pool = SourceSamples(S.t, seed);
    const LONG frames = LONG(pool.size() / S.bytes / 3);
    for (const Type &D : kTypes) {
      WAVEFORMATEX df = FmtOf(D.t, 4), sf = FmtOf(S.t, 3);
      KYAUDIOROUTEFUNC r = KyAudio_GetCopyChannelsFunction(&df, &sf);
      ASSERT_EQ(r != nullptr, KyAudio_GetCopyFunction2(D.t, S.t) != nullptr);
      if (!r) continue;
      const LONG map[3] = {2, -1, 0};
      std::vector<uint8_t> dst(size_t(frames) * 4 * D.bytes, 0x5A);
      ASSERT_EQ(KyAudio_CopyChannels(&df, dst.data(), &sf, pool.data(), frames, map), S_OK);
      std::vector<uint8_t> want(dst.size(), 0x5A); // channels 1 and 3 stay untouched
      for (size_t i = 0; i < size_t(frames); ++i)
        for (int c : {0, 2})
          Convert(D.t, &want[(i * 4 + c) * D.bytes], S.t, &pool[(i * 3 + 2 - c) * S.bytes], 1.0f);
      int bad = 0;
      for (size_t i = 0; i < dst.size(); i += D.bytes) bad += !SameSample(D.t, &dst[i], &want[i]);
      EXPECT_EQ(bad, 0) << D.name << " <- " << S.name;
    }
  }
  // A null map or equal channel counts is a plain copy; a missing pair E_NOTIMPL.
  WAVEFORMATEX f2 = FmtOf(32, 2), s2 = FmtOf(17, 2), s3 = FmtOf(17, 3), be = FmtOf(66, 3);
  const int16_t in[6] = {16384, -16384, 8192, 0, 0, 0};
  float out[4] = {};
  const LONG map[2] = {1, 0};
  ASSERT_EQ(KyAudio_CopyChannels(&f2, out, &s2, in, 2, map), S_OK);
  EXPECT_EQ(out[0], 0.5f); // map ignored for equal counts
  ASSERT_EQ(KyAudio_CopyChannels(&f2, out, &s3, in, 1, nullptr), S_OK);
  EXPECT_EQ(KyAudio_CopyChannels(&be, out, &s2, in, 1, map), E_NOTIMPL);
  EXPECT_EQ(KyAudio_CopyChannels(&be, out, &s2, in, 0, map), S_OK);
}

TEST(AudioChannels, FoldDownSumsWithoutDividing) {
  WAVEFORMATEX u8 = FmtOf(16, 3), s16 = FmtOf(17, 2), s24 = FmtOf(18, 2), f32 = FmtOf(32, 2);
  const uint8_t a8[6] = {0xC0, 0xC0, 0x80, 0x00, 0x00, 0x10};
  uint8_t m8[2];
  ASSERT_EQ(KyAudio_ChannelChange(m8, 1, a8, &u8, 2), S_OK);
  EXPECT_EQ(m8[0], 0xFF); // 0.5 + 0.5 clips at full scale
  EXPECT_EQ(m8[1], 0x00); // -1 - 1 - 0.875 clips
  const int16_t a16[6] = {20000, 20000, -100, 50, -30000, -30000};
  int16_t m16[3];
  ASSERT_EQ(KyAudio_MonoChannel(m16, a16, &s16, 3), S_OK);
  EXPECT_EQ(std::vector<int16_t>(m16, m16 + 3), (std::vector<int16_t>{32767, -50, -32768}));
  const uint8_t a24[12] = {0x00, 0x00, 0x40, 0x01, 0x00, 0x00, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
  uint8_t m24[6];
  ASSERT_EQ(KyAudio_ChannelChange(m24, 1, a24, &s24, 2), S_OK);
  EXPECT_EQ(GetInt(KYSAMPLE_S24, m24), 0x400001);
  EXPECT_EQ(GetInt(KYSAMPLE_S24, m24 + 3), -2);
  const float af[4] = {0.75f, 0.75f, -2.0f, 0.5f};
  float mf[2];
  ASSERT_EQ(KyAudio_ChannelChange(mf, 1, af, &f32, 2), S_OK);
  EXPECT_EQ(std::vector<float>(mf, mf + 2), (std::vector<float>{1.5f, -1.5f})); // no clamp
  // Only mono destinations, and only four types, may fold.
  WAVEFORMATEX quad = FmtOf(17, 4), s32 = FmtOf(19, 2), f64 = FmtOf(33, 2);
  int16_t big[8] = {};
  EXPECT_EQ(KyAudio_ChannelChange(big, 2, big, &quad, 1), E_FAIL);
  EXPECT_EQ(KyAudio_ChannelChange(big, 1, big, &s32, 1), E_FAIL);
  EXPECT_EQ(KyAudio_ChannelChange(big, 1, big, &f64, 1), E_FAIL);
  EXPECT_EQ(KyAudio_ChannelChange(big, 0, big, &s16, 1), E_FAIL);
}

TEST(AudioChannels, ExpansionInPlaceAndEqualCountsCopy) {
  for (const Type &T : kTypes) {
    WAVEFORMATEX mono = FmtOf(T.t, 1);
    const std::vector<uint8_t> src = SourceSamples(T.t, 3);
    const LONG frames = 40;
    std::vector<uint8_t> buf(size_t(frames) * 3 * T.bytes);
    memcpy(buf.data(), src.data(), size_t(frames) * T.bytes);
    ASSERT_EQ(KyAudio_ChannelChange(buf.data(), 3, buf.data(), &mono, frames), S_OK) << T.name;
    int bad = 0; // every frame's sample copied to all three channels
    for (size_t i = 0; i < size_t(frames) * 3; ++i)
      bad += memcmp(&buf[i * T.bytes], &src[i / 3 * T.bytes], T.bytes) != 0;
    EXPECT_EQ(bad, 0) << T.name;
  }
  WAVEFORMATEX st = FmtOf(17, 2), be = FmtOf(66, 2);
  const int16_t in[4] = {1, 2, 3, 4};
  int16_t out[4] = {};
  ASSERT_EQ(KyAudio_ChannelChange(out, 2, in, &st, 2), S_OK);
  EXPECT_EQ(memcmp(in, out, sizeof in), 0);
  EXPECT_EQ(KyAudio_ChannelChange(out, 4, in, &st, 1), E_FAIL); // stereo to 4: not supported
  EXPECT_EQ(KyAudio_ChannelChange(out, 2, in, &be, 1), E_NOTIMPL); // no 32-bit BE copy
}

TEST(AudioChannels, ExtractAndSilence) {
  WAVEFORMATEX s24 = FmtOf(18, 3);
  uint8_t in[18];
  for (int i = 0; i < 18; ++i) in[i] = uint8_t(i);
  uint8_t out[6];
  ASSERT_EQ(KyAudio_ExtractChannel(out, 2, in, &s24, 2), S_OK);
  const uint8_t want[6] = {6, 7, 8, 15, 16, 17};
  EXPECT_EQ(memcmp(out, want, 6), 0);
  EXPECT_EQ(KyAudio_ExtractChannel(out, 3, in, &s24, 2), E_FAIL);
  EXPECT_EQ(KyAudio_ExtractChannel(out, -1, in, &s24, 2), E_FAIL);
  EXPECT_EQ(KyAudio_ExtractChannel(out, 0, in, nullptr, 2), E_FAIL);
  EXPECT_EQ(KyAudio_ExtractChannel(nullptr, 0, in, &s24, 2), E_POINTER);
  EXPECT_EQ(KyAudio_FillSilence(nullptr, out, 2), E_FAIL);
  EXPECT_EQ(KyAudio_FillSilence(&s24, nullptr, 2), E_POINTER);

  struct Row { WORD tag, bits; HRESULT hr; int fill; /* -1: nothing written */ } rows[] = {{1, 8, S_OK, 0x80},      {1, 16, S_OK, 0},     {0xFE02, 8, S_OK, 0x80},
              {0xFE02, 16, S_OK, 0},   {0xFE01, 8, S_OK, 0}, {0xFE00, 32, S_OK, 0},
              {3, 32, S_OK, 0},        {2, 8, E_FAIL, -1},   {0x55, 16, E_FAIL, -1}};
  for (const Row &r : rows) {
    WAVEFORMATEX f = {r.tag, 3, 0, 0, WORD(r.bits / 8 * 3), r.bits, 0};
    uint8_t buf[64];
    memset(buf, 0x11, sizeof buf);
    EXPECT_EQ(KyAudio_FillSilence(&f, buf, 5), r.hr) << r.tag;
    const int n = f.nBlockAlign * 5;
    for (int i = 0; i < n; ++i)
      if (buf[i] != (r.fill < 0 ? 0x11 : r.fill)) {
        ADD_FAILURE() << "tag " << r.tag << " byte " << i;
        break;
      }
    EXPECT_EQ(buf[n], 0x11) << "wrote past the end, tag " << r.tag;
  }
  WAVEFORMATEXTENSIBLE x = {{WAVE_FORMAT_EXTENSIBLE, 1, 0, 0, 1, 8, 22}, {}, 0, {}};
  uint8_t buf[4] = {1, 1, 1, 1};
  EXPECT_EQ(KyAudio_FillSilence(&x.Format, buf, 4), S_OK); // not PCM: nothing written
  EXPECT_EQ(buf[0], 1);
  x.SubFormat = {0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
  EXPECT_EQ(KyAudio_FillSilence(&x.Format, buf, 4), S_OK);
  EXPECT_EQ(buf[3], 0x80);

  WAVEFORMATEX u8 = FmtOf(16, 2);
  uint8_t st[6] = {1, 2, 3, 4, 5, 6};
  ASSERT_EQ(KyAudio_FillSilenceChannel(&u8, st, 1, 3), S_OK);
  const uint8_t wantSt[6] = {1, 0x80, 3, 0x80, 5, 0x80};
  EXPECT_EQ(memcmp(st, wantSt, 6), 0);
  EXPECT_EQ(KyAudio_FillSilenceChannel(&u8, st, 2, 3), E_FAIL);
}

TEST(AudioChannels, GainAndFlushFade) {
  WAVEFORMATEX f32 = FmtOf(32, 2), f64 = FmtOf(33, 2), s16 = FmtOf(17, 2), f6 = FmtOf(32, 6);
  float a[4] = {0.1f, 0.1f, 1.0f, -1.0f};
  const double g[2] = {3.0, 0.5};
  ASSERT_EQ(KyAudio_SetGain(a, &f32, 2, g), S_OK);
  EXPECT_EQ(a[0], float(double(0.1f) * 3.0)); // product in double, then rounded
  EXPECT_EQ(a[1], 0.05f);
  EXPECT_EQ(a[3], -0.5f);
  double d[2] = {0.25, 0.25};
  ASSERT_EQ(KyAudio_SetGain(d, &f64, 1, g), S_OK);
  EXPECT_EQ(d[0], 0.75);
  EXPECT_EQ(d[1], 0.125);
  EXPECT_EQ(KyAudio_SetGain(d, &s16, 1, g), E_FAIL);
  EXPECT_EQ(KyAudio_SetGain(d, &f64, 0, g), S_OK);

  // Over 4 frames: source weight 1, 3/4, 1/2, 1/4; destination 0, 1/4, 1/2, 3/4. Only the
  // first 2 x frames floats change, whatever the channel count.
  float dst[24], src[24];
  std::fill_n(dst, 24, 1.0f);
  std::fill_n(src, 24, -1.0f);
  ASSERT_EQ(KyAudio_DoFlushFade(dst, src, &f6, 4), S_OK);
  const float want[8] = {-1, -1, -0.5f, -0.5f, 0, 0, 0.5f, 0.5f};
  for (int i = 0; i < 8; ++i) EXPECT_EQ(dst[i], want[i]) << i;
  for (int i = 8; i < 24; ++i) EXPECT_EQ(dst[i], 1.0f) << i;
  EXPECT_EQ(KyAudio_DoFlushFade(dst, src, &f64, 4), S_OK);
  EXPECT_EQ(KyAudio_DoFlushFade(dst, src, &s16, 4), E_FAIL);
}

TEST(AudioChannels, PeaksAndReverse) {
  const struct {
    KYSAMPLETYPE t;
    std::vector<uint8_t> data; // two frames of two channels
    DWORD peak0, peak1;
  } rows[] = {
      {16, {0x80, 0x00, 0x90, 0xFF}, 16, 128},
      {49, {0x00, 0x80, 0x10, 0x7F}, 16, 128},
      {17, {0x00, 0x80, 0x01, 0x00, 0xFF, 0xFF, 0x00, 0x00}, 32768, 1},
      {18, {1, 0, 0, 0, 0, 0x80, 0xFF, 0xFF, 0xFF, 0, 0, 0}, 1, 8388608},
      {19, {0, 0, 0, 0x80, 5, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 0x80000000u, 5},
      {48, {0, 0, 0x80, 0xFF, 1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0}, 8388608, 1},
  };
  for (auto &r : rows) {
    WAVEFORMATEX f = FmtOf(r.t, 2);
    DWORD peaks[2] = {7, 7};
    ASSERT_EQ(KyAudio_FindPeaks(&f, r.data.data(), 2, peaks), S_OK) << r.t;
    EXPECT_EQ(peaks[0], r.peak0) << r.t;
    EXPECT_EQ(peaks[1], r.peak1) << r.t;
  }
  WAVEFORMATEX f32 = FmtOf(32, 2), be = FmtOf(64, 2);
  const float fl[4] = {-0.75f, 0.25f, 0.5f, NAN};
  DWORD peaks[2];
  ASSERT_EQ(KyAudio_FindPeaks(&f32, fl, 2, peaks), S_OK);
  const float wantF[2] = {0.75f, 0.25f}; // float peaks come back as their bit patterns
  EXPECT_EQ(memcmp(peaks, wantF, 8), 0);
  EXPECT_EQ(KyAudio_FindPeaks(&be, fl, 2, peaks), E_NOTIMPL);
  EXPECT_EQ(KyAudio_GetFindPeaksFunction(&be), nullptr);

  // Reverse: frames swap, channels stay; in place and into another buffer agree.
  WAVEFORMATEX s24 = FmtOf(18, 2);
  uint8_t in[30], out[30];
  for (int i = 0; i < 30; ++i) in[i] = uint8_t(i);
  ASSERT_EQ(KyAudio_Reverse(&s24, out, in, 5), S_OK);
  for (int fr = 0; fr < 5; ++fr) EXPECT_EQ(memcmp(out + fr * 6, in + (4 - fr) * 6, 6), 0) << fr;
  ASSERT_EQ(KyAudio_Reverse(&s24, in, in, 5), S_OK);
  EXPECT_EQ(memcmp(in, out, 30), 0);
  WAVEFORMATEX bad = {};
  EXPECT_EQ(KyAudio_Reverse(&bad, out, in, 5), E_FAIL);
}

} // namespace
