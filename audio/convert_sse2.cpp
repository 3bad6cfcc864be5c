// SSE2 converters of the hot pairs: 16-bit and packed 24-bit to float32 and back.
// They do the plain loops' arithmetic lane by lane (the same roundings in the same order),
// so their results are bit-identical; the samples that do not fill a whole block are
// handed to the plain loop. Widening walks blocks from the end, narrowing from the start,
// as the plain loops do, so a destination at the source's address is converted in place.
#include "convert_simd.h"
#include "convert_variants.h"
#include "sample_io.h"

#include <emmintrin.h>
#include <stdint.h>

namespace ky::audio {

namespace {

void PlainTail(KYSAMPLETYPE dst, KYSAMPLETYPE src, uint8_t *d, const uint8_t *s, LONG n,
               float gain) {
  if (n > 0) PlainConverter(dst, src)(d, s, n, gain);
}


} // namespace

void WINAPI S16ToF32Sse2(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG blocks = n / 8;
  PlainTail(KYSAMPLE_F32, KYSAMPLE_S16, d + blocks * 32, s + blocks * 16, n - blocks * 8, gain);
  const __m128 scale = _mm_set1_ps(1.0f / 32768.0f);
  const __m128 g = _mm_set1_ps(gain);
  const bool unity = gain == 1.0f;
  for (LONG b = blocks; b-- > 0;) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + b * 16));
    __m128 lo = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16)), scale);
    __m128 hi = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(x, x), 16)), scale);
    if (!unity) {
      lo = _mm_mul_ps(lo, g);
      hi = _mm_mul_ps(hi, g);
    }
    _mm_storeu_ps(reinterpret_cast<float *>(d + b * 32), lo);
    _mm_storeu_ps(reinterpret_cast<float *>(d + b * 32 + 16), hi);
  }
}

// Sixteen samples per step in two independent chains, so that the conversions of one half
// overlap the loads and stores of the other; aligned stores when the destination allows.
template <bool kAligned>
static void S16ToF32Blocks(uint8_t *d, const uint8_t *s, LONG blocks, float gain) {
  const __m128 scale = _mm_set1_ps(1.0f / 32768.0f);
  const __m128 g = _mm_set1_ps(gain);
  const bool unity = gain == 1.0f;
  for (LONG b = blocks; b-- > 0;) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + b * 32));
    const __m128i y = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + b * 32 + 16));
    __m128 a = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16)), scale);
    __m128 c = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(y, y), 16)), scale);
    __m128 e = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(x, x), 16)), scale);
    __m128 h = _mm_mul_ps(_mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(y, y), 16)), scale);
    if (!unity) {
      a = _mm_mul_ps(a, g);
      c = _mm_mul_ps(c, g);
      e = _mm_mul_ps(e, g);
      h = _mm_mul_ps(h, g);
    }
    float *out = reinterpret_cast<float *>(d + b * 64);
    if (kAligned) {
      _mm_store_ps(out, a);
      _mm_store_ps(out + 4, e);
      _mm_store_ps(out + 8, c);
      _mm_store_ps(out + 12, h);
    } else {
      _mm_storeu_ps(out, a);
      _mm_storeu_ps(out + 4, e);
      _mm_storeu_ps(out + 8, c);
      _mm_storeu_ps(out + 12, h);
    }
  }
}

void WINAPI S16ToF32Sse2Aligned(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG blocks = n / 16;
  PlainTail(KYSAMPLE_F32, KYSAMPLE_S16, d + blocks * 64, s + blocks * 32, n - blocks * 16, gain);
  if ((reinterpret_cast<uintptr_t>(d) & 15) == 0)
    S16ToF32Blocks<true>(d, s, blocks, gain);
  else
    S16ToF32Blocks<false>(d, s, blocks, gain);
}

namespace {

// Four packed 24-bit samples in bytes 1-12 of q (byte 0 is ignored) -> four 32-bit words
// holding each sample in their top three bytes (low byte 0). The 64-bit lanes take bytes
// 0-7 and 6-13, so each lane's first word is already in place and its second is the lane
// shifted left by one byte; masking clears the stray low bytes.
inline __m128i Unpack24(__m128i q, __m128i firstWord, __m128i secondWord) {
  const __m128i x = _mm_unpacklo_epi64(q, _mm_srli_si128(q, 6));
  return _mm_or_si128(_mm_and_si128(x, firstWord),
                      _mm_and_si128(_mm_slli_epi64(x, 8), secondWord));
}

} // namespace

template <bool kUnity>
static void S24ToF32Blocks(uint8_t *d, const uint8_t *s, LONG blocks, float gain) {
  const __m128 g = _mm_set1_ps(gain);
  const __m128i w0 = _mm_set_epi32(0, -256, 0, -256), w1 = _mm_set_epi32(-256, 0, -256, 0);
  auto convert4 = [&](__m128i q) { return S24WordsToF32<kUnity>(Unpack24(q, w0, w1), g); };
  for (LONG b = blocks; b-- > 0;) {
    const __m128i *in = reinterpret_cast<const __m128i *>(s + b * 48);
    // All loads come before the stores: in place, this block's output covers its input.
    const __m128i r0 = _mm_loadu_si128(in), r1 = _mm_loadu_si128(in + 1),
                  r2 = _mm_loadu_si128(in + 2);
    // Each group of four samples, one byte up (the byte below them is ignored).
    const __m128 f0 = convert4(_mm_slli_si128(r0, 1));
    const __m128 f1 = convert4(_mm_or_si128(_mm_srli_si128(r0, 11), _mm_slli_si128(r1, 5)));
    const __m128 f2 = convert4(_mm_or_si128(_mm_srli_si128(r1, 7), _mm_slli_si128(r2, 9)));
    const __m128 f3 = convert4(_mm_srli_si128(r2, 3));
    float *out = reinterpret_cast<float *>(d + b * 64);
    _mm_storeu_ps(out, f0);
    _mm_storeu_ps(out + 4, f1);
    _mm_storeu_ps(out + 8, f2);
    _mm_storeu_ps(out + 12, f3);
  }
}

void WINAPI S24ToF32Sse2(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  // Sixteen samples per step: three 16-byte loads of exactly their 48 bytes, four stores.
  const LONG blocks = n / 16;
  PlainTail(KYSAMPLE_F32, KYSAMPLE_S24, d + blocks * 64, s + blocks * 48, n - blocks * 16, gain);
  if (gain == 1.0f)
    S24ToF32Blocks<true>(d, s, blocks, gain);
  else
    S24ToF32Blocks<false>(d, s, blocks, gain);
}

void WINAPI F32ToS16Sse2(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG blocks = n / 16;
  const float k = gain == 1.0f ? 32768.0f : gain * 32768.0f;
  const __m128 kv = _mm_set1_ps(k);
  const __m128 hi = _mm_set1_ps(32767.0f);
  const __m128i absMask = _mm_set1_epi32(0x7FFFFFFF);
  const __m128i thr = _mm_set1_epi32(DenormalThreshold(k));
  // Only the top needs clamping in float: below -32768 the truncation gives a value (or the
  // integer indefinite 0x80000000) that the saturating pack turns into -32768. Sixteen
  // samples per step in two independent chains.
  auto convert4 = [&](const uint8_t *p) {
    __m128 x = _mm_mul_ps(LoadSkippingDenormals(p, absMask, thr), kv);
    x = _mm_min_ps(_mm_and_ps(x, _mm_cmpord_ps(x, x)), hi);
    return _mm_cvttps_epi32(x);
  };
  for (LONG b = 0; b < blocks; ++b) {
    const uint8_t *in = s + b * 64;
    const __m128i a0 = convert4(in), a1 = convert4(in + 16);
    const __m128i c0 = convert4(in + 32), c1 = convert4(in + 48);
    __m128i *out = reinterpret_cast<__m128i *>(d + b * 32);
    _mm_storeu_si128(out, _mm_packs_epi32(a0, a1));
    _mm_storeu_si128(out + 1, _mm_packs_epi32(c0, c1));
  }
  PlainTail(KYSAMPLE_S16, KYSAMPLE_F32, d + blocks * 32, s + blocks * 64, n - blocks * 16, gain);
}

// Sixteen samples per step, each group of four written as two overlapping 8-byte stores. The
// unity and gain loops are separate so that each keeps its constants in registers.
template <bool kUnity>
static void F32ToS24Blocks(uint8_t *d, const uint8_t *s, LONG blocks, float gain) {
  const F32ToS24Lanes<kUnity> convert(gain);
  const __m128i even24 = _mm_set_epi32(0, 0xFFFFFF, 0, 0xFFFFFF);
  const __m128i odd24 = _mm_set_epi32(0xFFFFFF, 0, 0xFFFFFF, 0);
  for (LONG b = 0; b < blocks; ++b) {
    const uint8_t *in = s + b * 64;
    uint8_t *out = d + b * 48;
    for (int g = 0; g < 4; ++g) {
      const __m128i v = convert(in + 16 * g);
      // Each 64-bit lane: first sample in bytes 0-2, second moved down from 4-6 to 3-5;
      // the two lanes go out as overlapping 8-byte stores 6 bytes apart.
      const __m128i lanes = _mm_or_si128(_mm_and_si128(v, even24),
                                         _mm_srli_epi64(_mm_and_si128(v, odd24), 8));
      _mm_storel_epi64(reinterpret_cast<__m128i *>(out + 12 * g), lanes);
      _mm_storeh_pd(reinterpret_cast<double *>(out + 12 * g + 6), _mm_castsi128_pd(lanes));
    }
  }
}

void WINAPI F32ToS24Sse2(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  // The last 8-byte store of a block reaches two bytes past it, into the next sample (whose
  // source was not yet read, and which is written afterwards), so the last sample always
  // goes to the plain loop.
  const LONG blocks = (n - 1) / 16;
  if (gain == 1.0f)
    F32ToS24Blocks<true>(d, s, blocks, gain);
  else
    F32ToS24Blocks<false>(d, s, blocks, gain);
  PlainTail(KYSAMPLE_S24, KYSAMPLE_F32, d + blocks * 48, s + blocks * 64, n - blocks * 16, gain);
}

} // namespace ky::audio

namespace ky::audio {

void WINAPI F32ToF64Sse2(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG blocks = n / 4;
  PlainTail(KYSAMPLE_F64, KYSAMPLE_F32, d + blocks * 32, s + blocks * 16, n - blocks * 4, gain);
  const bool unity = gain == 1.0f;
  const __m128d g = _mm_set1_pd(double(gain));
  for (LONG b = blocks; b-- > 0;) {
    const __m128 x = _mm_loadu_ps(reinterpret_cast<const float *>(s + b * 16));
    __m128d lo = _mm_cvtps_pd(x), hi = _mm_cvtps_pd(_mm_movehl_ps(x, x));
    if (!unity) {
      lo = _mm_mul_pd(lo, g);
      hi = _mm_mul_pd(hi, g);
    }
    _mm_storeu_pd(reinterpret_cast<double *>(d + b * 32), lo);
    _mm_storeu_pd(reinterpret_cast<double *>(d + b * 32 + 16), hi);
  }
}

// Float32 destination mixers: dst + value x factor per lane, the factor repeating every
// `channels` samples (1, 2 or 4 channels fill the four lanes evenly).
void MixF32S16Sse2(float *d, const int16_t *s, LONG n, const float factors[4]) {
  const __m128 f = _mm_loadu_ps(factors);
  LONG i = 0;
  for (; i + 8 <= n; i += 8) {
    const __m128i x = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i));
    const __m128 lo = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpacklo_epi16(x, x), 16));
    const __m128 hi = _mm_cvtepi32_ps(_mm_srai_epi32(_mm_unpackhi_epi16(x, x), 16));
    _mm_storeu_ps(d + i, _mm_add_ps(_mm_loadu_ps(d + i), _mm_mul_ps(lo, f)));
    _mm_storeu_ps(d + i + 4, _mm_add_ps(_mm_loadu_ps(d + i + 4), _mm_mul_ps(hi, f)));
  }
  for (; i < n; ++i) d[i] = d[i] + float(s[i]) * factors[i & 3];
}

void MixF32F32Sse2(float *d, const float *s, LONG n, const float factors[4]) {
  const __m128 f = _mm_loadu_ps(factors);
  LONG i = 0;
  for (; i + 8 <= n; i += 8) {
    _mm_storeu_ps(d + i, _mm_add_ps(_mm_loadu_ps(d + i), _mm_mul_ps(_mm_loadu_ps(s + i), f)));
    _mm_storeu_ps(d + i + 4,
                  _mm_add_ps(_mm_loadu_ps(d + i + 4), _mm_mul_ps(_mm_loadu_ps(s + i + 4), f)));
  }
  for (; i < n; ++i) d[i] = d[i] + s[i] * factors[i & 3];
}

} // namespace ky::audio

namespace ky::audio {

// 16-bit into 16-bit: the saturating 16-bit addition is the sum's clamp; with a gain the
// scaled source is formed in double, truncated and clamped (NaN products give 0) as the
// plain loop does, and packed to 16 bits with saturation.
void MixS16S16Sse2(int16_t *d, const int16_t *s, LONG n, double gain) {
  LONG i = 0;
  if (gain == 1.0) {
    for (; i + 8 <= n; i += 8) {
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(d + i));
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i), _mm_adds_epi16(a, b));
    }
  } else {
    const __m128d g = _mm_set1_pd(gain);
    const __m128d lo = _mm_set1_pd(-32768.0), hi = _mm_set1_pd(32767.0);
    for (; i + 8 <= n; i += 8) {
      const __m128i b = _mm_loadu_si128(reinterpret_cast<const __m128i *>(s + i));
      const __m128i b0 = _mm_srai_epi32(_mm_unpacklo_epi16(b, b), 16);
      const __m128i b1 = _mm_srai_epi32(_mm_unpackhi_epi16(b, b), 16);
      const __m128i t0 = _mm_unpacklo_epi64(
          TruncClamp2d(_mm_mul_pd(_mm_cvtepi32_pd(b0), g), lo, hi),
          TruncClamp2d(_mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(b0, 8)), g), lo, hi));
      const __m128i t1 = _mm_unpacklo_epi64(
          TruncClamp2d(_mm_mul_pd(_mm_cvtepi32_pd(b1), g), lo, hi),
          TruncClamp2d(_mm_mul_pd(_mm_cvtepi32_pd(_mm_srli_si128(b1, 8)), g), lo, hi));
      const __m128i a = _mm_loadu_si128(reinterpret_cast<const __m128i *>(d + i));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(d + i), _mm_adds_epi16(a, _mm_packs_epi32(t0, t1)));
    }
  }
  for (; i < n; ++i) {
    const int32_t t = gain == 1.0 ? s[i] : TruncClamp(double(s[i]) * gain, -32768.0, 32767.0);
    const int32_t sum = int32_t(d[i]) + t;
    d[i] = int16_t(sum < -32768 ? -32768 : sum > 32767 ? 32767 : sum);
  }
}

} // namespace ky::audio
