// Channel operations (routing, change of channel count, extraction, fold-down), silence,
// gain, the flush cross-fade, peak scanning and reversal.
#include "audio_internal.h"
#include "convert_variants.h"
#include "pair_ops.h"

#include <string.h>

namespace ky::audio {

namespace {

// ---- routing: one channel converted at unity gain ----
template <class D, class S>
void WINAPI RouteFn(void *dstv, LONG dstChannels, const void *srcv, LONG srcChannels,
                    LONG frames) {
  if (frames <= 0 || !dstv || !srcv) return;
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  const LONG ds = (dstChannels > 0 ? dstChannels : 1) * D::kBytes;
  const LONG ss = (srcChannels > 0 ? srcChannels : 1) * S::kBytes;
  for (LONG i = 0; i < frames; ++i) UnityOne<D, S>(d + i * ds, s + i * ss);
}

template <class F> auto WithType(KYSAMPLETYPE t, F f) {
  switch (t) {
  case KYSAMPLE_S16BE: return f(TS16BE{});
  case KYSAMPLE_S24BE: return f(TS24BE{});
  case KYSAMPLE_S32BE: return f(TS32BE{});
  default: return WithMixType(t, f);
  }
}

bool IsType(KYSAMPLETYPE t) { return BytesOf(t) != 0; }

// The routers exist for exactly the pairs that have converters.
KYAUDIOROUTEFUNC RouterFor(KYSAMPLETYPE dt, KYSAMPLETYPE st) {
  if (!IsType(dt) || !IsType(st) || !PlainConverter(dt, st)) return nullptr;
  return WithType(dt, [st](auto dd) {
    return WithType(st, [](auto ss) -> KYAUDIOROUTEFUNC {
      return &RouteFn<decltype(dd), decltype(ss)>;
    });
  });
}

// ---- fold-down to mono ----
// Every source channel of a frame summed, not divided by the count: a fold-down is
// deliberately louder than its parts.
HRESULT FoldToMono(void *dstv, const void *srcv, KYSAMPLETYPE t, LONG channels, LONG frames) {
  auto *d = static_cast<uint8_t *>(dstv);
  auto *s = static_cast<const uint8_t *>(srcv);
  switch (t) {
  case KYSAMPLE_U8:
    // Summed as 16-bit values, so clipping happens at 16-bit full scale.
    for (LONG i = 0; i < frames; ++i) {
      int32_t sum = 0;
      for (LONG c = 0; c < channels; ++c) sum += int32_t(int8_t(s[i * channels + c] ^ 0x80)) * 256;
      sum = sum < -32768 ? -32768 : sum > 32767 ? 32767 : sum;
      d[i] = uint8_t((sum >> 8) ^ 0x80);
    }
    return S_OK;
  case KYSAMPLE_S16:
    for (LONG i = 0; i < frames; ++i) {
      int32_t sum = 0;
      for (LONG c = 0; c < channels; ++c) sum += TS16::Value(s + (i * channels + c) * 2);
      TS16::StoreValue(d + i * 2, sum < -32768 ? -32768 : sum > 32767 ? 32767 : sum);
    }
    return S_OK;
  case KYSAMPLE_S24:
    for (LONG i = 0; i < frames; ++i) {
      double sum = 0.0;
      for (LONG c = 0; c < channels; ++c)
        sum += double(TS24::Top(s + (i * channels + c) * 3)) * (1.0 / 2147483648.0);
      TS24::StoreValue(d + i * 3, TruncClamp(sum * 8388608.0, -8388608.0, 8388607.0));
    }
    return S_OK;
  case KYSAMPLE_F32:
    for (LONG i = 0; i < frames; ++i) {
      float sum = 0.0f;
      for (LONG c = 0; c < channels; ++c) sum += TF32::Load(s + (i * channels + c) * 4);
      TF32::Store(d + i * 4, sum);
    }
    return S_OK;
  default:
    return E_FAIL;
  }
}

// ---- peaks ----
template <class T> void WINAPI PeaksFn(const void *datav, LONG channels, LONG frames, DWORD *peaks) {
  if (!datav || !peaks || channels <= 0) return;
  for (LONG c = 0; c < channels; ++c) peaks[c] = 0;
  if (frames <= 0) return;
  auto *p = static_cast<const uint8_t *>(datav);
  if constexpr (T::kFloat) {
    // Magnitudes compared as doubles, reported as a float's bits (NaN samples are skipped).
    for (LONG c = 0; c < channels; ++c) {
      double best = 0.0;
      for (LONG i = 0; i < frames; ++i) {
        double v = double(T::Load(p + (i * channels + c) * T::kBytes));
        if (v < 0) v = -v;
        if (v > best) best = v;
      }
      const float f = float(best);
      memcpy(&peaks[c], &f, 4);
    }
  } else {
    for (LONG c = 0; c < channels; ++c) {
      uint32_t best = 0;
      for (LONG i = 0; i < frames; ++i) {
        const int32_t v = T::Value(p + (i * channels + c) * T::kBytes);
        const uint32_t a = v < 0 ? 0u - uint32_t(v) : uint32_t(v);
        if (a > best) best = a;
      }
      peaks[c] = best;
    }
  }
}

KYAUDIOPEAKSFUNC PeaksFor(KYSAMPLETYPE t) {
  if (!HasMixer(t)) return nullptr;
  return WithMixType(t, [](auto tt) -> KYAUDIOPEAKSFUNC { return &PeaksFn<decltype(tt)>; });
}

// Fill byte of silence for a format; -1 for a format whose tag is not supported, -2 for an
// extensible format that is not PCM (silently left alone).
int SilenceByte(const WAVEFORMATEX *f) {
  switch (f->wFormatTag) {
  case WAVE_FORMAT_PCM:
  case KYWAVE_FORMAT_BIGENDIAN:
    return f->wBitsPerSample == 8 ? 0x80 : 0;
  case WAVE_FORMAT_EXTENSIBLE:
    if (!IsPcmSubFormat(f)) return -2;
    return f->wBitsPerSample == 8 ? 0x80 : 0;
  case WAVE_FORMAT_IEEE_FLOAT:
  case KYWAVE_FORMAT_UNPACKED:
  case KYWAVE_FORMAT_SIGNED:
    return 0;
  default:
    return -1;
  }
}

bool SizeFits(LONGLONG bytes) { return bytes >= 0 && bytes <= 0x7FFFFFFF; }

} // namespace

} // namespace ky::audio

using namespace ky::audio;

extern "C" KYAUDIOROUTEFUNC WINAPI KyAudio_GetCopyChannelsFunction(const WAVEFORMATEX *dstFormat,
                                                                   const WAVEFORMATEX *srcFormat) {
  return RouterFor(Classify(dstFormat), Classify(srcFormat));
}

extern "C" HRESULT WINAPI KyAudio_CopyChannels(const WAVEFORMATEX *dstFormat, void *dst,
                                               const WAVEFORMATEX *srcFormat, const void *src,
                                               LONG frames, const LONG *map) {
  if (frames == 0) return S_OK;
  if (!dstFormat || !srcFormat) return E_NOTIMPL;
  if (!map || dstFormat->nChannels == srcFormat->nChannels)
    return KyAudio_Copy(dstFormat, dst, srcFormat, src, frames, 0x3F800000);
  const KYSAMPLETYPE dt = Classify(dstFormat), st = Classify(srcFormat);
  KYAUDIOROUTEFUNC f = RouterFor(dt, st);
  if (!f) return E_NOTIMPL;
  if (frames < 0) return E_FAIL;
  if (!dst || !src) return E_POINTER;
  const LONG dch = dstFormat->nChannels, sch = srcFormat->nChannels;
  ForEachMappedChannel(dstFormat, dst, srcFormat, src, map,
                       [&](uint8_t *d, const uint8_t *s, LONG) { f(d, dch, s, sch, frames); });
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_ChannelChange(void *dst, LONG dstChannels, const void *src,
                                                const WAVEFORMATEX *srcFormat, LONG frames) {
  if (!srcFormat) return E_FAIL; // no format: unsupported
  const LONG sch = srcFormat->nChannels;
  if (dstChannels == sch)
    return KyAudio_Copy(srcFormat, dst, srcFormat, src, frames, 0x3F800000);
  const KYSAMPLETYPE t = Classify(srcFormat);
  if (dstChannels <= 0 || sch <= 0 || t == KYSAMPLE_UNKNOWN) return E_FAIL;
  if (dstChannels < sch) {
    if (dstChannels != 1) return E_FAIL;
    if (t != KYSAMPLE_U8 && t != KYSAMPLE_S16 && t != KYSAMPLE_S24 && t != KYSAMPLE_F32)
      return E_FAIL;
    if (frames <= 0) return frames == 0 ? S_OK : E_FAIL;
    if (!dst || !src) return E_POINTER;
    if (!SizeFits(LONGLONG(frames) * sch * BytesOf(t))) return E_FAIL;
    return FoldToMono(dst, src, t, sch, frames);
  }
  if (sch != 1) return E_FAIL;
  if (frames <= 0) return frames == 0 ? S_OK : E_FAIL;
  if (!dst || !src) return E_POINTER;
  const LONG b = BytesOf(t);
  if (!SizeFits(LONGLONG(frames) * dstChannels * b)) return E_FAIL;
  // Backwards, so that a mono buffer can be expanded where it lies.
  auto *d = static_cast<uint8_t *>(dst);
  auto *s = static_cast<const uint8_t *>(src);
  uint8_t sample[8];
  for (LONG i = frames; i-- > 0;) {
    memcpy(sample, s + i * b, b);
    uint8_t *out = d + LONGLONG(i) * dstChannels * b;
    for (LONG c = 0; c < dstChannels; ++c) memcpy(out + c * b, sample, b);
  }
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_ExtractChannel(void *dst, LONG channel, const void *src,
                                                 const WAVEFORMATEX *srcFormat, LONG frames) {
  if (!srcFormat) return E_FAIL; // no format: unsupported
  const KYSAMPLETYPE t = Classify(srcFormat);
  if (t == KYSAMPLE_UNKNOWN || channel < 0 || channel >= srcFormat->nChannels) return E_FAIL;
  if (frames <= 0) return frames == 0 ? S_OK : E_FAIL;
  if (!dst || !src) return E_POINTER;
  const LONG b = BytesOf(t), stride = b * srcFormat->nChannels;
  auto *d = static_cast<uint8_t *>(dst);
  auto *s = static_cast<const uint8_t *>(src) + channel * b;
  for (LONG i = 0; i < frames; ++i) memmove(d + i * b, s + LONGLONG(i) * stride, b);
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_MonoChannel(void *dst, const void *src,
                                              const WAVEFORMATEX *srcFormat, LONG frames) {
  return KyAudio_ChannelChange(dst, 1, src, srcFormat, frames);
}

extern "C" HRESULT WINAPI KyAudio_FillSilence(const WAVEFORMATEX *format, void *data,
                                              LONG frames) {
  if (!format) return E_FAIL; // no format: unsupported
  const int fill = SilenceByte(format);
  if (fill == -1) return E_FAIL;
  if (fill == -2) return S_OK; // extensible but not PCM: deliberately not an error
  const LONGLONG bytes = LONGLONG(format->nBlockAlign) * frames;
  if (bytes == 0) return S_OK;
  if (!SizeFits(bytes)) return E_FAIL;
  if (!data) return E_POINTER;
  // A 32-bit word at a time, then the remaining 0-3 bytes.
  auto *p = static_cast<uint8_t *>(data);
  const uint32_t word = uint32_t(fill) * 0x01010101u;
  const LONGLONG words = bytes / 4;
  for (LONGLONG i = 0; i < words; ++i) memcpy(p + i * 4, &word, 4);
  for (LONGLONG i = words * 4; i < bytes; ++i) p[i] = uint8_t(fill);
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_FillSilenceChannel(const WAVEFORMATEX *format, void *data,
                                                     LONG channel, LONG frames) {
  if (!format) return E_FAIL; // no format: unsupported
  if (channel < 0 || channel >= format->nChannels) return E_FAIL;
  const int fill = SilenceByte(format);
  if (fill == -1) return E_FAIL;
  if (fill == -2) return S_OK;
  if (frames <= 0) return frames == 0 ? S_OK : E_FAIL;
  if (!data) return E_POINTER;
  // The sample size comes from the bits; the frame size from the block alignment, which
  // must hold every channel.
  const LONG b = (format->wBitsPerSample + 7) / 8;
  const LONG stride = format->nBlockAlign;
  if (b <= 0 || LONGLONG(b) * format->nChannels > stride) return E_FAIL;
  auto *p = static_cast<uint8_t *>(data) + channel * b;
  for (LONG i = 0; i < frames; ++i) memset(p + LONGLONG(i) * stride, fill, b);
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_SetGain(void *data, const WAVEFORMATEX *format, LONG frames,
                                          const double *gains) {
  const KYSAMPLETYPE t = Classify(format);
  if (t != KYSAMPLE_F32 && t != KYSAMPLE_F64) return E_FAIL;
  if (frames < 1) return S_OK;
  if (!data || !gains) return E_POINTER;
  const LONG ch = format->nChannels;
  if (ch <= 0) return E_FAIL;
  const LONGLONG n = LONGLONG(frames) * ch;
  if (t == KYSAMPLE_F32) {
    auto *p = static_cast<float *>(data);
    LONG c = 0;
    for (LONGLONG i = 0; i < n; ++i) {
      p[i] = float(double(p[i]) * gains[c]);
      if (++c == ch) c = 0;
    }
  } else {
    auto *p = static_cast<double *>(data);
    LONG c = 0;
    for (LONGLONG i = 0; i < n; ++i) {
      p[i] *= gains[c];
      if (++c == ch) c = 0;
    }
  }
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_DoFlushFade(void *dst, const void *src,
                                              const WAVEFORMATEX *format, LONG frames) {
  const KYSAMPLETYPE t = Classify(format);
  if (t == KYSAMPLE_F64) return S_OK; // nothing to do for double buffers
  if (t != KYSAMPLE_F32) return E_FAIL;
  if (frames <= 0) return S_OK;
  if (!dst || !src) return E_POINTER;
  // Always two channels per frame, whatever the format says: the stream being flushed is
  // the stereo mix bus.
  auto *d = static_cast<float *>(dst);
  auto *s = static_cast<const float *>(src);
  const double n = frames;
  for (LONG i = 0; i < frames; ++i) {
    const double a = double(i) / n, b = double(frames - i) / n;
    for (int c = 0; c < 2; ++c) d[2 * i + c] = float(b * s[2 * i + c] + a * d[2 * i + c]);
  }
  return S_OK;
}

extern "C" KYAUDIOPEAKSFUNC WINAPI KyAudio_GetFindPeaksFunction(const WAVEFORMATEX *format) {
  return PeaksFor(Classify(format));
}

extern "C" HRESULT WINAPI KyAudio_FindPeaks(const WAVEFORMATEX *format, const void *data,
                                            LONG frames, DWORD *peaks) {
  KYAUDIOPEAKSFUNC f = PeaksFor(Classify(format));
  if (!f) return E_NOTIMPL;
  if (format->nChannels == 0 || frames < 0) return E_FAIL;
  if (!peaks || (frames > 0 && !data)) return E_POINTER;
  f(data, format->nChannels, frames, peaks);
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_Reverse(const WAVEFORMATEX *format, void *dst, const void *src,
                                          LONG frames) {
  const KYSAMPLETYPE t = Classify(format);
  if (t == KYSAMPLE_UNKNOWN || format->nChannels == 0) return E_FAIL;
  if (frames <= 0) return frames == 0 ? S_OK : E_FAIL;
  if (!dst || !src) return E_POINTER;
  const LONG fb = BytesOf(t) * format->nChannels;
  auto *d = static_cast<uint8_t *>(dst);
  auto *s = static_cast<const uint8_t *>(src);
  if (d == s) {
    // Swap frames from both ends towards the middle.
    uint8_t tmp[8 * 64];
    for (LONG i = 0, j = frames - 1; i < j; ++i, --j) {
      uint8_t *a = d + LONGLONG(i) * fb, *b = d + LONGLONG(j) * fb;
      for (LONG o = 0; o < fb; o += LONG(sizeof tmp)) {
        const LONG k = fb - o < LONG(sizeof tmp) ? fb - o : LONG(sizeof tmp);
        memcpy(tmp, a + o, k);
        memcpy(a + o, b + o, k);
        memcpy(b + o, tmp, k);
      }
    }
  } else {
    for (LONG i = 0; i < frames; ++i)
      memcpy(d + LONGLONG(i) * fb, s + LONGLONG(frames - 1 - i) * fb, fb);
  }
  return S_OK;
}
