// Processor support query: CPUID feature bits and the level the audio converters choose by.
#include "ky_internal.h"
#include "ky_kernel.h"

#include <cpuid.h>

namespace ky {

DWORD DetectCpuFeatures() {
  unsigned a = 0, b = 0, c = 0, d = 0;
  if (!__get_cpuid(1, &a, &b, &c, &d)) return 0;
  DWORD f = 0;
  if (d & bit_MMX) f |= KYCPU_MMX;
  if (d & bit_SSE) f |= KYCPU_SSE;
  if (d & bit_SSE2) f |= KYCPU_SSE2;
  if (d & bit_CMOV) f |= KYCPU_CMOV;
  if (c & bit_SSE3) f |= KYCPU_SSE3;
  if (c & bit_SSSE3) f |= KYCPU_SSSE3;
  if (c & bit_SSE4_1) f |= KYCPU_SSE41;
  if (c & bit_POPCNT) f |= KYCPU_POPCNT;
  return f;
}

} // namespace ky

extern "C" LONG WINAPI KyGetCPUSupport(LONG query) {
  static DWORD features = ky::DetectCpuFeatures();
  switch (query) {
  case KYCPU_FEATURES:
    return static_cast<LONG>(features);
  case KYCPU_LEVEL:
    if (features & KYCPU_SSSE3) return 5;
    if (features & KYCPU_SSE3) return 4;
    if (features & KYCPU_SSE2) return 3;
    if (features & KYCPU_SSE) return 2;
    if (features & KYCPU_MMX) return 1;
    return 0;
  default:
    return -1;
  }
}
