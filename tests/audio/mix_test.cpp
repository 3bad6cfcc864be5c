// Mixers against a plainly written reference, the 16-bit mixer's own rules, mixing through
// a channel map, and gain envelopes (cooking, re-cooking, mixing with them).
#include "ky_testutil.h"
#include "audio_ref.h"

#include <string>

using namespace audioref;

namespace {

const KYSAMPLETYPE kMixTypes[] = {16, 17, 18, 19, 32, 33, 48, 49};

WAVEFORMATEX FmtOf(KYSAMPLETYPE t, WORD channels, DWORD rate = 48000) {
  WAVEFORMATEX f = {};
  f.wFormatTag = WORD(KyAudio_FormatTagFromSampleType(t));
  f.wBitsPerSample = WORD(KyAudio_BitsFromSampleType(t));
  f.nChannels = channels;
  f.nSamplesPerSec = rate;
  f.nBlockAlign = WORD(KyAudio_BytesFromSampleType(t) * channels);
  return f;
}

double FullScale(const Type &t) { return ldexp(1.0, t.bits - 1); }

// dst += gain x src for one sample, by the mixing rules.
void RefMixOne(KYSAMPLETYPE dt, uint8_t *p, KYSAMPLETYPE st, const uint8_t *q, double g) {
  const Type &D = Of(dt), &S = Of(st);
  const double x = S.isFloat ? GetFloat(st, q) : double(GetInt(st, q));
  const double factor = S.isFloat ? g : g / FullScale(S);
  if (dt == KYSAMPLE_F32) { // summed in single precision
    float f;
    memcpy(&f, p, 4);
    f = f + float(x) * float(factor);
    memcpy(p, &f, 4);
    return;
  }
  if (dt == KYSAMPLE_F64) {
    double f;
    memcpy(&f, p, 8);
    f += x * factor;
    memcpy(p, &f, 8);
    return;
  }
  int64_t term;
  if (g == 1.0 && !S.isFloat) {
    const int shift = D.bits - S.bits;
    term = shift >= 0 ? int64_t(x) * (int64_t(1) << shift) : (int64_t(x) >> -shift);
  } else {
    term = TruncClamp(x * g * (S.isFloat ? FullScale(D) : FullScale(D) / FullScale(S)), D.bits);
  }
  const int64_t lo = -int64_t(FullScale(D)), hi = -lo - 1;
  int64_t sum = GetInt(dt, p) + term;
  PutInt(dt, p, sum < lo ? lo : sum > hi ? hi : sum);
}

std::vector<uint8_t> Random(KYSAMPLETYPE t, size_t n, std::mt19937 &rng) {
  const Type &T = Of(t);
  std::vector<uint8_t> v(n * T.bytes);
  std::uniform_real_distribution<double> u(-1.2, 1.2); // floats a little past full scale
  for (uint8_t *p = v.data(); p < v.data() + v.size(); p += T.bytes) {
    const double d = u(rng);
    const float f = float(d);
    if (t == KYSAMPLE_F32) memcpy(p, &f, 4);
    else if (t == KYSAMPLE_F64) memcpy(p, &d, 8);
    else PutInt(t, p, TruncClamp(d * FullScale(T), T.bits));
  }
  return v;
}

TEST(AudioMix, EveryMixerMatchesTheReference) {
  const unsigned seed = 4242;
  std::mt19937 rng(seed);
  const double gainSets[][2] = {{0.5, -0.25}, {1.0, 2.0}, {1.9, 0.001}}; // {1, 2}: unity on channel 0 only
  const size_t frames = 600;
  for (KYSAMPLETYPE dt : kMixTypes)
    for (KYSAMPLETYPE st : kMixTypes) {
      WAVEFORMATEX df = FmtOf(dt, 2), sf = FmtOf(st, 2);
      KYAUDIOMIXFUNC f = KyAudio_GetMixFunction(&df, &sf);
      ASSERT_NE(f, nullptr) << dt << " <- " << st;
      for (auto &g : gainSets) {
        const std::vector<uint8_t> src = Random(st, frames * 2, rng);
        std::vector<uint8_t> dst = Random(dt, frames * 2, rng), ref = dst;
        ASSERT_EQ(KyAudio_Mix(&df, dst.data(), &sf, src.data(), LONG(frames), g), S_OK);
        const bool s16 = dt == KYSAMPLE_S16 && st == KYSAMPLE_S16; // only gains[0] counts
        const size_t db = Of(dt).bytes, sb = Of(st).bytes;
        int bad = 0;
        for (size_t i = 0; i < frames * 2; ++i) {
          RefMixOne(dt, &ref[i * db], st, &src[i * sb], s16 ? g[0] : g[i % 2]);
          bad += !SameSample(dt, &dst[i * db], &ref[i * db]);
        }
        EXPECT_EQ(bad, 0) << Of(dt).name << " <- " << Of(st).name << " gains " << g[0] << ","
                          << g[1] << " seed " << seed;
      }
    }
}

// The processor-specific mixers give the plain loop's bits for every channel count.
TEST(AudioMix, ProcessorVariantsGiveThePlainBits) {
  auto setLevel = kytest::Export<LONG(WINAPI *)(LONG)>("KyInternal_AudioSetMixLevel");
  ASSERT_NE(setLevel, nullptr);
  const unsigned seed = 1234;
  std::mt19937 rng(seed);
  // Ordinary gains, then the 16-bit mixer's unity and NaN first gains.
  const double gainSets[][4] = {{0.3, -1.7, 1.0, 0.999}, {1.0, 2, 2, 2}, {NAN, 2, 2, 2}};
  const KYSAMPLETYPE pairs[][2] = {{32, 17}, {32, 32}, {17, 17}};
  for (auto &p : pairs)
    for (WORD ch : {1, 2, 3, 4})
      for (LONG frames : {1, 3, 8, 37, 1000}) {
        WAVEFORMATEX df = FmtOf(p[0], ch), sf = FmtOf(p[1], ch);
        const std::vector<uint8_t> src = Random(p[1], size_t(frames) * ch, rng);
        const std::vector<uint8_t> start = Random(p[0], size_t(frames) * ch, rng);
        for (auto &g : gainSets) {
          std::vector<uint8_t> plain = start, fast = start;
          setLevel(0);
          ASSERT_EQ(KyAudio_Mix(&df, plain.data(), &sf, src.data(), frames, g), S_OK);
          setLevel(5);
          ASSERT_EQ(KyAudio_Mix(&df, fast.data(), &sf, src.data(), frames, g), S_OK);
          EXPECT_TRUE(plain == fast) << Of(p[0]).name << " <- " << Of(p[1]).name << " channels "
                                     << ch << " frames " << frames << " gain " << g[0]
                                     << " seed " << seed;
        }
      }
  setLevel(-1);
}

TEST(AudioMix, SixteenBitRulesAndRefusals) {
  WAVEFORMATEX s16 = FmtOf(17, 2), s16m = FmtOf(17, 1), be = FmtOf(64, 2);
  // Only gains[0] counts; the scaled source is truncated before the addition.
  int16_t dst[4] = {-1, -1, 32767, -32768};
  const int16_t src[4] = {1, 1, 32767, -32768};
  const double g[2] = {0.6, 100.0};
  ASSERT_EQ(KyAudio_Mix(&s16, dst, &s16, src, 2, g), S_OK);
  // -1 + trunc(0.6), not trunc(-0.4); channel 1 also used 0.6; the sums clamp.
  EXPECT_EQ(std::vector<int16_t>(dst, dst + 4), (std::vector<int16_t>{-1, -1, 32767, -32768}));
  const double unity[2] = {1.0, 1.0};
  int16_t same[2] = {1000, -1000};
  ASSERT_EQ(KyAudio_Mix(&s16, same, &s16, same, 1, unity), S_OK); // into itself: no-op
  EXPECT_EQ(same[0], 1000);
  EXPECT_EQ(KyAudio_Mix(&s16, dst, &s16m, src, 1, unity), E_FAIL); // channel counts differ
  EXPECT_EQ(KyAudio_Mix(&be, dst, &s16, src, 1, unity), E_NOTIMPL);
  EXPECT_EQ(KyAudio_Mix(&be, dst, &s16, src, 0, unity), S_OK);
  EXPECT_EQ(KyAudio_Mix(&s16, dst, &s16, src, 1, nullptr), E_POINTER);
  EXPECT_EQ(KyAudio_GetMixFunction(&be, &s16), nullptr);
  EXPECT_EQ(KyAudio_GetMixFunction(&s16, &be), nullptr);
  EXPECT_EQ(KyAudio_GetMixExFunction(&s16, &be), nullptr);
  EXPECT_EQ(KyAudio_GetMixChannelsFunction(&be, &s16), nullptr);
}

TEST(AudioMix, MixChannelsFollowsTheMap) {
  WAVEFORMATEX quad = FmtOf(32, 4), stereo = FmtOf(17, 2);
  float dst[8] = {1, 1, 1, 1, 1, 1, 1, 1};
  const int16_t src[4] = {16384, -8192, 8192, 32767};
  const LONG map[2] = {3, 0};
  const double g[2] = {1.0, 2.0};
  ASSERT_EQ(KyAudio_MixChannels(&quad, dst, &stereo, src, 2, g, map), S_OK);
  const float want[8] = {1 - 0.5f, 1, 1, 1.5f, 1 + float(32767 / 16384.0), 1, 1, 1.25f};
  for (int i = 0; i < 8; ++i) EXPECT_FLOAT_EQ(dst[i], want[i]) << i;
  const LONG skip[2] = {-1, 4};
  ASSERT_EQ(KyAudio_MixChannels(&quad, dst, &stereo, src, 2, g, skip), S_OK);
  for (int i = 0; i < 8; ++i) EXPECT_FLOAT_EQ(dst[i], want[i]) << i;
}

// ---- envelopes ----

tKYASR Asr(float start, double attackMs, float sustain, double releaseMs, float end,
           LONG attackCurve = 0, LONG releaseCurve = 0) {
  return {0, start, LONGLONG(attackMs * 10000), LONGLONG(releaseMs * 10000), attackCurve,
          sustain, releaseCurve, end};
}

TEST(AudioEnvelope, CookingLengthsAndLevels) {
  WAVEFORMATEX f = FmtOf(17, 1, 1000); // 1 frame per millisecond
  tKYASR a = Asr(0.0f, 10, 1.0f, 20.4, 0.5f);
  tKYASRCOOKED c;
  ASSERT_EQ(KyAudio_ASRCook(&f, &a, &c, 0, 100 * 10000, 2.0), S_OK);
  EXPECT_EQ(c.attackFrames, 10u);
  EXPECT_EQ(c.releaseFrames, 20u);
  EXPECT_EQ(c.sustainFrames, 70);
  EXPECT_EQ(c.sustainLevel, 2.0 / 32768); // level x gain x the source type's scale
  EXPECT_EQ(c.remaining, 10);
  // Attack and release longer than the whole: split equally, the odd frame to the attack.
  a = Asr(0.0f, 20, 1.0f, 20, 0.0f);
  ASSERT_EQ(KyAudio_ASRCook(&f, &a, &c, 0, 25 * 10000, 1.0), S_OK);
  EXPECT_EQ(c.attackFrames, 13u);
  EXPECT_EQ(c.releaseFrames, 12u);
  EXPECT_EQ(c.sustainFrames, 0);
  // Level scale by source type.
  const struct { KYSAMPLETYPE t; double scale; } scales[] = {{16, 1 / 128.0}, {17, 1 / 32768.0}, {18, 1 / 8388608.0}, {19, 1 / 2147483648.0},
                {32, 1.0},       {33, 1.0},         {48, 1.0},           {49, 1.0}};
  a = Asr(1.0f, 0, 1.0f, 0, 1.0f);
  for (auto &s : scales) {
    WAVEFORMATEX g = FmtOf(s.t, 2);
    ASSERT_EQ(KyAudio_ASRCook(&g, &a, &c, 0, 0, 0.5), S_OK);
    EXPECT_EQ(c.endLevel, 0.5 * s.scale) << s.t;
  }
  // Past the release: the end level with an endless count.
  a = Asr(0.0f, 10, 1.0f, 10, 0.25f);
  ASSERT_EQ(KyAudio_ASRCook(&f, &a, &c, 500, 50 * 10000, 1.0), S_OK);
  EXPECT_EQ(c.remaining, 0x7FFFFFFFFFFFFFFFLL);
  EXPECT_EQ(c.value, 0.25 / 32768);
  EXPECT_EQ(c.step, 0.0);
  EXPECT_EQ(KyAudio_ASRCook(nullptr, &a, &c, 0, 0, 1.0), E_POINTER);
  EXPECT_EQ(KyAudio_ASRReCook(nullptr, 0), E_POINTER);
}

// The closed form of an envelope at frame t (the value the per-frame steps approach).
double EnvelopeAt(double t, double a, double s, double e, double att, double sus, double rel,
                  LONG ac, LONG rc) {
  auto seg = [](double x, double L, double from, double to, LONG curve) {
    const double u = x / L;
    if (curve > 1) return from + (to - from) * u * u;
    if (curve < -1) return to - (to - from) * (1 - u) * (1 - u);
    return from + (to - from) * u;
  };
  if (t < att) return seg(t, att, a, s, ac);
  t -= att;
  if (t < sus) return s;
  t -= sus;
  if (t < rel) return seg(t, rel, s, e, rc);
  return e;
}

TEST(AudioEnvelope, MixingFollowsEveryCurveAcrossCalls) {
  WAVEFORMATEX f = FmtOf(32, 2, 1000);
  const LONG curves[] = {0, 1, -1, 2, -2, 5};
  for (LONG ac : curves)
    for (LONG rc : curves) {
      tKYASR a = Asr(0.2f, 16, 1.0f, 24, 0.1f, ac, rc);
      tKYASRCOOKED whole, parts;
      ASSERT_EQ(KyAudio_ASRCook(&f, &a, &whole, 0, 60 * 10000, 1.0), S_OK);
      parts = whole;
      const LONG frames = 90;
      std::vector<float> ones(frames * 2, 1.0f), out1(frames * 2, 0.0f), out2 = out1;
      ASSERT_EQ(KyAudio_MixEx(&f, out1.data(), &f, ones.data(), frames, &whole), S_OK);
      for (LONG at = 0; at < frames; at += 7) {
        const LONG n = frames - at < 7 ? frames - at : 7;
        ASSERT_EQ(KyAudio_MixEx(&f, &out2[at * 2], &f, &ones[at * 2], n, &parts), S_OK);
      }
      EXPECT_TRUE(out1 == out2) << "curves " << ac << "/" << rc;
      for (LONG t = 0; t < frames; ++t) {
        const double want = EnvelopeAt(t, 0.2, 1.0, 0.1, 16, 20, 24, ac, rc);
        EXPECT_NEAR(out1[t * 2], want, 1e-5) << "frame " << t << " curves " << ac << "/" << rc;
        EXPECT_EQ(out1[t * 2], out1[t * 2 + 1]);
      }
    }
}

TEST(AudioEnvelope, IntegerSourcesReachFullScale) {
  // Sustain at 1.0: every source type mixed into silence gives the plain conversion.
  tKYASR a = Asr(1.0f, 0, 1.0f, 0, 1.0f);
  const struct { KYSAMPLETYPE t; uint8_t bytes[4]; float want; } rows[] = {
      {16, {0xC0}, 0.5f},           {49, {0xC0}, -0.5f},    {17, {0x00, 0x40}, 0.5f},
      {18, {0x00, 0x00, 0xC0}, -0.5f}, {19, {0, 0, 0, 0x40}, 0.5f}, {48, {0x00, 0x00, 0xC0, 0xFF}, -0.5f}};
  WAVEFORMATEX df = FmtOf(32, 1), d16 = FmtOf(17, 1);
  for (auto &r : rows) {
    WAVEFORMATEX sf = FmtOf(r.t, 1);
    tKYASRCOOKED c;
    float out = 0.0f;
    int16_t o16 = 100;
    ASSERT_EQ(KyAudio_ASRCook(&sf, &a, &c, 0, 0, 1.0), S_OK);
    ASSERT_EQ(KyAudio_MixEx(&df, &out, &sf, r.bytes, 1, &c), S_OK);
    EXPECT_EQ(out, r.want) << r.t;
    ASSERT_EQ(KyAudio_ASRCook(&sf, &a, &c, 0, 0, 1.0), S_OK); // the mix advanced the cooked state
    ASSERT_EQ(KyAudio_MixEx(&d16, &o16, &sf, r.bytes, 1, &c), S_OK);
    EXPECT_EQ(o16, 100 + int(r.want * 32768)) << r.t;
  }
}

} // namespace
