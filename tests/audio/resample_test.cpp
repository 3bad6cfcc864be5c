// Resampler and IIR filter tests: the engines against plain reference code, block-size
// independence, quality figures with stated thresholds, instance life cycle and mappings.
#include "ky_testutil.h"

#include <math.h>
#include <string.h>
#include <algorithm>
#include <numeric>
#include <random>
#include <vector>

#include "audio_ref.h"
#include "ky_resample.h"

extern "C" long ResampleOpenCloseFromC(void);

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr LONG kF32 = 32, kF64 = 33, kS16 = 17;

// ---- plain reference code ----

// The windowed-sinc kernel table, straight from its definition.
const std::vector<double> &RefTable() {
  static std::vector<double> t = [] {
    std::vector<double> v(1000);
    v[0] = 1.0;
    for (int k = 1; k < 1000; ++k) {
      const double x = k * 0.013 * kPi, th = x / 13.0 + kPi;
      v[k] = (0.35875 - 0.48829 * cos(th) + 0.14128 * cos(2 * th) - 0.01168 * cos(3 * th)) *
             sin(x) / x;
    }
    return v;
  }();
  return t;
}

double RefKernel(double dist) {
  const std::vector<double> &t = RefTable();
  const double u = fabs(dist) * (1000.0 / 13.0);
  int i = static_cast<int>(u + 0.5);
  if (i > 998) i = 998;
  return t[i] + (t[i + 1] - t[i]) * (u - i);
}

// Output instants: centre frame c and fraction phi, for every output of an N-frame stream.
// The fraction advances by src/dst, exactly (as num/den) for a conversion between two rates
// and in double precision for a bare ratio (src = 0, dst = the ratio).
template <class F>
void ForEachInstant(LONG n, LONG src, double dst, F f) {
  LONGLONG c = 0, num = 0, den = 1, step = 0;
  if (src > 0) {
    LONGLONG a = src, b = static_cast<LONGLONG>(dst);
    while (b) { const LONGLONG t = a % b; a = b; b = t; }
    den = static_cast<LONGLONG>(dst) / a;
    step = src / a;
  }
  double phi = 0.0;
  while (c < n) {
    f(c, phi);
    if (src > 0) {
      num += step;
      c += num / den;
      num %= den;
      phi = static_cast<double>(num) / den;
    } else {
      phi += 1.0 / dst;
      const double w = floor(phi);
      phi -= w;
      c += static_cast<LONGLONG>(w);
    }
  }
}

// Sinc: sum over the 25 frames c+12 .. c-12 of frame x kernel(12 - phi - j), silence
// outside the stream. Linear: frames c and c + 1 blended, the last frame held at the end.
std::vector<double> Ref(bool sinc, const std::vector<double> &x, int ch, LONG src, double dst) {
  const LONG n = static_cast<LONG>(x.size() / ch);
  std::vector<double> out;
  ForEachInstant(n, src, dst, [&](LONGLONG c, double phi) {
    for (int k = 0; k < ch; ++k) {
      auto at = [&](LONGLONG m) { return m >= 0 && m < n ? x[m * ch + k] : 0.0; };
      double s = 0;
      if (sinc) {
        for (int j = 0; j < 25; ++j) s += at(c + 12 - j) * RefKernel(12.0 - phi - j);
      } else {
        s = at(c) + (at(std::min<LONGLONG>(c + 1, n - 1)) - at(c)) * phi;
      }
      out.push_back(s);
    }
  });
  return out;
}

// A sample of any type from a double in the type's own units (float types: full scale 1),
// truncated and clamped; and back.
void Put(const audioref::Type &t, BYTE *p, double v) {
  if (t.t == kF32) { const float f = static_cast<float>(v); memcpy(p, &f, 4); return; }
  if (t.t == kF64) { memcpy(p, &v, 8); return; }
  audioref::PutInt(t.t, p, audioref::TruncClamp(v, t.bits));
}
double Get(const audioref::Type &t, const BYTE *p) {
  return t.isFloat ? audioref::GetFloat(t.t, p) : static_cast<double>(audioref::GetInt(t.t, p));
}

// ---- running an instance ----
struct Resampler {
  HKYRESAMPLE h = nullptr;
  Resampler(LONG type, LONG src, LONG dst, LONG ch, WORD flags) {
    EXPECT_EQ(S_OK, KyAudio_ResampleOpen(&h, type, src, dst, ch, flags));
  }
  ~Resampler() { KyAudio_ResampleClose(h); }
};

// Converts `src` (frames of frameBytes) in blocks of the given sizes (the rest in one), then
// drains; returns the output bytes. The source is copied: the filter may change it.
std::vector<BYTE> Stream(HKYRESAMPLE h, const std::vector<BYTE> &src, size_t frameBytes,
                      std::vector<LONG> blocks = {}) {
  std::vector<BYTE> in = src, out;
  const LONG n = static_cast<LONG>(src.size() / frameBytes);
  LONG at = 0;
  size_t b = 0;
  while (true) {
    const bool drain = at >= n;
    LONG len = drain ? 0 : (b < blocks.size() ? std::min(blocks[b++], n - at) : n - at);
    const LONG cap = static_cast<LONG>(ceil((drain ? 13 : len) * h->ratio)) + 2;
    std::vector<BYTE> o(cap * frameBytes);
    const LONG got = KyAudio_ResampleEx(h, o.data(), drain ? nullptr : in.data() + at * frameBytes, len);
    EXPECT_LE(got, cap);
    out.insert(out.end(), o.begin(), o.begin() + got * frameBytes);
    if (drain) break;
    at += len;
  }
  return out;
}

// The same memory seen as another element type (samples <-> bytes).
template <class To, class From>
std::vector<To> Cast(const std::vector<From> &v) {
  std::vector<To> r(v.size() * sizeof(From) / sizeof(To));
  memcpy(r.data(), v.data(), r.size() * sizeof(To));
  return r;
}
template <class T> std::vector<BYTE> Bytes(const std::vector<T> &v) { return Cast<BYTE>(v); }

// The engine sums its taps in another order than the reference: equal within rounding.
template <class T>
void ExpectClose(const std::vector<double> &expect, const std::vector<T> &got, double tol,
                 const char *what) {
  ASSERT_EQ(expect.size(), got.size()) << what;
  for (size_t i = 0; i < got.size(); ++i)
    ASSERT_NEAR(expect[i], got[i], tol) << what << " at " << i;
}

std::vector<double> Noise(size_t n, unsigned seed, double amp = 0.9) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> d(-amp, amp);
  std::vector<double> v(n);
  for (double &x : v) x = d(rng);
  return v;
}

std::vector<LONG> RandomBlocks(unsigned seed, LONG maxLen) {
  std::mt19937 rng(seed);
  std::vector<LONG> b(400);
  for (LONG &x : b) x = 1 + static_cast<LONG>(rng() % maxLen);
  return b;
}

// Least-squares fit of a sine of frequency f (cycles per sample) to y[skip .. n-skip):
// amplitude and signal-to-noise-and-distortion in dB.
void Fit(const std::vector<double> &y, double f, size_t skip, double *amp, double *sinad) {
  double ss = 0, sc = 0, cc = 0, ys = 0, yc = 0;
  for (size_t i = skip; i + skip < y.size(); ++i) {
    const double s = sin(2 * kPi * f * i), c = cos(2 * kPi * f * i);
    ss += s * s; cc += c * c; sc += s * c; ys += y[i] * s; yc += y[i] * c;
  }
  const double det = ss * cc - sc * sc;
  const double a = (ys * cc - yc * sc) / det, b = (yc * ss - ys * sc) / det;
  double res = 0, count = 0;
  for (size_t i = skip; i + skip < y.size(); ++i, ++count) {
    const double e = y[i] - a * sin(2 * kPi * f * i) - b * cos(2 * kPi * f * i);
    res += e * e;
  }
  *amp = sqrt(a * a + b * b);
  *sinad = 10 * log10((*amp * *amp / 2) / (res / count));
}

std::vector<double> Sine(size_t n, double f, double amp) {
  std::vector<double> v(n);
  for (size_t i = 0; i < n; ++i) v[i] = amp * sin(2 * kPi * f * i);
  return v;
}

// Converts a mono double signal with one instance and returns the output.
std::vector<double> Convert(const std::vector<double> &x, LONG src, LONG dst, WORD flags) {
  Resampler r(kF64, src, dst, 1, flags);
  return Cast<double>(Stream(r.h, Bytes(x), 8));
}

} // namespace

// ---------------------------------------------------------------------------------------
TEST(ResampleIir, ButterworthResponse) {
  // Gain of the designed filter at a few frequencies, measured on a sine after settling.
  struct Row { LONG kind, order; double cutoff, f, gainDb, tolDb; } rows[] = {
      {KYIIR_LOWPASS, 2, 0.1, 0.01, 0.0, 0.05},   {KYIIR_LOWPASS, 2, 0.1, 0.1, -3.01, 0.05},
      {KYIIR_LOWPASS, 4, 0.1, 0.1, -3.01, 0.05},  {KYIIR_LOWPASS, 6, 0.1, 0.1, -3.01, 0.05},
      {KYIIR_LOWPASS, 6, 0.1, 0.25, -60, 10},     {KYIIR_LOWPASS, 4, 0.2, 0.3, -25, 5},
      {KYIIR_LOWPASS, 3, 0.1, 0.1, -3.01, 0.05},  {KYIIR_HIGHPASS, 4, 0.1, 0.1, -3.01, 0.05},
      {KYIIR_HIGHPASS, 4, 0.1, 0.4, 0.0, 0.05},   {KYIIR_HIGHPASS, 2, 0.2, 0.02, -40, 3},
  };
  for (const Row &r : rows) {
    tKYIIRDESIGN d = {r.kind, 1, r.order, 0, r.cutoff, 0, 0, 0};
    tKYIIRSTATE st = {};
    ASSERT_EQ(S_OK, KyIIR_Design(&d, &st));
    std::vector<double> x = Sine(8000, r.f, 1.0);
    ASSERT_EQ(S_OK, KyIIR_Process(&st, kF64, x.data(), 1, 8000));
    double amp, sinad;
    Fit(std::vector<double>(x.begin() + 4000, x.end()), r.f, 0, &amp, &sinad);
    EXPECT_NEAR(20 * log10(amp), r.gainDb, r.tolDb) << "order " << r.order << " f " << r.f;
  }
}

TEST(ResampleIir, HistoryCarriesAcrossBlocksAndChannels) {
  tKYIIRDESIGN d = {KYIIR_LOWPASS, 2, 4, 0, 0.05, 0, 0, 0};
  tKYIIRSTATE whole[2], split[2];
  ASSERT_EQ(S_OK, KyIIR_Design(&d, whole));
  ASSERT_EQ(S_OK, KyIIR_Design(&d, split));
  std::vector<float> a(2 * 3000);
  for (size_t i = 0; i < a.size(); ++i) a[i] = static_cast<float>(i % 2 ? sin(i * 1.3) : 1.0);
  std::vector<float> b = a, mono(3000);
  for (int i = 0; i < 3000; ++i) mono[i] = a[2 * i + 1];
  ASSERT_EQ(S_OK, KyIIR_Process(whole, kF32, a.data(), 2, 3000));
  // Each channel is filtered on its own: the pair gives what channel 1 gives alone.
  tKYIIRSTATE single;
  d.channels = 1;
  ASSERT_EQ(S_OK, KyIIR_Design(&d, &single));
  ASSERT_EQ(S_OK, KyIIR_Process(&single, kF32, mono.data(), 1, 3000));
  for (int i = 0; i < 3000; ++i) ASSERT_EQ(mono[i], a[2 * i + 1]) << i;
  for (LONG at = 0, len = 1; at < 3000; at += len, len = len * 2 + 1)
    ASSERT_EQ(S_OK, KyIIR_Process(split, kF32, b.data() + 2 * at, 2, std::min(len, 3000 - at)));
  EXPECT_EQ(a, b);
  EXPECT_NEAR(a[2 * 2999], 1.0, 1e-4);          // DC passes the low-pass on channel 0...
  EXPECT_LT(fabs(a[2 * 2999 + 1]), 0.05);       // ...the fast sine on channel 1 does not
  // Refreshing the coefficients keeps the history; a plain design clears it.
  d.flags = KYIIR_KEEPHISTORY;
  ASSERT_EQ(S_OK, KyIIR_Design(&d, split));
  EXPECT_EQ(0, memcmp(whole[0].history, split[0].history, sizeof whole[0].history));
  d.flags = 0;
  ASSERT_EQ(S_OK, KyIIR_Design(&d, split));
  EXPECT_EQ(0.0, split[0].history[0][0]);
}

TEST(ResampleIir, RefusesBadRequests) {
  tKYIIRSTATE st = {};
  st.order = 77;
  const tKYIIRDESIGN bad[] = {{2, 1, 4, 0, 0.1, 0, 0, 0}, {0, 0, 4, 0, 0.1, 0, 0, 0},
                              {0, 33, 4, 0, 0.1, 0, 0, 0}, {0, 1, 0, 0, 0.1, 0, 0, 0},
                              {0, 1, 7, 0, 0.1, 0, 0, 0}, {0, 1, 4, 0, 0.0, 0, 0, 0},
                              {0, 1, 4, 0, 0.5, 0, 0, 0}, {0, 1, 4, 0, NAN, 0, 0, 0},
                              {0, 1, 4, 0, 0.1, 0, 4, 0}};
  for (const tKYIIRDESIGN &d : bad) EXPECT_EQ(E_INVALIDARG, KyIIR_Design(&d, &st));
  EXPECT_EQ(77, st.order);  // left alone
  EXPECT_EQ(E_POINTER, KyIIR_Design(nullptr, &st));
  float x = 1;
  EXPECT_EQ(E_INVALIDARG, KyIIR_Process(&st, kS16, &x, 1, 1));
  EXPECT_EQ(E_POINTER, KyIIR_Process(nullptr, kF32, &x, 1, 1));
}

// ---------------------------------------------------------------------------------------
TEST(Resample, OpenSplitsFlagsAndRefusesBadArguments) {
  HKYRESAMPLE h = reinterpret_cast<HKYRESAMPLE>(1);
  struct Bad { LONG type, src, dst, ch; } bad[] = {
      {0, 44100, 48000, 2}, {20, 44100, 48000, 2}, {kF32, 0, 48000, 2},
      {kF32, 44100, -1, 2}, {kF32, 44100, 48000, 0}, {kF32, 44100, 48000, 33}};
  for (const Bad &b : bad) {
    EXPECT_EQ(E_INVALIDARG, KyAudio_ResampleOpen(&h, b.type, b.src, b.dst, b.ch, 3));
    EXPECT_EQ(nullptr, h);
  }
  EXPECT_EQ(E_POINTER, KyAudio_ResampleOpen(nullptr, kF32, 1, 2, 1, 3));

  ASSERT_EQ(S_OK, KyAudio_ResampleOpen(&h, kF32, 48000, 44100, 3, 0x3723));
  EXPECT_EQ(3, h->method);
  EXPECT_EQ(0x20, h->antiAlias);
  EXPECT_EQ(0x700, h->userFlags);
  EXPECT_EQ(1, h->countAdjust);
  EXPECT_EQ(1, h->filterAfter);
  EXPECT_DOUBLE_EQ(44100.0 / 48000.0, h->ratio);
  EXPECT_DOUBLE_EQ(1000.0 / 13.0, h->tableStep);
  for (int k = 0; k < 27; ++k) EXPECT_EQ((k + 24) % 25, h->ringSuccessor[k]);
  ASSERT_NE(nullptr, h->history);
  EXPECT_EQ(4, h->filter[2].order);  // channel 0's design copied to every channel
  EXPECT_EQ(0, memcmp(h->filter[0].coef, h->filter[2].coef, sizeof h->filter[0].coef));
  EXPECT_EQ(S_OK, KyAudio_ResampleClose(h));
  EXPECT_EQ(S_OK, KyAudio_ResampleClose(nullptr));

  // Integer data: method 3 and any filter turn into method 2 without filter (the output is
  // checked against the linear reference below); the sinc engine refuses it.
  ASSERT_EQ(S_OK, KyAudio_ResampleOpen(&h, kS16, 48000, 44100, 2, 0x33));
  EXPECT_EQ(2, h->method);
  EXPECT_EQ(0, h->antiAlias);
  short buf[200] = {};
  EXPECT_EQ(0, KyAudio_Resample_Sinc(kS16, 2, buf, 10, buf + 100, 10, h));
  KyAudio_ResampleClose(h);

  ASSERT_EQ(S_OK, KyAudio_ResampleOpenEx(&h, kF64, 2, 0.5, 0x13));
  EXPECT_EQ(1, h->srcRate);
  EXPECT_EQ(1, h->dstRate);
  EXPECT_DOUBLE_EQ(0.5, h->ratio);
  EXPECT_EQ(1, h->filter[1].sections);
  KyAudio_ResampleClose(h);
  EXPECT_EQ(E_INVALIDARG, KyAudio_ResampleOpenEx(&h, kF64, 2, 0.0, 3));
  EXPECT_EQ(E_INVALIDARG, KyAudio_ResampleOpenEx(&h, kF64, 2, NAN, 3));
  EXPECT_EQ(S_OK, ResampleOpenCloseFromC());
}

TEST(Resample, SincMatchesReference) {
  const LONG rates[][2] = {{44100, 48000}, {48000, 44100}, {24000, 48000}, {48000, 24000},
                           {8000, 44100}, {44100, 96001}};
  for (const auto &r : rates) {
    const std::vector<double> x = Noise(2 * 700, r[0]);
    const std::vector<double> expect = Ref(true, x, 2, r[0], r[1]);
    Resampler dbl(kF64, r[0], r[1], 2, 3), flt(kF32, r[0], r[1], 2, 3);
    std::vector<double> got = Cast<double>(Stream(dbl.h, Bytes(x), 16, RandomBlocks(r[1], 90)));
    EXPECT_EQ(static_cast<size_t>(2 * ceil(700.0 * r[1] / r[0])), got.size());
    ExpectClose(expect, got, 1e-13, "double");
    const std::vector<float> xf(x.begin(), x.end());
    ExpectClose(Ref(true, std::vector<double>(xf.begin(), xf.end()), 2, r[0], r[1]),
                Cast<float>(Stream(flt.h, Bytes(xf), 8)), 2.5e-7, "float");
  }
  // A ratio given as a double: a fraction runs exactly as with two rates, any other ratio
  // advances the phase in double precision.
  const std::vector<double> x = Noise(500, 3);
  struct Form { double ratio; LONG src, dst; } forms[] = {
      {1.37, 100, 137}, {48000.0 / 44100, 44100, 48000}, {1.37 * (1 + 1e-9), 0, 0}};
  for (const Form &f : forms) {
    HKYRESAMPLE h;
    ASSERT_EQ(S_OK, KyAudio_ResampleOpenEx(&h, kF64, 1, f.ratio, 3));
    EXPECT_EQ(static_cast<DWORD>(f.dst / std::max<LONG>(1, std::gcd(f.src, f.dst))), h->phaseDen);
    ExpectClose(Ref(true, x, 1, f.src, f.src ? f.dst : f.ratio),
                Cast<double>(Stream(h, Bytes(x), 8)), 1e-13, "ratio");
    KyAudio_ResampleClose(h);
  }
}

TEST(Resample, SincPrimesWithThirteenFrames) {
  Resampler r(kF32, 48000, 48000, 1, 3);
  float x[20], out[40];
  for (int i = 0; i < 20; ++i) x[i] = static_cast<float>(i + 1);
  EXPECT_EQ(0, KyAudio_ResampleEx(r.h, out, x, 5));  // frames 1..5 in slots 12..8
  EXPECT_EQ(1, r.h->priming);
  EXPECT_EQ(5, r.h->primedCount);
  EXPECT_EQ(3.0, r.h->history[0][10]);
  EXPECT_EQ(1, KyAudio_ResampleEx(r.h, out, x + 5, 8));  // 13 loaded: the first output
  EXPECT_EQ(0, r.h->priming);
  EXPECT_EQ(0, r.h->ringIndex);
  EXPECT_EQ(13.0, r.h->history[0][0]);
  EXPECT_NEAR(1.0, out[0], 1e-4);  // ratio 1: the kernel is 1 at the centre, about 0 elsewhere
}

TEST(Resample, LinearMatchesReferenceForEveryType) {
  for (const audioref::Type &t : audioref::kTypes) {
    for (int ch : {1, 2, 3}) {
      const LONG n = 300;
      const double full = t.isFloat ? 1.0 : ldexp(1.0, t.bits - 1);
      const std::vector<double> unit = Noise(ch * n, t.t * 10 + ch, 1.0);
      std::vector<BYTE> src(unit.size() * t.bytes);
      std::vector<double> x(unit.size());
      for (size_t i = 0; i < unit.size(); ++i) {
        Put(t, &src[i * t.bytes], unit[i] * full);
        x[i] = Get(t, &src[i * t.bytes]);
      }
      static const LONG rates[][2] = {{44100, 48000}, {48000, 22050}};
      for (const auto &r : rates) {
        // Integer data asking for the sinc method and a filter still gets plain linear.
        Resampler rs(t.t, r[0], r[1], ch, t.isFloat || ch == 1 ? 0x0001 : 0x0033);
        std::vector<BYTE> got = Stream(rs.h, src, ch * t.bytes, RandomBlocks(ch, 50));
        std::vector<double> ref = Ref(false, x, ch, r[0], r[1]);
        ASSERT_EQ(ref.size() * t.bytes, got.size()) << t.name;
        std::vector<BYTE> expect(got.size());
        for (size_t i = 0; i < ref.size(); ++i) Put(t, &expect[i * t.bytes], ref[i]);
        ASSERT_EQ(expect, got) << t.name << " channels " << ch << " rate " << r[1];
      }
    }
  }
}

TEST(Resample, BlockSizeDoesNotChangeTheOutput) {
  // Float data with every engine and filter placement, one block against random blocks.
  const WORD flagSets[] = {0x0003, 0x0033, 0x2023, 0x0022, 0x1001};
  const LONG rates[][2] = {{44100, 48000}, {48000, 44100}, {96000, 44100}};
  for (WORD f : flagSets) {
    for (const auto &r : rates) {
      std::vector<float> x(2 * 5000);
      for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<float>(0.7 * sin(i * 0.01 + (i % 2)));
      Resampler one(kF32, r[0], r[1], 2, f), many(kF32, r[0], r[1], 2, f);
      const std::vector<BYTE> a = Stream(one.h, Bytes(x), 8);
      const std::vector<BYTE> b = Stream(many.h, Bytes(x), 8, RandomBlocks(f + r[1], 37));
      EXPECT_EQ(a, b) << "flags " << f << " " << r[0] << " -> " << r[1];
      EXPECT_EQ(one.h->dstPos, many.h->dstPos);
      // (the count-adjust flag takes one frame off the source position per block)
      if (!(f & KYRESAMPLE_COUNTADJUST)) {
        EXPECT_EQ(one.h->srcPos, many.h->srcPos);
      }
    }
  }
}

// Quality: a sine converted keeps its frequency (the fit is made at the converted frequency)
// and its level; the sinc path's SINAD beats the linear one's.
TEST(Resample, SineKeepsFrequencyAndLevel) {
  // (2:1 down-sampling of a tone below the new Nyquist frequency picks every other frame
  // with both engines: exact, nothing to compare.)
  struct Row { LONG src, dst; double hz, sincDb, linDb, margin; } rows[] = {
      {44100, 48000, 440, 78, 70, 3},      {44100, 48000, 5000, 78, 30, 40},
      {44100, 48000, 15000, 75, 8, 60},    {48000, 44100, 1000, 78, 60, 10},
      {48000, 44100, 12000, 75, 15, 50},   {24000, 48000, 3000, 100, 25, 60},
      {48000, 24000, 3000, 200, 200, 0}, {48000, 24000, 9000, 200, 200, 0},
  };
  for (const Row &r : rows) {
    SCOPED_TRACE(testing::Message() << r.src << " -> " << r.dst << " at " << r.hz << " Hz");
    const std::vector<double> x = Sine(6000, r.hz / r.src, 0.5);
    double amp, sinad, linAmp, linSinad;
    Fit(Convert(x, r.src, r.dst, 3), r.hz / r.dst, 100, &amp, &sinad);
    Fit(Convert(x, r.src, r.dst, 2), r.hz / r.dst, 100, &linAmp, &linSinad);
    EXPECT_NEAR(1.0, amp / 0.5, 0.005);
    EXPECT_GT(sinad, r.sincDb);
    EXPECT_GT(linSinad, r.linDb);
    if (r.margin > 0) {
      EXPECT_GT(sinad, linSinad + r.margin);
    }
    if (r.hz < 2000) {
      EXPECT_NEAR(1.0, linAmp / 0.5, 0.01);
    }
    printf("  %5ld -> %5ld Hz, %5.0f Hz tone: sinc level %+.4f dB SINAD %.1f dB; linear level %+.4f dB SINAD %.1f dB\n",
           (long)r.src, (long)r.dst, r.hz, 20 * log10(amp / 0.5), sinad, 20 * log10(linAmp / 0.5), linSinad);
  }
}

TEST(Resample, AntiAliasFilterLowersAliasing) {
  // 48000 -> 24000: a 15 kHz tone lies above the new Nyquist frequency and folds to 9 kHz.
  const std::vector<double> x = Sine(8000, 15000.0 / 48000, 0.5);
  double none, order2, order6, sinad;
  for (auto [flags, out] : {std::pair<WORD, double *>{0x03, &none}, {0x13, &order2}, {0x33, &order6}})
    Fit(Convert(x, 48000, 24000, flags), 9000.0 / 24000, 200, out, &sinad);
  EXPECT_GT(none, 0.3);                          // unfiltered: the alias is nearly full level
  EXPECT_LT(20 * log10(order2 / none), -6.0);    // order 2 lowers it by more than 6 dB
  EXPECT_LT(20 * log10(order6 / none), -20.0);   // order 6 by more than 20 dB
  EXPECT_LT(order6, order2);
  printf("  alias of 15 kHz at 48000 -> 24000: %.4f unfiltered, %.1f dB with order 2, %.1f dB with order 6\n",
         none, 20 * log10(order2 / none), 20 * log10(order6 / none));
}

// Down-sampling filters the caller's source in place, whatever flag 0x2000 says (it is only
// stored): the output is the same with and without it.
TEST(Resample, SincChangesTheSourceOnlyWhenFilteringBefore) {
  std::vector<float> x(2000);
  for (size_t i = 0; i < x.size(); ++i) x[i] = static_cast<float>(sin(i * 2.5));
  std::vector<float> out(2000), first;
  for (WORD f : {0x0023, 0x2023, 0x0003}) {
    Resampler r(kF32, 48000, 32000, 1, f);
    std::vector<float> src = x;
    const LONG n = KyAudio_ResampleEx(r.h, out.data(), src.data(), 2000);
    EXPECT_GT(n, 1300);
    EXPECT_EQ(f != 0x0003, src != x) << f;
    if (first.empty()) {
      first.assign(out.begin(), out.begin() + n);
    } else if (f == 0x2023) {
      EXPECT_TRUE(std::equal(first.begin(), first.end(), out.begin()));
    }
    EXPECT_EQ(0, KyAudio_ResampleEx(r.h, src.data(), src.data(), 2000));  // same memory
  }
}

TEST(Resample, ResetKeepsOrRestartsTheStream) {
  const std::vector<double> x = Noise(2 * 2000, 9);
  const std::vector<BYTE> bx = Bytes(x);
  const std::vector<BYTE> first(bx.begin(), bx.begin() + 16 * 700), rest(bx.begin() + 16 * 700, bx.end());
  Resampler ref(kF64, 44100, 48000, 2, 0x23), r(kF64, 44100, 48000, 2, 0x23);
  const std::vector<BYTE> whole = Stream(ref.h, Bytes(x), 16);
  std::vector<BYTE> out(16 * 800);
  const LONG got = KyAudio_ResampleEx(r.h, out.data(), const_cast<BYTE *>(first.data()), 700);
  // Keeping the state with nothing changed: the stream goes on as if uninterrupted.
  ASSERT_EQ(S_OK, KyAudio_ResampleReset(r.h, 0, 0, 0, 0, TRUE));
  EXPECT_EQ(700, KyAudio_ResampleGetSrcPos(r.h));
  std::vector<BYTE> joined(out.begin(), out.begin() + got * 16);
  const std::vector<BYTE> tail = Stream(r.h, rest, 16);
  joined.insert(joined.end(), tail.begin(), tail.end());
  EXPECT_EQ(whole, joined);
  // A full reset (or a channel change) starts afresh: same output as a new instance.
  ASSERT_EQ(S_OK, KyAudio_ResampleReset(r.h, 0, 0, 0, 0, FALSE));
  EXPECT_EQ(0, KyAudio_ResampleGetSrcPos(r.h));
  EXPECT_EQ(whole, Stream(r.h, Bytes(x), 16));
  ASSERT_EQ(S_OK, KyAudio_ResampleReset(r.h, 0, 0, 0, 1, TRUE));
  Resampler mono(kF64, 44100, 48000, 1, 0x23);
  const std::vector<double> m = Noise(900, 4);
  EXPECT_EQ(Stream(mono.h, Bytes(m), 8), Stream(r.h, Bytes(m), 8));
  // A rate change re-designs the filter and zeroes the positions (also new rates of the
  // same ratio).
  ASSERT_NE(0, KyAudio_ResampleGetSrcPos(r.h));
  ASSERT_EQ(S_OK, KyAudio_ResampleReset(r.h, 0, 88200, 96000, 0, TRUE));
  EXPECT_EQ(0, KyAudio_ResampleGetSrcPos(r.h));
  EXPECT_EQ(96000, r.h->dstRate);
  ASSERT_EQ(S_OK, KyAudio_ResampleReset(r.h, 0, 48000, 24000, 0, TRUE));
  EXPECT_DOUBLE_EQ(0.5, r.h->ratio);
  EXPECT_EQ(0, KyAudio_ResampleGetDstPos(r.h));
  EXPECT_EQ(E_INVALIDARG, KyAudio_ResampleReset(r.h, 0, 0, 0, 40, TRUE));
  EXPECT_EQ(E_POINTER, KyAudio_ResampleReset(nullptr, 0, 0, 0, 0, TRUE));
  ASSERT_EQ(S_OK, KyAudio_ResampleResetEx(r.h, 0, 1.5, 0, FALSE));
  EXPECT_DOUBLE_EQ(1.0 / 1.5, r.h->inverseRatio);
  EXPECT_EQ(3u, r.h->phaseDen);  // 1.5 = 3/2
  ASSERT_EQ(S_OK, KyAudio_ResampleReset(r.h, 0, 48000, 24000, 0, FALSE));  // the same rates
  EXPECT_DOUBLE_EQ(0.5, r.h->ratio);
  EXPECT_EQ(1u, r.h->phaseDen);
}

TEST(Resample, PositionsAndMappings) {
  HKYRESAMPLE h;
  ASSERT_EQ(S_OK, KyAudio_ResampleOpen(&h, kS16, 48000, 32000, 1, 0x1002));
  // SrcFromDst: dst x 1.5 (+ offset), raised when fractional; DstFromSrc: truncate(src x 2/3).
  struct Row { double offset; LONGLONG in, src, dst; } rows[] = {
      {0, 0, 0, 0}, {0, 1, 2, 0}, {0, 2, 3, 1}, {0, 3, 5, 2}, {0.25, 2, 4, 1},
      {-2.0, 1, 0, 2}, {-4.0, 1, -2, 4}};
  for (const Row &r : rows) {
    h->phaseOffset = r.offset;
    EXPECT_EQ(r.src, KyAudio_ResampleGetSrcFromDst(h, r.in)) << r.in << " " << r.offset;
    EXPECT_EQ(r.dst, KyAudio_ResampleGetDstFromSrc(h, r.in)) << r.in << " " << r.offset;
  }
  h->phaseOffset = 0;
  short buf[600] = {}, out[420];
  EXPECT_EQ(400, KyAudio_ResampleEx(h, out, buf, 600));
  EXPECT_EQ(600, KyAudio_ResampleGetSrcPos(h));  // the count-adjust flag only acts up-sampling
  KyAudio_ResampleSetSrcOffset(h, 1000);
  KyAudio_ResampleSetDstOffset(h, -5);
  EXPECT_EQ(1600, KyAudio_ResampleGetSrcPos(h));
  EXPECT_EQ(395, KyAudio_ResampleGetDstPos(h));
  KyAudio_ResampleSetSrcPos(h, 7);
  KyAudio_ResampleSetDstPos(h, 8);
  EXPECT_EQ(1007, KyAudio_ResampleGetSrcPos(h));
  EXPECT_EQ(3, KyAudio_ResampleGetDstPos(h));
  KyAudio_ResampleStuffPrevSample(h, 0.25, 3, 4);
  EXPECT_EQ(0.25, h->prevValue);
  EXPECT_EQ(4u, h->prevParam2);
  KyAudio_ResampleClose(h);
  // Up-sampling with the count-adjust flag: one source frame less per block; the inverse
  // ratio below 1 adds one in SrcFromDst.
  ASSERT_EQ(S_OK, KyAudio_ResampleOpen(&h, kS16, 24000, 48000, 1, 0x1002));
  EXPECT_EQ(3, KyAudio_ResampleGetSrcFromDst(h, 3));
  short up[1300];
  EXPECT_EQ(1198, KyAudio_ResampleEx(h, up, buf, 600));
  EXPECT_EQ(599, KyAudio_ResampleGetSrcPos(h));
  KyAudio_ResampleClose(h);
  // A method above 3 writes nothing and reports the requested count.
  ASSERT_EQ(S_OK, KyAudio_ResampleOpen(&h, kF32, 24000, 48000, 1, 0x0005));
  EXPECT_EQ(300, KyAudio_ResampleEx(h, up, buf, 300));
  EXPECT_EQ(300, KyAudio_ResampleEx(h, up, up, 300));  // also into the same memory
  EXPECT_EQ(0, KyAudio_ResampleEx(nullptr, up, buf, 300));
  KyAudio_ResampleClose(h);
  // Fields a caller damaged: nothing runs.
  ASSERT_EQ(S_OK, KyAudio_ResampleOpen(&h, kF32, 24000, 48000, 1, 0x0003));
  h->channels = 40;
  EXPECT_EQ(0, KyAudio_ResampleEx(h, up, buf, 300));
  h->channels = 1;
  h->ringIndex = 99;
  EXPECT_EQ(0, KyAudio_ResampleEx(h, up, buf, 300));
  EXPECT_EQ(0, KyAudio_Resample_Sinc(kF32, 1, up, 10, buf, 300, h));
  KyAudio_ResampleClose(h);
  EXPECT_EQ(0, KyAudio_ResampleGetSrcPos(nullptr));
}

TEST(Resample, OneShotConverters) {
  WAVEFORMATEX wf = {WAVE_FORMAT_PCM, 2, 44100, 44100 * 4, 4, 16, 0};
  std::vector<short> src(2 * 441), dst(2 * 481, 0x5555);
  for (size_t i = 0; i < src.size(); ++i) src[i] = static_cast<short>(i % 2 ? -1000 : 8000);
  EXPECT_EQ(S_OK, KyAudio_Resample(&wf, dst.data(), 481, src.data(), 441));
  for (size_t i = 0; i < dst.size(); ++i) ASSERT_EQ(i % 2 ? -1000 : 8000, dst[i]) << i;
  EXPECT_EQ(S_OK, KyAudio_Resample(nullptr, dst.data(), 481, src.data(), 441));
  wf.wBitsPerSample = 12;
  EXPECT_EQ(S_OK, KyAudio_Resample(&wf, dst.data(), 481, src.data(), 441));

  // Float down-sampling filters a copy, never the caller's source.
  WAVEFORMATEX ff = {3, 1, 48000, 48000 * 4, 4, 32, 0};
  std::vector<float> fs(4800), fd(4410);
  for (size_t i = 0; i < fs.size(); ++i) fs[i] = static_cast<float>(sin(i * 2.9));
  const std::vector<float> fkeep = fs;
  EXPECT_EQ(S_OK, KyAudio_Resample(&ff, fd.data(), 4410, fs.data(), 4800));
  EXPECT_EQ(fkeep, fs);

  // Nearest frame: k -> floor((2k + 1) x 3 / (2 x 7)).
  WAVEFORMATEX bf = {WAVE_FORMAT_PCM, 1, 8000, 8000, 1, 8, 0};
  const BYTE s3[3] = {10, 20, 30};
  BYTE d7[7];
  EXPECT_EQ(S_OK, KyAudio_ResampleStupid(&bf, d7, 7, s3, 3));
  const BYTE e7[7] = {10, 10, 20, 20, 20, 30, 30};
  EXPECT_EQ(0, memcmp(e7, d7, 7));
  EXPECT_EQ(S_OK, KyAudio_ResampleStupid(&bf, d7, 2, s3, 3));
  EXPECT_EQ(10, d7[0]);
  EXPECT_EQ(30, d7[1]);
  EXPECT_EQ(E_POINTER, KyAudio_ResampleStupid(&bf, nullptr, 2, s3, 3));
  bf.wFormatTag = 0x55;
  EXPECT_EQ(E_FAIL, KyAudio_ResampleStupid(&bf, d7, 2, s3, 3));
}

TEST(Resample, TwoThreadsOpenSincInstancesAtOnce) {
  struct Job { std::vector<double> out; static DWORD WINAPI Go(void *p) {
    Job *j = static_cast<Job *>(p);
    Resampler r(kF64, 44100, 48000, 1, 3);
    j->out = Cast<double>(Stream(r.h, Bytes(Noise(500, 1)), 8));
    return 0; } };
  Job a, b;
  HANDLE t = CreateThread(nullptr, 0, Job::Go, &a, 0, nullptr);
  ASSERT_NE(nullptr, t);
  Job::Go(&b);
  WaitForSingleObject(t, INFINITE);
  CloseHandle(t);
  EXPECT_EQ(a.out, b.out);
  ExpectClose(Ref(true, Noise(500, 1), 1, 44100, 48000), a.out, 1e-13, "thread");
}
