// Mixers: a source buffer added into a destination buffer with per-channel gains, with a
// gain envelope, or channel by channel through a map. Types 16 to 49 (the big-endian types
// have no mixers).
#include "audio_internal.h"
#include "convert_variants.h"
#include "pair_ops.h"

namespace ky::audio {

namespace {

constexpr LONG kStackChannels = 32;

// Processor level for the mixers' SSE2 loops (a test seam can lower it).
int g_mixLevel = CpuLevel(5);

bool AllUnity(const double *gains, LONG channels) {
  if (!gains) return true;
  for (LONG c = 0; c < channels; ++c)
    if (gains[c] != 1.0) return false;
  return true;
}

// 16-bit into 16-bit uses gains[0] for every channel (deliberately not cycled): the scaled
// source is truncated and clamped to 16 bits before the addition, and the sum clamped.
void WINAPI MixS16S16(void *dstv, const void *srcv, LONG n, LONG, const double *gains) {
  if (n <= 0 || !dstv || !srcv || dstv == srcv) return;
  auto *d = static_cast<int16_t *>(dstv);
  auto *s = static_cast<const int16_t *>(srcv);
  const double g = gains ? gains[0] : 1.0;
  if (g_mixLevel >= 2) {
    MixS16S16Sse2(d, s, n, g);
    return;
  }
  if (g == 1.0) {
    for (LONG i = 0; i < n; ++i) {
      const int32_t sum = int32_t(d[i]) + s[i];
      d[i] = int16_t(sum < -32768 ? -32768 : sum > 32767 ? 32767 : sum);
    }
  } else {
    for (LONG i = 0; i < n; ++i) {
      const int32_t t = TruncClamp(double(s[i]) * g, -32768.0, 32767.0);
      const int32_t sum = int32_t(d[i]) + t;
      d[i] = int16_t(sum < -32768 ? -32768 : sum > 32767 ? 32767 : sum);
    }
  }
}

template <class D, class S>
void WINAPI MixFn(void *dstv, const void *srcv, LONG n, LONG channels, const double *gains) {
  if (n <= 0 || !dstv || !srcv || dstv == srcv) return;
  if (channels <= 0) channels = 1;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  if constexpr (std::is_same_v<D, TF32> && (std::is_same_v<S, TS16> || std::is_same_v<S, TF32>)) {
    // The mix bus's common case: SSE2 when the channel gains fill four lanes evenly. The
    // lanes do the scalar loop's float multiply and add, so the results are identical.
    if ((channels == 1 || channels == 2 || channels == 4) && g_mixLevel >= 2) {
      float f[4];
      for (int k = 0; k < 4; ++k) f[k] = MixFactor<D, S>(gains ? gains[k % channels] : 1.0);
      if constexpr (std::is_same_v<S, TS16>)
        MixF32S16Sse2(reinterpret_cast<float *>(d), reinterpret_cast<const int16_t *>(s), n, f);
      else
        MixF32F32Sse2(reinterpret_cast<float *>(d), reinterpret_cast<const float *>(s), n, f);
      return;
    }
  }
  if (AllUnity(gains, channels)) {
    for (LONG i = 0; i < n; ++i) MixOneUnity<D, S>(d + i * D::kBytes, s + i * S::kBytes);
    return;
  }
  using Factor = decltype(MixFactor<D, S>(1.0));
  if (channels == 1) {
    const Factor f = MixFactor<D, S>(gains[0]);
    for (LONG i = 0; i < n; ++i) MixOne<D, S>(d + i * D::kBytes, s + i * S::kBytes, f);
  } else if (channels <= kStackChannels) {
    Factor f[kStackChannels];
    for (LONG c = 0; c < channels; ++c) f[c] = MixFactor<D, S>(gains[c]);
    LONG c = 0;
    for (LONG i = 0; i < n; ++i) {
      MixOne<D, S>(d + i * D::kBytes, s + i * S::kBytes, f[c]);
      if (++c == channels) c = 0;
    }
  } else {
    LONG c = 0;
    for (LONG i = 0; i < n; ++i) {
      MixOne<D, S>(d + i * D::kBytes, s + i * S::kBytes, MixFactor<D, S>(gains[c]));
      if (++c == channels) c = 0;
    }
  }
}

// The envelope's value times a raw source sample is a float-scale sample for types 16 to
// 19 (the cook folded their full-scale factor into the levels); the other integer types are
// scaled here, and float samples are already at full scale.
template <class S> constexpr double kEnvelopeExtra =
    S::kFloat || S::kType <= KYSAMPLE_S32 ? 1.0 : 1.0 / FullScale<S>();

template <class D, class S>
inline void MixEnvelopeOne(uint8_t *p, const uint8_t *q, double gain) {
  const double x = SourceValue<S>(q) * gain;
  if constexpr (D::kFloat) {
    using V = decltype(D::Load(nullptr));
    D::Store(p, D::Load(p) + V(x));
  } else {
    AddClamped<D>(p, TruncClamp(x * FullScale<D>(), MinValue<D>(), MaxValue<D>()));
  }
}

template <class D, class S>
void WINAPI MixExFn(void *dstv, const void *srcv, LONG n, LONG channels, tKYASRCOOKED *env) {
  if (n <= 0 || !dstv || !srcv || !env || dstv == srcv) return;
  if (channels <= 0) channels = 1;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG frames = n / channels;
  if (env->remaining <= 0) ReCook(env, env->position);
  for (LONG f = 0; f < frames; ++f) {
    const double g = env->value * kEnvelopeExtra<S>;
    for (LONG c = 0; c < channels; ++c, d += D::kBytes, s += S::kBytes)
      MixEnvelopeOne<D, S>(d, s, g);
    AdvanceEnvelope(env);
  }
  // A partial last frame takes the current gain; the envelope advances by whole frames.
  const double g = env->value * kEnvelopeExtra<S>;
  for (LONG i = frames * channels; i < n; ++i, d += D::kBytes, s += S::kBytes)
    MixEnvelopeOne<D, S>(d, s, g);
}

template <class D, class S>
void WINAPI MixChannelFn(void *dstv, LONG dstChannels, const void *srcv, LONG srcChannels,
                         LONG frames, double gain) {
  if (frames <= 0 || !dstv || !srcv || dstv == srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG ds = (dstChannels > 0 ? dstChannels : 1) * D::kBytes;
  const LONG ss = (srcChannels > 0 ? srcChannels : 1) * S::kBytes;
  if constexpr (std::is_same_v<D, TS16> && std::is_same_v<S, TS16>) {
    if (gain != 1.0) {
      for (LONG i = 0; i < frames; ++i)
        AddClamped<D>(d + i * ds, TruncClamp(double(S::Value(s + i * ss)) * gain, -32768.0,
                                             32767.0));
      return;
    }
  }
  if (gain == 1.0) {
    for (LONG i = 0; i < frames; ++i) MixOneUnity<D, S>(d + i * ds, s + i * ss);
  } else {
    const auto f = MixFactor<D, S>(gain);
    for (LONG i = 0; i < frames; ++i) MixOne<D, S>(d + i * ds, s + i * ss, f);
  }
}

KYAUDIOMIXFUNC MixerFor(KYSAMPLETYPE dt, KYSAMPLETYPE st) {
  if (!HasMixer(dt) || !HasMixer(st)) return nullptr;
  if (dt == KYSAMPLE_S16 && st == KYSAMPLE_S16) return MixS16S16;
  return WithMixType(dt, [st](auto dd) {
    return WithMixType(st, [](auto ss) -> KYAUDIOMIXFUNC {
      return &MixFn<decltype(dd), decltype(ss)>;
    });
  });
}

KYAUDIOMIXEXFUNC MixExFor(KYSAMPLETYPE dt, KYSAMPLETYPE st) {
  if (!HasMixer(dt) || !HasMixer(st)) return nullptr;
  return WithMixType(dt, [st](auto dd) {
    return WithMixType(st, [](auto ss) -> KYAUDIOMIXEXFUNC {
      return &MixExFn<decltype(dd), decltype(ss)>;
    });
  });
}

KYAUDIOMIXCHANNELFUNC MixChannelFor(KYSAMPLETYPE dt, KYSAMPLETYPE st) {
  if (!HasMixer(dt) || !HasMixer(st)) return nullptr;
  return WithMixType(dt, [st](auto dd) {
    return WithMixType(st, [](auto ss) -> KYAUDIOMIXCHANNELFUNC {
      return &MixChannelFn<decltype(dd), decltype(ss)>;
    });
  });
}

// Checks shared by the one-shot mixers; S_FALSE means "nothing to do, report success".
HRESULT MixArgs(const WAVEFORMATEX *df, void *dst, const WAVEFORMATEX *sf, const void *src,
                LONG frames, bool sameChannels) {
  if (frames == 0) return S_FALSE;
  if (!df || !sf) return E_NOTIMPL;
  if (frames < 0 || sf->nChannels == 0) return E_FAIL;
  if (sameChannels && df->nChannels != sf->nChannels) return E_FAIL;
  if (!dst || !src) return E_POINTER;
  if (LONGLONG(frames) * sf->nChannels > 0x7FFFFFFF) return E_FAIL;
  return S_OK;
}

// The one-shot mixers: look the mixer up, check the arguments, mix frames x channels.
template <class Lookup, class Extra>
HRESULT RunMixer(Lookup lookup, const WAVEFORMATEX *df, void *dst, const WAVEFORMATEX *sf,
                 const void *src, LONG frames, Extra extra) {
  if (frames == 0) return S_OK;
  auto f = lookup(Classify(df), Classify(sf));
  if (!f) return E_NOTIMPL;
  const HRESULT hr = MixArgs(df, dst, sf, src, frames, true);
  if (hr != S_OK) return hr == S_FALSE ? S_OK : hr;
  if (!extra) return E_POINTER;
  f(dst, src, frames * sf->nChannels, sf->nChannels, extra);
  return S_OK;
}

} // namespace

} // namespace ky::audio

using namespace ky::audio;

// Test seam: sets the processor level the mixers choose their loops by (negative: the
// processor's own); returns the previous level.
extern "C" LONG WINAPI KyInternal_AudioSetMixLevel(LONG level) {
  const LONG old = g_mixLevel;
  g_mixLevel = level < 0 ? CpuLevel(5) : int(level);
  return old;
}

extern "C" KYAUDIOMIXFUNC WINAPI KyAudio_GetMixFunction(const WAVEFORMATEX *dstFormat,
                                                        const WAVEFORMATEX *srcFormat) {
  return MixerFor(Classify(dstFormat), Classify(srcFormat));
}

extern "C" HRESULT WINAPI KyAudio_Mix(const WAVEFORMATEX *dstFormat, void *dst,
                                      const WAVEFORMATEX *srcFormat, const void *src,
                                      LONG frames, const double *gains) {
  return RunMixer(MixerFor, dstFormat, dst, srcFormat, src, frames, gains);
}

extern "C" KYAUDIOMIXEXFUNC WINAPI KyAudio_GetMixExFunction(const WAVEFORMATEX *dstFormat,
                                                            const WAVEFORMATEX *srcFormat) {
  return MixExFor(Classify(dstFormat), Classify(srcFormat));
}

extern "C" HRESULT WINAPI KyAudio_MixEx(const WAVEFORMATEX *dstFormat, void *dst,
                                        const WAVEFORMATEX *srcFormat, const void *src,
                                        LONG frames, tKYASRCOOKED *envelope) {
  return RunMixer(MixExFor, dstFormat, dst, srcFormat, src, frames, envelope);
}

extern "C" KYAUDIOMIXCHANNELFUNC WINAPI KyAudio_GetMixChannelsFunction(
    const WAVEFORMATEX *dstFormat, const WAVEFORMATEX *srcFormat) {
  return MixChannelFor(Classify(dstFormat), Classify(srcFormat));
}

extern "C" HRESULT WINAPI KyAudio_MixChannels(const WAVEFORMATEX *dstFormat, void *dst,
                                              const WAVEFORMATEX *srcFormat, const void *src,
                                              LONG frames, const double *gains,
                                              const LONG *map) {
  if (frames == 0) return S_OK;
  const KYSAMPLETYPE dt = Classify(dstFormat), st = Classify(srcFormat);
  KYAUDIOMIXCHANNELFUNC f = MixChannelFor(dt, st);
  if (!f) return E_NOTIMPL;
  if (!map || dstFormat->nChannels == srcFormat->nChannels)
    return KyAudio_Mix(dstFormat, dst, srcFormat, src, frames, gains);
  const HRESULT hr = MixArgs(dstFormat, dst, srcFormat, src, frames, false);
  if (hr != S_OK) return hr == S_FALSE ? S_OK : hr;
  if (!gains) return E_POINTER;
  const LONG dch = dstFormat->nChannels, sch = srcFormat->nChannels;
  ForEachMappedChannel(dstFormat, dst, srcFormat, src, map, [&](uint8_t *d, const uint8_t *s,
                                                                LONG i) {
    f(d, dch, s, sch, frames, gains[i]);
  });
  return S_OK;
}
