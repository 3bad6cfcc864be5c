// The interpolating engine of the resampler (every sample type) and the stateless
// nearest-frame converter.
//
// Output k lies at the source position t_k = t_(k-1) + 1/ratio (t_0 = 0 after a reset) and
// blends the frames floor(t) and floor(t) + 1 by the fraction t - floor(t). The position is
// kept as a whole frame index relative to the current block plus a fraction in 0..1 (see
// PhaseClock), so its rounding does not depend on where the blocks start: one block or many
// give the same output. The last frame of each block is kept for the first output of the next.
//
// Integer samples are blended in their own units in double precision and converted back by
// truncation toward zero and clamping. That is the same as going through the float
// full-scale factors (powers of two, exact in double) and back.
#include <windows.h>
#include <math.h>
#include <string.h>

#include "resample_internal.h"
#include "sample_io.h"

namespace ky::resample {
namespace {

using namespace ky::audio;

// Load: a sample as a double in the type's own units; Store: truncate, clamp and write.
template <class A, bool Float = A::kFloat> struct Io {
  static constexpr int kBytes = A::kBytes;
  static double Load(const BYTE *p) { return A::Value(p); }
  static void Store(BYTE *p, double v) { StoreClamped<A>(p, v); }
};
template <class A> struct Io<A, true> {
  static constexpr int kBytes = A::kBytes;
  using Sample = decltype(A::Load(nullptr));
  static double Load(const BYTE *p) { return A::Load(p); }
  static void Store(BYTE *p, double v) { A::Store(p, static_cast<Sample>(v)); }
};

// The loop for one type; CH is the channel count when it is known at compile time (the
// specialised mono and stereo loops), 0 for the general loop.
template <class A, int CH>
LONG Run(tKYRESAMPLEINSTANCE *in, BYTE *dst, LONG dstMax, const BYTE *src, LONG n,
         bool drain) {
  using Tr = Io<A>;
  const int channels = CH ? CH : in->channels;
  const size_t frameBytes = static_cast<size_t>(channels) * Tr::kBytes;
  PhaseClock clock(in);
  LONG i = in->linearIndex;  // frame floor(t), relative to this block; -1 = lastFrame
  LONG out = 0;
  while (out < dstMax) {
    const LONG next = i + 1;
    if (next >= n) {
      // The frame after floor(t) is in a later block; only the end of the stream (a drain)
      // holds the last frame instead.
      if (!(drain && i == -1 && in->lastFrameValid)) break;
    }
    const BYTE *a = i >= 0 ? src + static_cast<size_t>(i) * frameBytes : nullptr;
    const BYTE *b = next < n ? src + static_cast<size_t>(next) * frameBytes : nullptr;
    BYTE *o = dst + static_cast<size_t>(out) * frameBytes;
    for (int c = 0; c < channels; ++c) {
      const double x0 = a ? Tr::Load(a + c * Tr::kBytes) : in->lastFrame[c];
      const double x1 = b ? Tr::Load(b + c * Tr::kBytes) : x0;
      Tr::Store(o + c * Tr::kBytes, x0 + (x1 - x0) * clock.phi);
    }
    ++out;
    i += clock.Advance();
  }
  if (n > 0) {
    const BYTE *last = src + static_cast<size_t>(n - 1) * frameBytes;
    for (int c = 0; c < channels; ++c) in->lastFrame[c] = Tr::Load(last + c * Tr::kBytes);
    in->lastFrameValid = 1;
  }
  // Frames skipped when the destination filled first are not used (i < n - 1): the next
  // block goes on from the last frame of this one.
  in->linearIndex = i - n < -1 ? -1 : i - n;
  clock.Save(in);
  in->consumed = n;
  return out;
}

template <class A>
LONG Specialised(tKYRESAMPLEINSTANCE *in, BYTE *dst, LONG dstMax, const BYTE *src, LONG n,
                 bool drain) {
  switch (in->channels) {
  case 1: return Run<A, 1>(in, dst, dstMax, src, n, drain);
  case 2: return Run<A, 2>(in, dst, dstMax, src, n, drain);
  default: return Run<A, 0>(in, dst, dstMax, src, n, drain);
  }
}

} // namespace

LONG LinearConvert(tKYRESAMPLEINSTANCE *in, LONG type, void *dstV, LONG dstMax, void *srcV,
                   LONG n, bool drain) {
  in->consumed = 0;
  if (drain) n = 0;
  BYTE *dst = static_cast<BYTE *>(dstV);
  const BYTE *src = static_cast<const BYTE *>(srcV);
  if (n > 0 && src == dst) return 0;
  const bool filter = IsFloatType(type) && in->filter[0].sections > 0;
  const bool before = filter && FilterBefore(in);
  if (before) AntiAlias(in, type, srcV, in->channels, n);
  LONG out;
  switch (type) {
  // Mono and stereo loops specialised for the common types...
  case KYSAMPLE_U8: out = Specialised<TU8>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S16: out = Specialised<TS16>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S24: out = Specialised<TS24>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S32: out = Specialised<TS32>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_F32: out = Specialised<TF32>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_F64: out = Specialised<TF64>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S24IN32: out = Specialised<TS24IN32>(in, dst, dstMax, src, n, drain); break;
  // ...and the general loop for the rest.
  case KYSAMPLE_S8: out = Run<TS8, 0>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S16BE: out = Run<TS16BE, 0>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S24BE: out = Run<TS24BE, 0>(in, dst, dstMax, src, n, drain); break;
  case KYSAMPLE_S32BE: out = Run<TS32BE, 0>(in, dst, dstMax, src, n, drain); break;
  default: return 0;
  }
  if (filter && !before) AntiAlias(in, type, dstV, in->channels, out);
  return out;
}

} // namespace ky::resample
