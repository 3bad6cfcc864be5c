// Per-sample operations of one (destination, source) type pair, shared by the mixers and
// channel routers. They follow the converters' rules (convert.cpp): a routed sample is
// exactly what KyAudio_Copy at unity gain would write, and a mixer adds to the destination
// exactly what a converter with that gain would have written into silence.
#pragma once

#include <type_traits>
#include "sample_io.h"

namespace ky::audio {

// The source sample converted at unity gain.
template <class D, class S> inline void UnityOne(uint8_t *p, const uint8_t *q) {
  if constexpr (!S::kFloat && !D::kFloat) {
    D::StoreTop(p, S::Top(q));
  } else if constexpr (!S::kFloat) {
    using V = decltype(D::Load(p));
    D::Store(p, V(S::Value(q)) * V(1.0 / FullScale<S>()));
  } else if constexpr (!D::kFloat) {
    StoreClamped<D>(p, double(S::Load(q)) * FullScale<D>());
  } else {
    D::Store(p, static_cast<decltype(D::Load(p))>(S::Load(q)));
  }
}

// Source sample in the units of an integer destination: unity gain follows the converters'
// shift rule; otherwise value x gain is formed in double, truncated and clamped.
template <class D, class S> inline int32_t IntTermUnity(const uint8_t *q) {
  if constexpr (!S::kFloat) {
    return S::Top(q) >> (32 - D::kBits);
  } else {
    return TruncClamp(double(S::Load(q)) * FullScale<D>(), MinValue<D>(), MaxValue<D>());
  }
}
// The factor that turns a source value into destination units for a gain.
template <class D, class S> inline double IntFactor(double gain) {
  if constexpr (!S::kFloat)
    return gain * (FullScale<D>() / FullScale<S>());
  else
    return gain * FullScale<D>();
}
template <class S> inline double SourceValue(const uint8_t *q) {
  if constexpr (!S::kFloat)
    return double(S::Value(q));
  else
    return double(S::Load(q));
}
template <class D> inline void AddClamped(uint8_t *p, int32_t term) {
  const int64_t sum = int64_t(D::Value(p)) + term;
  const int64_t lo = int64_t(MinValue<D>()), hi = int64_t(MaxValue<D>());
  D::StoreValue(p, int32_t(sum < lo ? lo : sum > hi ? hi : sum));
}

// Float destinations: the per-channel factor that multiplies the source value (the gain
// times the source's full-scale factor, in the destination's precision).
template <class D, class S> inline auto FloatFactor(double gain) {
  using V = decltype(D::Load(nullptr));
  if constexpr (!S::kFloat)
    return V(gain * (1.0 / FullScale<S>()));
  else
    return V(gain);
}
template <class D, class S> inline auto FloatValue(const uint8_t *q) {
  using V = decltype(D::Load(nullptr));
  if constexpr (!S::kFloat)
    return V(S::Value(q));
  else
    return V(S::Load(q));
}

// Adds gain x source to one destination sample (the general rule of every mixer except
// 16-bit into 16-bit).
template <class D, class S, class F> inline void MixOne(uint8_t *p, const uint8_t *q, F factor) {
  if constexpr (D::kFloat) {
    D::Store(p, D::Load(p) + FloatValue<D, S>(q) * factor);
  } else if constexpr (!S::kFloat) {
    // A channel whose gain is exactly 1.0 takes the unity rule even when its neighbours have
    // other gains, so a channel's result never depends on another channel's gain.
    if (factor == IntFactor<D, S>(1.0))
      AddClamped<D>(p, IntTermUnity<D, S>(q));
    else
      AddClamped<D>(p, TruncClamp(SourceValue<S>(q) * factor, MinValue<D>(), MaxValue<D>()));
  } else {
    AddClamped<D>(p, TruncClamp(SourceValue<S>(q) * factor, MinValue<D>(), MaxValue<D>()));
  }
}
template <class D, class S> inline auto MixFactor(double gain) {
  if constexpr (D::kFloat)
    return FloatFactor<D, S>(gain);
  else
    return IntFactor<D, S>(gain);
}
template <class D, class S> inline void MixOneUnity(uint8_t *p, const uint8_t *q) {
  if constexpr (D::kFloat) {
    D::Store(p, D::Load(p) + FloatValue<D, S>(q) * FloatFactor<D, S>(1.0));
  } else {
    AddClamped<D>(p, IntTermUnity<D, S>(q));
  }
}

// Calls F with each type of the eight that have mixers, by type value.
template <class F> inline auto WithMixType(KYSAMPLETYPE t, F f) {
  switch (t) {
  case KYSAMPLE_U8: return f(TU8{});
  case KYSAMPLE_S16: return f(TS16{});
  case KYSAMPLE_S24: return f(TS24{});
  case KYSAMPLE_S32: return f(TS32{});
  case KYSAMPLE_F32: return f(TF32{});
  case KYSAMPLE_F64: return f(TF64{});
  case KYSAMPLE_S24IN32: return f(TS24IN32{});
  default: return f(TS8{});
  }
}
inline bool HasMixer(KYSAMPLETYPE t) {
  return (t >= KYSAMPLE_U8 && t <= KYSAMPLE_S32) || t == KYSAMPLE_F32 || t == KYSAMPLE_F64 ||
         t == KYSAMPLE_S24IN32 || t == KYSAMPLE_S8;
}

} // namespace ky::audio
