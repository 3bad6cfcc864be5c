// Lane arithmetic shared by the SSE2 and SSSE3 converters, so that both give the plain
// loop's bits through one copy of it. Everything here is SSE2 only; it inlines into the
// SSSE3 functions as well (a subset of their instruction set).
#pragma once

#include <emmintrin.h>
#include <stdint.h>

namespace ky::audio {

// Double lanes -> truncated, clamped int32 lanes (in the low half); NaN lanes become 0.
inline __m128i TruncClamp2d(__m128d v, __m128d lo, __m128d hi) {
  v = _mm_and_pd(v, _mm_cmpord_pd(v, v));
  return _mm_cvttpd_epi32(_mm_min_pd(_mm_max_pd(v, lo), hi));
}

// A source float whose magnitude is below the smallest normal gives |x * k| < 1 for any
// factor |k| <= 2^100, which truncates to 0; such lanes are zeroed before the multiply, so
// that denormal operands (slow on many processors) never reach the arithmetic. For larger
// or non-finite factors nothing is zeroed (the threshold -1 passes every lane).
inline int DenormalThreshold(double k) { return k >= -0x1p100 && k <= 0x1p100 ? 0x007FFFFF : -1; }
inline __m128 LoadSkippingDenormals(const void *p, __m128i absMask, __m128i threshold) {
  const __m128i bits = _mm_loadu_si128(static_cast<const __m128i *>(p));
  return _mm_castsi128_ps(
      _mm_and_si128(bits, _mm_cmpgt_epi32(_mm_and_si128(bits, absMask), threshold)));
}

// Four float32 samples -> four int32 lanes holding the 24-bit results (truncated, clamped
// to [-8388608, 8388607], NaN 0). The unity and gain forms are separate so that each keeps
// only its own constants.
template <bool kUnity> struct F32ToS24Lanes {
  __m128i absMask = _mm_set1_epi32(0x7FFFFFFF);
  double k;
  __m128i thr;
  explicit F32ToS24Lanes(float gain)
      : k(kUnity ? 8388608.0 : double(gain) * 8388608.0), thr(_mm_set1_epi32(DenormalThreshold(k))) {}

  __m128i operator()(const uint8_t *p) const {
    if (kUnity) {
      // Denormal and NaN lanes are both zeroed in the integer domain; the product of the
      // rest by 2^23 is never NaN, so no ordered compare is needed after the multiply.
      const __m128i bits = _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
      const __m128i mag = _mm_and_si128(bits, absMask);
      const __m128i keep = _mm_andnot_si128(_mm_cmpgt_epi32(mag, _mm_set1_epi32(0x7F800000)),
                                            _mm_cmpgt_epi32(mag, thr));
      const __m128 y = _mm_mul_ps(_mm_castsi128_ps(_mm_and_si128(bits, keep)),
                                  _mm_set1_ps(8388608.0f));
      return _mm_cvttps_epi32(
          _mm_min_ps(_mm_max_ps(y, _mm_set1_ps(-8388608.0f)), _mm_set1_ps(8388607.0f)));
    }
    const __m128 x = LoadSkippingDenormals(p, absMask, thr);
    // A gain makes the product inexact: formed in double as the plain loop does.
    const __m128d kd = _mm_set1_pd(k), lod = _mm_set1_pd(-8388608.0),
                  hid = _mm_set1_pd(8388607.0);
    const __m128i a = TruncClamp2d(_mm_mul_pd(_mm_cvtps_pd(x), kd), lod, hid);
    const __m128i c = TruncClamp2d(_mm_mul_pd(_mm_cvtps_pd(_mm_movehl_ps(x, x)), kd), lod, hid);
    return _mm_unpacklo_epi64(a, c);
  }
};

// Four 32-bit words holding 24-bit samples in their top three bytes -> float32 lanes:
// value x 2^-31, then x gain unless the gain is exactly 1.
template <bool kUnity> inline __m128 S24WordsToF32(__m128i words, __m128 gain) {
  const __m128 f = _mm_mul_ps(_mm_cvtepi32_ps(words), _mm_set1_ps(1.0f / 2147483648.0f));
  return kUnity ? f : _mm_mul_ps(f, gain);
}

} // namespace ky::audio
