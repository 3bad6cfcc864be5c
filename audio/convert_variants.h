// Processor-specific converters of the hot pairs (SSE2). Each gives exactly the bits of
// the plain loop in convert.cpp, walks in the same direction (so in-place conversion works)
// and never reads or writes outside the two buffers.
#pragma once

#include "ky_audio.h"

namespace ky::audio {

void WINAPI S16ToF32Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI S16ToF32Sse2Aligned(void *dst, const void *src, LONG n, float gain);
void WINAPI S24ToF32Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI F32ToS16Sse2(void *dst, const void *src, LONG n, float gain);
void WINAPI F32ToS24Sse2(void *dst, const void *src, LONG n, float gain);

KYAUDIOCOPYFUNC PlainConverter(KYSAMPLETYPE dst, KYSAMPLETYPE src);
KYAUDIOCOPYFUNC FindConverter(KYSAMPLETYPE dst, KYSAMPLETYPE src);

} // namespace ky::audio
