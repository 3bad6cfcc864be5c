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

namespace ky::resample {
namespace {

inline double Clamp(double v, double lo, double hi) { return v < lo ? lo : (v > hi ? hi : v); }

inline LONG Le24(const BYTE *p) {
  return static_cast<LONG>(static_cast<DWORD>(p[0]) << 8 | static_cast<DWORD>(p[1]) << 16 |
                           static_cast<DWORD>(p[2]) << 24) >> 8;
}
inline LONG Be24(const BYTE *p) {
  return static_cast<LONG>(static_cast<DWORD>(p[2]) << 8 | static_cast<DWORD>(p[1]) << 16 |
                           static_cast<DWORD>(p[0]) << 24) >> 8;
}
inline DWORD Le32(const BYTE *p) {
  DWORD v;
  memcpy(&v, p, 4);
  return v;
}
inline void PutLe32(BYTE *p, DWORD v) { memcpy(p, &v, 4); }

// Load: a sample as a double in the type's own units; Store: truncate, clamp and write.
template <LONG Type> struct Traits;

template <> struct Traits<kU8> {
  static constexpr int kBytes = 1;
  static double Load(const BYTE *p) { return static_cast<double>(static_cast<int>(*p) - 128); }
  static void Store(BYTE *p, double v) {
    *p = static_cast<BYTE>(static_cast<int>(Clamp(v, -128.0, 127.0)) ^ 0x80);
  }
};
template <> struct Traits<kS8> {
  static constexpr int kBytes = 1;
  static double Load(const BYTE *p) { return static_cast<double>(static_cast<signed char>(*p)); }
  static void Store(BYTE *p, double v) {
    *p = static_cast<BYTE>(static_cast<int>(Clamp(v, -128.0, 127.0)));
  }
};
template <> struct Traits<kS16> {
  static constexpr int kBytes = 2;
  static double Load(const BYTE *p) {
    short s;
    memcpy(&s, p, 2);
    return s;
  }
  static void Store(BYTE *p, double v) {
    const short s = static_cast<short>(Clamp(v, -32768.0, 32767.0));
    memcpy(p, &s, 2);
  }
};
template <> struct Traits<kS16be> {
  static constexpr int kBytes = 2;
  static double Load(const BYTE *p) { return static_cast<short>(p[0] << 8 | p[1]); }
  static void Store(BYTE *p, double v) {
    const int s = static_cast<int>(Clamp(v, -32768.0, 32767.0));
    p[0] = static_cast<BYTE>(s >> 8);
    p[1] = static_cast<BYTE>(s);
  }
};
template <> struct Traits<kS24> {
  static constexpr int kBytes = 3;
  static double Load(const BYTE *p) { return Le24(p); }
  static void Store(BYTE *p, double v) {
    const int s = static_cast<int>(Clamp(v, -8388608.0, 8388607.0));
    p[0] = static_cast<BYTE>(s);
    p[1] = static_cast<BYTE>(s >> 8);
    p[2] = static_cast<BYTE>(s >> 16);
  }
};
template <> struct Traits<kS24be> {
  static constexpr int kBytes = 3;
  static double Load(const BYTE *p) { return Be24(p); }
  static void Store(BYTE *p, double v) {
    const int s = static_cast<int>(Clamp(v, -8388608.0, 8388607.0));
    p[0] = static_cast<BYTE>(s >> 16);
    p[1] = static_cast<BYTE>(s >> 8);
    p[2] = static_cast<BYTE>(s);
  }
};
template <> struct Traits<kS32> {
  static constexpr int kBytes = 4;
  static double Load(const BYTE *p) { return static_cast<LONG>(Le32(p)); }
  static void Store(BYTE *p, double v) {
    PutLe32(p, static_cast<DWORD>(static_cast<LONG>(Clamp(v, -2147483648.0, 2147483647.0))));
  }
};
template <> struct Traits<kS32be> {
  static constexpr int kBytes = 4;
  static double Load(const BYTE *p) { return static_cast<LONG>(_byteswap_ulong(Le32(p))); }
  static void Store(BYTE *p, double v) {
    const LONG s = static_cast<LONG>(Clamp(v, -2147483648.0, 2147483647.0));
    PutLe32(p, _byteswap_ulong(static_cast<DWORD>(s)));
  }
};
template <> struct Traits<kS24in32> {
  static constexpr int kBytes = 4;
  static double Load(const BYTE *p) { return static_cast<LONG>(Le32(p) << 8) >> 8; }
  static void Store(BYTE *p, double v) {
    PutLe32(p, static_cast<DWORD>(static_cast<LONG>(Clamp(v, -8388608.0, 8388607.0))));
  }
};
template <> struct Traits<kF32> {
  static constexpr int kBytes = 4;
  static double Load(const BYTE *p) {
    float f;
    memcpy(&f, p, 4);
    return f;
  }
  static void Store(BYTE *p, double v) {
    const float f = static_cast<float>(v);
    memcpy(p, &f, 4);
  }
};
template <> struct Traits<kF64> {
  static constexpr int kBytes = 8;
  static double Load(const BYTE *p) {
    double d;
    memcpy(&d, p, 8);
    return d;
  }
  static void Store(BYTE *p, double v) { memcpy(p, &v, 8); }
};

// The loop for one type; CH is the channel count when it is known at compile time (the
// specialised mono and stereo loops), 0 for the general loop.
template <LONG Type, int CH>
LONG Run(tKYRESAMPLEINSTANCE *in, BYTE *dst, LONG dstMax, const BYTE *src, LONG n,
         bool drain) {
  using Tr = Traits<Type>;
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

template <LONG Type>
LONG Specialised(tKYRESAMPLEINSTANCE *in, BYTE *dst, LONG dstMax, const BYTE *src, LONG n,
                 bool drain) {
  switch (in->channels) {
  case 1: return Run<Type, 1>(in, dst, dstMax, src, n, drain);
  case 2: return Run<Type, 2>(in, dst, dstMax, src, n, drain);
  default: return Run<Type, 0>(in, dst, dstMax, src, n, drain);
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
  case kU8: out = Specialised<kU8>(in, dst, dstMax, src, n, drain); break;
  case kS16: out = Specialised<kS16>(in, dst, dstMax, src, n, drain); break;
  case kS24: out = Specialised<kS24>(in, dst, dstMax, src, n, drain); break;
  case kS32: out = Specialised<kS32>(in, dst, dstMax, src, n, drain); break;
  case kF32: out = Specialised<kF32>(in, dst, dstMax, src, n, drain); break;
  case kF64: out = Specialised<kF64>(in, dst, dstMax, src, n, drain); break;
  case kS24in32: out = Specialised<kS24in32>(in, dst, dstMax, src, n, drain); break;
  // ...and the general loop for the rest.
  case kS8: out = Run<kS8, 0>(in, dst, dstMax, src, n, drain); break;
  case kS16be: out = Run<kS16be, 0>(in, dst, dstMax, src, n, drain); break;
  case kS24be: out = Run<kS24be, 0>(in, dst, dstMax, src, n, drain); break;
  case kS32be: out = Run<kS32be, 0>(in, dst, dstMax, src, n, drain); break;
  default: return 0;
  }
  if (filter && !before) AntiAlias(in, type, dstV, in->channels, out);
  return out;
}

} // namespace ky::resample
