// Sample converters between every supported pair of sample types, the conversion matrix
// and the one-shot KyAudio_Copy.
//
// Arithmetic, chosen so that every path is exact where it can be and reproducible where it
// cannot (the processor-specific variants give identical bits):
// - integer to float32: float(value) x 2^-(bits-1), then x gain, in float;
// - integer to float64: the same in double;
// - float32 to 8/16-bit: sample x float(gain x 2^(bits-1)) in float; to 24/32-bit the
//   product is formed in double (float would round a 24-bit result); float64 sources always
//   use double. The result is truncated toward zero and clamped; NaN gives 0;
// - integer to integer at unity gain moves the sample to the top of a 32-bit word and back,
//   so widening appends zero bits and narrowing drops the low bytes (16 to unsigned 8-bit
//   keeps the high byte and flips its sign bit); with a gain the value goes through double
//   (value x gain x 2^(dst bits - src bits)), truncated and clamped;
// - float to float: a plain cast, with the gain product in the wider of the two types.
// A gain of exactly 1.0 selects the loop without the multiplication; anything else,
// NaN included, multiplies.
#include "audio_internal.h"
#include "convert_variants.h"
#include "sample_io.h"
#include "ky_kernel.h"

#include <string.h>
#include <type_traits>

namespace ky::audio {

namespace {

// Widening walks from the last sample to the first and narrowing forwards, so that a
// conversion whose destination starts at its source's address never reads a sample it has
// already overwritten.
template <class D, class S>
constexpr bool kBackward = D::kBytes > S::kBytes || (!S::kFloat && D::kFloat);

template <class D, class S, class F>
inline void Walk(uint8_t *d, const uint8_t *s, LONG n, F f) {
  if constexpr (kBackward<D, S>) {
    for (LONG i = n; i-- > 0;) f(d + i * D::kBytes, s + i * S::kBytes);
  } else {
    for (LONG i = 0; i < n; ++i) f(d + i * D::kBytes, s + i * S::kBytes);
  }
}

template <class T> constexpr float kInvScaleF = float(1.0 / FullScale<T>());
template <class T> constexpr double kInvScale = 1.0 / FullScale<T>();

// Float32 to an integer type: 8/16-bit destinations use float arithmetic (the scale factor
// gain x 2^(bits-1) rounded to float first), wider ones double.
template <class D> constexpr bool kFloatNarrow = D::kBits <= 16;

template <class D, class S>
void WINAPI Convert(void *dstv, const void *srcv, LONG n, float gain) {
  if (n <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const bool unity = gain == 1.0f;

  if constexpr (std::is_same_v<D, S>) {
    if (unity) {
      if (d != s) memmove(d, s, size_t(n) * D::kBytes);
      return;
    }
  }

  if constexpr (!S::kFloat && !D::kFloat) {
    if (unity) {
      Walk<D, S>(d, s, n, [](uint8_t *p, const uint8_t *q) { D::StoreTop(p, S::Top(q)); });
    } else {
      const double k = double(gain) * (FullScale<D>() / FullScale<S>());
      Walk<D, S>(d, s, n, [k](uint8_t *p, const uint8_t *q) {
        StoreClamped<D>(p, double(S::Value(q)) * k);
      });
    }
  } else if constexpr (!S::kFloat && std::is_same_v<D, TF32>) {
    constexpr float scale = kInvScaleF<S>;
    if (unity) {
      Walk<D, S>(d, s, n,
                 [](uint8_t *p, const uint8_t *q) { TF32::Store(p, float(S::Value(q)) * scale); });
    } else {
      Walk<D, S>(d, s, n, [gain](uint8_t *p, const uint8_t *q) {
        TF32::Store(p, float(S::Value(q)) * scale * gain);
      });
    }
  } else if constexpr (!S::kFloat && std::is_same_v<D, TF64>) {
    constexpr double scale = kInvScale<S>;
    const double g = gain;
    if (unity) {
      Walk<D, S>(d, s, n, [](uint8_t *p, const uint8_t *q) {
        TF64::Store(p, double(S::Value(q)) * scale);
      });
    } else {
      Walk<D, S>(d, s, n, [g](uint8_t *p, const uint8_t *q) {
        TF64::Store(p, double(S::Value(q)) * scale * g);
      });
    }
  } else if constexpr (std::is_same_v<S, TF32> && !D::kFloat) {
    if constexpr (kFloatNarrow<D>) {
      const float k = unity ? float(FullScale<D>()) : gain * float(FullScale<D>());
      constexpr float lo = float(MinValue<D>()), hi = float(MaxValue<D>());
      Walk<D, S>(d, s, n, [k](uint8_t *p, const uint8_t *q) {
        D::StoreValue(p, TruncClampF(TF32::Load(q) * k, lo, hi));
      });
    } else {
      const double k = unity ? FullScale<D>() : double(gain) * FullScale<D>();
      Walk<D, S>(d, s, n, [k](uint8_t *p, const uint8_t *q) {
        StoreClamped<D>(p, double(TF32::Load(q)) * k);
      });
    }
  } else if constexpr (std::is_same_v<S, TF64> && !D::kFloat) {
    const double k = unity ? FullScale<D>() : double(gain) * FullScale<D>();
    Walk<D, S>(d, s, n,
               [k](uint8_t *p, const uint8_t *q) { StoreClamped<D>(p, TF64::Load(q) * k); });
  } else {
    // Float to float.
    if (unity) {
      Walk<D, S>(d, s, n, [](uint8_t *p, const uint8_t *q) {
        D::Store(p, static_cast<decltype(D::Load(p))>(S::Load(q)));
      });
    } else if constexpr (std::is_same_v<D, TF32> && std::is_same_v<S, TF32>) {
      Walk<D, S>(d, s, n,
                 [gain](uint8_t *p, const uint8_t *q) { TF32::Store(p, TF32::Load(q) * gain); });
    } else {
      const double g = gain;
      Walk<D, S>(d, s, n, [g](uint8_t *p, const uint8_t *q) {
        D::Store(p, static_cast<decltype(D::Load(p))>(double(S::Load(q)) * g));
      });
    }
  }
}

// Index of a sample type in the matrix, -1 when not a type.
int TypeIndex(KYSAMPLETYPE t) {
  switch (t) {
  case KYSAMPLE_U8: return 0;
  case KYSAMPLE_S16: return 1;
  case KYSAMPLE_S24: return 2;
  case KYSAMPLE_S32: return 3;
  case KYSAMPLE_F32: return 4;
  case KYSAMPLE_F64: return 5;
  case KYSAMPLE_S24IN32: return 6;
  case KYSAMPLE_S8: return 7;
  case KYSAMPLE_S16BE: return 8;
  case KYSAMPLE_S24BE: return 9;
  case KYSAMPLE_S32BE: return 10;
  default: return -1;
  }
}

#define KY_C(D, S) &Convert<D, S>
#define KY_ROW8(D)                                                                          \
  KY_C(D, TU8), KY_C(D, TS16), KY_C(D, TS24), KY_C(D, TS32), KY_C(D, TF32), KY_C(D, TF64), \
      KY_C(D, TS24IN32), KY_C(D, TS8)

// [dst][src] in TypeIndex order; null where the pair has no converter. The gaps (no 32-bit
// big-endian destination, no 16-bit big-endian to itself, no 32-bit big-endian to float)
// are part of the library's contract: callers go through an intermediate type.
const KYAUDIOCOPYFUNC kMatrix[11][11] = {
    {KY_ROW8(TU8), nullptr, nullptr, nullptr},
    {KY_ROW8(TS16), KY_C(TS16, TS16BE), KY_C(TS16, TS24BE), nullptr},
    {KY_ROW8(TS24), nullptr, KY_C(TS24, TS24BE), nullptr},
    {KY_ROW8(TS32), nullptr, nullptr, KY_C(TS32, TS32BE)},
    {KY_ROW8(TF32), KY_C(TF32, TS16BE), KY_C(TF32, TS24BE), nullptr},
    {KY_ROW8(TF64), KY_C(TF64, TS16BE), KY_C(TF64, TS24BE), nullptr},
    {KY_ROW8(TS24IN32), nullptr, nullptr, nullptr},
    {KY_ROW8(TS8), nullptr, nullptr, nullptr},
    {nullptr, KY_C(TS16BE, TS16), nullptr, KY_C(TS16BE, TS32), KY_C(TS16BE, TF32),
     KY_C(TS16BE, TF64), nullptr, nullptr, nullptr, KY_C(TS16BE, TS24BE), nullptr},
    {nullptr, KY_C(TS24BE, TS16), KY_C(TS24BE, TS24), KY_C(TS24BE, TS32), KY_C(TS24BE, TF32),
     KY_C(TS24BE, TF64), nullptr, nullptr, nullptr, nullptr, nullptr},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
     nullptr},
};
#undef KY_ROW8
#undef KY_C

} // namespace

int CpuLevel(int most) {
  LONG level = KyGetCPUSupport(15);
  if (level < 0) return 0;
  return level > most ? most : int(level);
}

KYAUDIOCOPYFUNC PlainConverter(KYSAMPLETYPE dst, KYSAMPLETYPE src) {
  const int di = TypeIndex(dst), si = TypeIndex(src);
  if (di < 0 || si < 0) return nullptr;
  return kMatrix[di][si];
}

bool CpuHasSsse3() {
  const LONG features = KyGetCPUSupport(KYCPU_FEATURES);
  return features > 0 && (DWORD(features) & KYCPU_SSSE3) != 0;
}

// The float32 destination from 16 and 24 bits, and back, and float32 to float64 have
// processor-specific variants: levels 0-1 the plain loop, 2-4 the SSE2 loop, 5 (16-bit to
// float only) a second SSE2 loop that aligns its stores. Every variant gives the plain
// loop's bits.
// The packed 24-bit pairs keep their level table (the 24-bit to float32 one stops at 4);
// their SSE2 slot (levels 2-4) takes the byte-shuffle form instead when `ssse3` says the
// processor has SSSE3, which the selector reads from the feature bits rather than from the
// level, so a caller that reports level 2-4 with SSSE3 gets it too, and level 0-1 always
// means the plain loop.
KYAUDIOCOPYFUNC ConverterForLevel(KYSAMPLETYPE dst, KYSAMPLETYPE src, int level, bool ssse3) {
  if (level < 0) level = 0;
  if (dst == KYSAMPLE_F32 && src == KYSAMPLE_S16) {
    static const KYAUDIOCOPYFUNC table[6] = {nullptr, nullptr, S16ToF32Sse2, S16ToF32Sse2,
                                             S16ToF32Sse2, S16ToF32Sse2Aligned};
    if (level > 5) level = 5;
    return table[level] ? table[level] : PlainConverter(dst, src);
  }
  if (dst == KYSAMPLE_F32 && src == KYSAMPLE_S24) {
    if (level > 4) level = 4;
    if (level < 2) return PlainConverter(dst, src);
    return ssse3 ? S24ToF32Ssse3 : S24ToF32Sse2;
  }
  if (dst == KYSAMPLE_S16 && src == KYSAMPLE_F32) {
    return level >= 2 ? F32ToS16Sse2 : PlainConverter(dst, src);
  }
  if (dst == KYSAMPLE_S24 && src == KYSAMPLE_F32) {
    if (level < 2) return PlainConverter(dst, src);
    return ssse3 ? F32ToS24Ssse3 : F32ToS24Sse2;
  }
  if (dst == KYSAMPLE_F64 && src == KYSAMPLE_F32) {
    return level >= 2 ? F32ToF64Sse2 : PlainConverter(dst, src);
  }
  return PlainConverter(dst, src);
}

KYAUDIOCOPYFUNC FindConverter(KYSAMPLETYPE dst, KYSAMPLETYPE src) {
  return ConverterForLevel(dst, src, CpuLevel(5), CpuHasSsse3());
}

} // namespace ky::audio

using namespace ky::audio;

extern "C" KYAUDIOCOPYFUNC WINAPI KyAudio_GetCopyFunction2(KYSAMPLETYPE dstType,
                                                           KYSAMPLETYPE srcType) {
  return FindConverter(dstType, srcType);
}

extern "C" KYAUDIOCOPYFUNC WINAPI KyAudio_GetCopyFunction(const WAVEFORMATEX *dstFormat,
                                                          const WAVEFORMATEX *srcFormat) {
  return FindConverter(Classify(dstFormat), Classify(srcFormat));
}

extern "C" HRESULT WINAPI KyAudio_Copy(const WAVEFORMATEX *dstFormat, void *dst,
                                       const WAVEFORMATEX *srcFormat, const void *src,
                                       LONG frames, DWORD gainBits) {
  if (frames == 0) return S_OK;
  KYAUDIOCOPYFUNC f = FindConverter(Classify(dstFormat), Classify(srcFormat));
  if (!f) return E_NOTIMPL;
  if (frames < 0) return E_FAIL;
  if (!dst || !src) return E_POINTER;
  const LONGLONG samples = LONGLONG(frames) * srcFormat->nChannels;
  if (samples > 0x7FFFFFFF) return E_FAIL;
  float gain;
  memcpy(&gain, &gainBits, 4);
  f(dst, src, LONG(samples), gain);
  return S_OK;
}

// Test seam: the converter of one processor level (SSE2 forms only), so the variants can be compared with
// the plain loop on any machine.
extern "C" KYAUDIOCOPYFUNC WINAPI KyInternal_AudioConverterForLevel(KYSAMPLETYPE dst,
                                                                    KYSAMPLETYPE src,
                                                                    LONG level) {
  return ConverterForLevel(dst, src, int(level), false);
}

// Test seam: the converter of one processor level on a processor with the given feature
// bits (KyGetCPUSupport(KYCPU_FEATURES) form). Callers pass only bits the processor has.
extern "C" KYAUDIOCOPYFUNC WINAPI KyInternal_AudioConverterForCpu(KYSAMPLETYPE dst,
                                                                  KYSAMPLETYPE src, LONG level,
                                                                  DWORD features) {
  return ConverterForLevel(dst, src, int(level), (features & KYCPU_SSSE3) != 0);
}
