// Processor-specific converters of the hot pairs (SSE2). Each gives exactly the bits of
// the plain loop in convert.cpp, walks in the same direction (so in-place conversion works)
// and never reads or writes outside the two buffers.
#pragma once

#include <stdint.h>
#include "ky_audio.h"

namespace ky::audio {

void WINAPI S16ToF32Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI S16ToF32Sse2Aligned(void *dst, const void *src, LONG n, float gain);
void WINAPI S24ToF32Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI F32ToS16Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI F32ToS24Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI F32ToF64Sse2(void *dst, const void *src, LONG n, float gain);
// Packed 24-bit to and from float32 with byte shuffles; run only where SSSE3 exists.
void WINAPI S24ToF32Ssse3(void *dst, const void *src, LONG n, float gain);
void WINAPI F32ToS24Ssse3(void *dst, const void *src, LONG n, float gain);

// Float32 destination mixers for 1, 2 or 4 channels: factors[i & 3] multiplies sample i
// (the per-channel gains times the source's full-scale factor, repeated over four lanes).
void MixF32S16Sse2(float *d, const int16_t *s, LONG n, const float factors[4]);
void MixF32F32Sse2(float *d, const float *s, LONG n, const float factors[4]);
// 16-bit into 16-bit with one gain for every channel.
void MixS16S16Sse2(int16_t *d, const int16_t *s, LONG n, double gain);

KYAUDIOCOPYFUNC PlainConverter(KYSAMPLETYPE dst, KYSAMPLETYPE src);
KYAUDIOCOPYFUNC FindConverter(KYSAMPLETYPE dst, KYSAMPLETYPE src);
int CpuLevel(int most); // KyGetCPUSupport(15) clamped to 0..most
bool CpuHasSsse3();     // KyGetCPUSupport(KYCPU_FEATURES) reports SSSE3

} // namespace ky::audio
