// The windowed-sinc engine of the resampler (float and double data).
//
// Each channel keeps the last 25 source frames in a ring; the output instant lies between
// the ring's 13th frame (the centre) and the next one, at the fractional phase phi. Output =
// sum over the 25 frames of frame x kernel(distance), the kernel being read from a shared
// 1000-entry table of the Blackman-Harris windowed sinc over 13 zero crossings. The kernel
// is not scaled by the ratio: when down-sampling, the anti-alias low-pass is what keeps
// the band below the new Nyquist frequency.
#include <windows.h>
#include <emmintrin.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "resample_internal.h"

namespace ky::resample {
namespace {

constexpr double kPi = 3.14159265358979323846;

// The kernel table, and the same table as (value, difference to the next entry) pairs that
// the tap loop reads with one access. Built once, never freed.
double g_table[kTable];
double g_pairs[kTable][2];
volatile LONG g_tableState = 0;  // 0 not built, 1 being built, 2 ready

void BuildTable() {
  g_table[0] = 1.0;
  for (int k = 1; k < kTable; ++k) {
    const double x = k * 0.013 * kPi;
    const double theta = x / 13.0 + kPi;
    const double w = 0.35875 - 0.48829 * cos(theta) + 0.14128 * cos(2.0 * theta) -
                     0.01168 * cos(3.0 * theta);
    g_table[k] = w * sin(x) / x;
  }
  for (int k = 0; k < kTable; ++k) {
    g_pairs[k][0] = g_table[k];
    g_pairs[k][1] = k + 1 < kTable ? g_table[k + 1] - g_table[k] : 0.0;
  }
}

// The 25 kernel values for the output at phase phi: tap j (j = 0 for the newest frame)
// lies at the distance d - j from the output instant, d = 12 - phi. The table index is the
// distance in table steps rounded to the nearest entry (at most 998), and the value is
// interpolated linearly from that entry, so the interpolation fraction lies in -0.5..0.5.
inline void Kernel(double phi, double step, double *c) {
  // Two taps at a time; the same operations per tap as the plain form
  //   t = |d - j| step;  i = min(int(t + 0.5), 998);  c = v[i] + dv[i] (t - i)
  // (with t + 0.5 >= 0, clamping before the truncation gives the same index).
  const __m128d d = _mm_set1_pd(kHalf - phi);
  const __m128d stepV = _mm_set1_pd(step);
  const __m128d half = _mm_set1_pd(0.5);
  const __m128d last = _mm_set1_pd(kTable - 2);
  const __m128d absMask = _mm_castsi128_pd(_mm_set1_epi64x(0x7FFFFFFFFFFFFFFFLL));
  __m128d j = _mm_set_pd(1.0, 0.0);
  const __m128d two = _mm_set1_pd(2.0);
  int k = 0;
  for (; k + 2 <= kRing; k += 2, j = _mm_add_pd(j, two)) {
    const __m128d t = _mm_mul_pd(_mm_and_pd(_mm_sub_pd(d, j), absMask), stepV);
    const __m128i i = _mm_cvttpd_epi32(_mm_min_pd(_mm_add_pd(t, half), last));
    const __m128d frac = _mm_sub_pd(t, _mm_cvtepi32_pd(i));
    const int i0 = _mm_cvtsi128_si32(i), i1 = _mm_cvtsi128_si32(_mm_shuffle_epi32(i, 1));
    const __m128d v = _mm_set_pd(g_pairs[i1][0], g_pairs[i0][0]);
    const __m128d dv = _mm_set_pd(g_pairs[i1][1], g_pairs[i0][1]);
    _mm_storeu_pd(c + k, _mm_add_pd(v, _mm_mul_pd(dv, frac)));
  }
  for (; k < kRing; ++k) {
    const double t = fabs((kHalf - phi) - k) * step;
    int i = static_cast<int>(t + 0.5);
    if (i > kTable - 2) i = kTable - 2;
    c[k] = g_pairs[i][0] + g_pairs[i][1] * (t - i);
  }
}

// a . b over n doubles, two lanes at a time.
inline double Dot(const double *a, const double *b, int n) {
  __m128d s0 = _mm_setzero_pd(), s1 = _mm_setzero_pd();
  int i = 0;
  for (; i + 4 <= n; i += 4) {
    s0 = _mm_add_pd(s0, _mm_mul_pd(_mm_loadu_pd(a + i), _mm_loadu_pd(b + i)));
    s1 = _mm_add_pd(s1, _mm_mul_pd(_mm_loadu_pd(a + i + 2), _mm_loadu_pd(b + i + 2)));
  }
  if (i + 2 <= n) {
    s0 = _mm_add_pd(s0, _mm_mul_pd(_mm_loadu_pd(a + i), _mm_loadu_pd(b + i)));
    i += 2;
  }
  s0 = _mm_add_pd(s0, s1);
  double r = _mm_cvtsd_f64(s0) + _mm_cvtsd_f64(_mm_unpackhi_pd(s0, s0));
  if (i < n) r += a[i] * b[i];
  return r;
}

// Sum of ring x kernel, from the newest slot (idx) towards the oldest. The ring fills
// downwards (slot 0 is followed by slot 24), so the older frames are at idx, idx + 1, ...,
// 24 and then 0 .. idx - 1: two straight runs, no index arithmetic per tap.
inline double Taps(const double *ring, int idx, const double *c) {
  return Dot(ring + idx, c, kRing - idx) + Dot(ring, c + (kRing - idx), idx);
}

// The kernels of every phase are cached when there are few phases (the denominator of an
// exact phase); beyond this many the kernel is computed per output.
constexpr DWORD kMaxCachedPhases = 1024;

template <class T>
LONG Run(tKYRESAMPLEINSTANCE *in, int channels, T *dst, LONG dstMax, const T *src, LONG n,
         bool drain) {
  double *const *rings = in->history;
  const LONG *succ = in->ringSuccessor;
  const double step = in->tableStep;
  const double *cache = in->kernelCache && in->kernelCacheDen == in->phaseDen && in->phaseDen
                            ? in->kernelCache
                            : nullptr;
  PhaseClock clock(in);
  LONG idx = in->ringIndex;
  LONG need = in->pendingFrames;
  LONG silent = in->drainedFrames;
  LONG pos = 0, out = 0;
  double own[kRing];
  for (;;) {
    // Load the frames up to the 12th after the output instant's centre frame.
    while (need > 0) {
      if (pos < n) {
        idx = succ[idx];
        const T *f = src + static_cast<size_t>(pos) * channels;
        for (int ch = 0; ch < channels; ++ch) rings[ch][idx] = f[ch];
        ++pos;
        silent = 0;
      } else if (drain && silent < kHalf) {
        // Past the end of the stream: silence, until the centre passes the last frame.
        idx = succ[idx];
        for (int ch = 0; ch < channels; ++ch) rings[ch][idx] = 0.0;
        ++silent;
      } else {
        goto done;
      }
      --need;
      if (in->priming && ++in->primedCount >= kPrime) in->priming = 0;
    }
    if (out >= dstMax) break;
    const double *c = own;
    if (cache)
      c = cache + static_cast<size_t>(clock.num) * kRing;
    else
      Kernel(clock.phi, step, own);
    T *o = dst + static_cast<size_t>(out) * channels;
    for (int ch = 0; ch < channels; ++ch) o[ch] = static_cast<T>(Taps(rings[ch], idx, c));
    ++out;
    // The whole frames the phase crosses are the frames to load before the next output,
    // carried over to the next block when this one runs out.
    need += clock.Advance();
  }
done:
  in->ringIndex = idx;
  in->pendingFrames = need;
  in->drainedFrames = silent;
  clock.Save(in);
  in->consumed = pos;
  return out;
}

} // namespace

const double *SincTable() {
  if (InterlockedCompareExchange(&g_tableState, 2, 2) == 2) return g_table;
  if (InterlockedCompareExchange(&g_tableState, 1, 0) == 0) {
    BuildTable();
    InterlockedExchange(&g_tableState, 2);
  } else {
    while (InterlockedCompareExchange(&g_tableState, 2, 2) != 2) Sleep(0);
  }
  return g_table;
}

void FreeKernelCache(tKYRESAMPLEINSTANCE *in) {
  free(in->kernelCache);
  in->kernelCache = nullptr;
  in->kernelCacheDen = 0;
}

void UpdateKernelCache(tKYRESAMPLEINSTANCE *in) {
  const DWORD den = in->phaseDen;
  if (in->method != 3 || !in->history || den == 0 || den > kMaxCachedPhases) {
    FreeKernelCache(in);
    return;
  }
  if (in->kernelCache && in->kernelCacheDen == den) return;
  FreeKernelCache(in);
  SincTable();
  double *cache = static_cast<double *>(malloc(sizeof(double) * kRing * den));
  if (!cache) return;
  for (DWORD k = 0; k < den; ++k)
    Kernel(static_cast<double>(k) / den, in->tableStep, cache + static_cast<size_t>(k) * kRing);
  in->kernelCache = cache;
  in->kernelCacheDen = den;
}

LONG SincConvert(tKYRESAMPLEINSTANCE *in, LONG type, int channels, void *dst, LONG dstMax,
                 void *src, LONG n, bool drain) {
  in->consumed = 0;
  if (drain) n = 0;
  if (n > 0 && src == dst) return 0;
  if (!in->history || !in->ringSuccessor || !IsFloatType(type)) return 0;
  SincTable();
  const bool before = FilterBefore(in);
  // Down-sampling: the low-pass runs over the caller's source block in place, saving a
  // copy of every block (the caller's data is changed, deliberately).
  if (before) AntiAlias(in, type, src, channels, n);
  LONG out;
  if (type == KYSAMPLE_F32)
    out = Run(in, channels, static_cast<float *>(dst), dstMax, static_cast<const float *>(src),
              n, drain);
  else
    out = Run(in, channels, static_cast<double *>(dst), dstMax,
              static_cast<const double *>(src), n, drain);
  if (!before) AntiAlias(in, type, dst, channels, out);
  return out;
}

} // namespace ky::resample
