// SSSE3 converters between packed 24-bit and float32. The byte shuffle (pshufb) moves
// packed samples into 32-bit lanes and back in one instruction per four samples, where the
// SSE2 loops need several shifts and masks. Only these functions are compiled for SSSE3
// (per-function target), so the rest of the library keeps running on SSE2-only processors;
// the selector calls them only when the processor reports SSSE3.
//
// The arithmetic is the SSE2 loops' (convert_simd.h), so the bits are the plain loop's.
// Widening walks blocks from the end and narrowing from the start, all loads of a block
// before its stores, so a destination at the source's address is converted in place; the
// samples that do not fill a whole block go to the plain loop. No access leaves the buffers.
#include "convert_simd.h"
#include "convert_variants.h"

#include <stdint.h>
#include <string.h>
#include <tmmintrin.h>

#define KY_SSSE3 __attribute__((target("ssse3")))

namespace ky::audio {

namespace {

// Shuffle controls: a set byte (0x80) makes a zero. kTo32 spreads four packed samples
// (bytes 0-11) into the top three bytes of four words; kTo32At4 does the same for the
// samples in bytes 4-15.
#define KY_W(b) char(-1), char(b), char((b) + 1), char((b) + 2)
alignas(16) const char kTo32[16] = {KY_W(0), KY_W(3), KY_W(6), KY_W(9)};
alignas(16) const char kTo32At4[16] = {KY_W(4), KY_W(7), KY_W(10), KY_W(13)};
#undef KY_W

// The reverse: the low three bytes of each word of four int32 lanes, packed, placed at
// byte `at` of the output (bytes before it and after the twelfth are zero), skipping the
// first `skip` packed bytes. Three 16-byte outputs of one block are then made of pairs:
//   out0 = group0 at 0      | group1's first 4 bytes at 12
//   out1 = group1 from 4    | group2's first 8 bytes at 8
//   out2 = group2 from 8    | group3 at 4
constexpr char PackedByte(int i) { return char(i / 3 * 4 + i % 3); }
struct PackControl {
  alignas(16) char c[16];
  constexpr PackControl(int at, int skip) : c{} {
    for (int o = 0; o < 16; ++o) {
      const int i = o - at + skip; // packed byte index written at output byte o
      c[o] = o >= at && i < 12 ? PackedByte(i) : char(-1);
    }
  }
};
constexpr PackControl kG0At0(0, 0), kG1At12(12, 0), kG1From4(0, 4), kG2At8(8, 0),
    kG2From8(0, 8), kG3At4(4, 0);

inline __m128i Ctl(const PackControl &p) {
  return _mm_load_si128(reinterpret_cast<const __m128i *>(p.c));
}

template <bool kUnity>
KY_SSSE3 void S24ToF32Blocks(uint8_t *d, const uint8_t *s, LONG blocks, float gain) {
  const __m128 g = _mm_set1_ps(gain);
  const __m128i to32 = _mm_load_si128(reinterpret_cast<const __m128i *>(kTo32));
  const __m128i to32At4 = _mm_load_si128(reinterpret_cast<const __m128i *>(kTo32At4));
  for (LONG b = blocks; b-- > 0;) {
    const __m128i *in = reinterpret_cast<const __m128i *>(s + b * 48);
    // Sixteen samples from three loads of exactly their 48 bytes.
    const __m128i r0 = _mm_loadu_si128(in), r1 = _mm_loadu_si128(in + 1),
                  r2 = _mm_loadu_si128(in + 2);
    const __m128 f0 = S24WordsToF32<kUnity>(_mm_shuffle_epi8(r0, to32), g);
    const __m128 f1 = S24WordsToF32<kUnity>(_mm_shuffle_epi8(_mm_alignr_epi8(r1, r0, 12), to32), g);
    const __m128 f2 = S24WordsToF32<kUnity>(_mm_shuffle_epi8(_mm_alignr_epi8(r2, r1, 8), to32), g);
    const __m128 f3 = S24WordsToF32<kUnity>(_mm_shuffle_epi8(r2, to32At4), g);
    float *out = reinterpret_cast<float *>(d + b * 64);
    _mm_storeu_ps(out, f0);
    _mm_storeu_ps(out + 4, f1);
    _mm_storeu_ps(out + 8, f2);
    _mm_storeu_ps(out + 12, f3);
  }
}

// Unity gain, four samples: x * 2^23 (exact), clamped with the bound as the first operand
// of max and min, which hands a NaN through to the truncation; its result 0x80000000 has
// zero low bytes, and only the low three bytes of a lane are kept, so NaN gives 0 as the
// plain loop does without a mask. Denormal sources give |x * 2^23| < 1, which truncates
// to 0 in any case; the caller sets DAZ where it can so that they cost no assist.
struct F32ToS24Unity {
  __m128 k = _mm_set1_ps(8388608.0f), lo = _mm_set1_ps(-8388608.0f), hi = _mm_set1_ps(8388607.0f);
  explicit F32ToS24Unity(float) {}
  __m128i operator()(const uint8_t *p) const {
    const __m128 y = _mm_mul_ps(_mm_loadu_ps(reinterpret_cast<const float *>(p)), k);
    return _mm_cvttps_epi32(_mm_min_ps(hi, _mm_max_ps(lo, y)));
  }
};

// Whether MXCSR accepts DAZ (bit 6 of the FXSAVE area's MXCSR mask; a zero mask means the
// default 0xFFBF, without it).
KY_SSSE3 __attribute__((target("fxsr"))) bool DazSupported() {
  alignas(16) uint8_t area[512] = {};
  __builtin_ia32_fxsave(area);
  uint32_t mask;
  memcpy(&mask, area + 28, 4);
  return (mask & 0x40) != 0;
}

template <class Lanes>
KY_SSSE3 void F32ToS24Blocks(uint8_t *d, const uint8_t *s, LONG blocks, float gain) {
  const Lanes convert(gain);
  const __m128i g0At0 = Ctl(kG0At0), g1At12 = Ctl(kG1At12), g1From4 = Ctl(kG1From4),
                g2At8 = Ctl(kG2At8), g2From8 = Ctl(kG2From8), g3At4 = Ctl(kG3At4);
  for (LONG b = 0; b < blocks; ++b) {
    const uint8_t *in = s + b * 64;
    const __m128i v0 = convert(in), v1 = convert(in + 16), v2 = convert(in + 32),
                  v3 = convert(in + 48);
    __m128i *out = reinterpret_cast<__m128i *>(d + b * 48);
    _mm_storeu_si128(out, _mm_or_si128(_mm_shuffle_epi8(v0, g0At0), _mm_shuffle_epi8(v1, g1At12)));
    _mm_storeu_si128(out + 1,
                     _mm_or_si128(_mm_shuffle_epi8(v1, g1From4), _mm_shuffle_epi8(v2, g2At8)));
    _mm_storeu_si128(out + 2,
                     _mm_or_si128(_mm_shuffle_epi8(v2, g2From8), _mm_shuffle_epi8(v3, g3At4)));
  }
}

} // namespace

void WINAPI S24ToF32Ssse3(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG blocks = n / 16;
  if (n > blocks * 16)
    PlainConverter(KYSAMPLE_F32, KYSAMPLE_S24)(d + blocks * 64, s + blocks * 48,
                                               n - blocks * 16, gain);
  if (gain == 1.0f)
    S24ToF32Blocks<true>(d, s, blocks, gain);
  else
    S24ToF32Blocks<false>(d, s, blocks, gain);
}

void WINAPI F32ToS24Ssse3(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  // Each block writes exactly its own 48 bytes, so every whole block takes this loop.
  const LONG blocks = n / 16;
  if (gain == 1.0f) {
    static const bool daz = DazSupported();
    const unsigned csr = _mm_getcsr();
    if (daz) _mm_setcsr(csr | 0x40);
    F32ToS24Blocks<F32ToS24Unity>(d, s, blocks, gain);
    if (daz) _mm_setcsr(csr);
  } else {
    F32ToS24Blocks<F32ToS24Lanes<false>>(d, s, blocks, gain);
  }
  if (n > blocks * 16)
    PlainConverter(KYSAMPLE_S24, KYSAMPLE_F32)(d + blocks * 48, s + blocks * 64,
                                               n - blocks * 16, gain);
}

} // namespace ky::audio
