// The resampler's instances: open, reset, close, one block, the position mappings, and the
// one-shot converters. The engines live in resample_sinc.cpp and resample_linear.cpp.
#include <windows.h>
#include <math.h>
#include <stdlib.h>
#include <string.h>

#include "audio_internal.h"
#include "ky_internal.h"
#include "resample_internal.h"

namespace ky::resample {

int SampleBytes(LONG type) { return ky::audio::BytesOf(type); }

namespace {

// Ratios beyond these bounds are refused: they would overflow the frame counters of one
// block long before they made sense for audio.
constexpr double kMinRatio = 1.0 / 65536.0;
constexpr double kMaxRatio = 65536.0;

bool ValidRatio(double r) { return r >= kMinRatio && r <= kMaxRatio; }

tKYRESAMPLEINSTANCE *AllocInstance() {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(tKYRESAMPLEINSTANCE));
  if (!h) return nullptr;
  void *p = GlobalLock(h);
  if (!p) GlobalFree(h);
  return static_cast<tKYRESAMPLEINSTANCE *>(p);
}

void FreeInstance(tKYRESAMPLEINSTANCE *in) {
  HGLOBAL h = GlobalHandle(in);
  if (!h) return;
  GlobalUnlock(h);
  GlobalFree(h);
}

void FreeRings(double **rings, int count) {
  if (!rings) return;
  for (int c = 0; c < count; ++c) free(rings[c]);
  free(rings);
}

// One zeroed 25-double ring per channel, or null when an allocation fails.
double **AllocRings(int count) {
  double **rings = static_cast<double **>(calloc(count, sizeof(double *)));
  if (!rings) return nullptr;
  for (int c = 0; c < count; ++c) {
    rings[c] = static_cast<double *>(calloc(kRing, sizeof(double)));
    if (!rings[c]) {
      FreeRings(rings, c);
      return nullptr;
    }
  }
  return rings;
}

// The anti-alias design of the instance's current type, ratio, method and selector, for
// one channel; a zeroed record (no filter) when there is none. The cutoff is the lower
// Nyquist frequency as a fraction of the rate at which the filter runs: the source's when
// down-sampling, the output's when up-sampling. At a ratio of 1 it would be the Nyquist
// frequency itself, where a low-pass has nothing to do: no filter.
void DesignAntiAlias(const tKYRESAMPLEINSTANCE *in, tKYIIRSTATE *out) {
  memset(out, 0, sizeof *out);
  if (!IsFloatType(in->sampleType) || in->method < 2) return;
  int order;
  switch (in->antiAlias) {
  case KYRESAMPLE_AA_ORDER2: order = 2; break;
  case KYRESAMPLE_AA_ORDER4: order = 4; break;
  case KYRESAMPLE_AA_ORDER6: order = 6; break;
  default: return;
  }
  tKYIIRDESIGN d = {};
  d.kind = KYIIR_LOWPASS;
  d.channels = 1;
  d.order = order;
  d.cutoff = in->ratio >= 1.0 ? 0.5 / in->ratio : 0.5 * in->ratio;
  if (FAILED(KyIIR_Design(&d, out))) memset(out, 0, sizeof *out);
}

// Every channel gets the design; with keepHistory only the coefficients change.
void InstallFilter(tKYRESAMPLEINSTANCE *in, bool keepHistory) {
  tKYIIRSTATE design;
  DesignAntiAlias(in, &design);
  for (int c = 0; c < KYRESAMPLE_MAXCHANNELS; ++c) {
    tKYIIRSTATE &st = in->filter[c];
    if (keepHistory) {
      st.sections = design.sections;
      st.order = design.order;
      memcpy(st.coef, design.coef, sizeof st.coef);
    } else {
      st = design;
    }
  }
}

bool ValidType(LONG type) { return SampleBytes(type) != 0; }

DWORD Gcd(DWORD a, DWORD b) {
  while (b) {
    const DWORD t = a % b;
    a = b;
    b = t;
  }
  return a;
}

// The exact phase step of a conversion between two rates: src/dst = whole + num/den.
// keepPhase maps a running phase onto the new denominator (rounded down).
void SetExactPhase(tKYRESAMPLEINSTANCE *in, DWORD src, DWORD dst, bool keepPhase) {
  const DWORD g = Gcd(src, dst);
  const DWORD s = src / g, d = dst / g;
  in->phaseDen = d;
  in->phaseStepWhole = s / d;
  in->phaseStepNum = s % d;
  in->phaseNum = keepPhase ? static_cast<DWORD>(in->phase * d) : 0;
  if (in->phaseNum >= d) in->phaseNum = d - 1;
  in->phase = static_cast<double>(in->phaseNum) / d;
}

// A ratio that is a fraction dst/src of terms up to 2^20 (any pair of sample rates up to
// about a megahertz) in double precision, as 48000.0 / 44100 is 160/147, found among the
// convergents of its continued fraction; false for any other ratio. (With larger terms
// nearly every double would be some fraction.)
bool AsFraction(double ratio, DWORD *src, DWORD *dst) {
  constexpr ULONGLONG kMaxTerm = 1u << 20;
  double x = ratio;
  ULONGLONG h0 = 0, h1 = 1, k0 = 1, k1 = 0;
  for (int i = 0; i < 64; ++i) {
    const double a = floor(x);
    if (a > static_cast<double>(kMaxTerm)) return false;
    const ULONGLONG h = static_cast<ULONGLONG>(a) * h1 + h0, k = static_cast<ULONGLONG>(a) * k1 + k0;
    if (h > kMaxTerm || k > kMaxTerm) return false;
    if (static_cast<double>(h) / static_cast<double>(k) == ratio) {
      *dst = static_cast<DWORD>(h);
      *src = static_cast<DWORD>(k);
      return true;
    }
    h0 = h1, h1 = h, k0 = k1, k1 = k;
    if (x == a) return false;
    x = 1.0 / (x - a);
  }
  return false;
}

// The ratio form: the phase advances by the inverse ratio, exactly when the ratio is a
// fraction (see AsFraction), else as a double.
void SetRatioPhase(tKYRESAMPLEINSTANCE *in, bool keepPhase) {
  DWORD src, dst;
  if (AsFraction(in->ratio, &src, &dst)) {
    SetExactPhase(in, src, dst, keepPhase);
    return;
  }
  in->phaseDen = in->phaseNum = in->phaseStepNum = in->phaseStepWhole = 0;
}

HRESULT Close(tKYRESAMPLEINSTANCE *in) {
  if (!in) return S_OK;
  FreeRings(in->history, in->channels);
  free(in->ringSuccessor);
  FreeKernelCache(in);
  FreeInstance(in);
  return S_OK;
}

HRESULT Open(HKYRESAMPLE *out, LONG type, LONG srcRate, LONG dstRate, LONG channels,
             WORD flags) {
  if (!out) return E_POINTER;
  *out = nullptr;
  if (!ValidType(type) || channels < 1 || channels > KYRESAMPLE_MAXCHANNELS || srcRate <= 0 ||
      dstRate <= 0 || !ValidRatio(static_cast<double>(dstRate) / srcRate))
    return E_INVALIDARG;
  tKYRESAMPLEINSTANCE *in = AllocInstance();
  if (!in) return E_OUTOFMEMORY;
  in->sampleType = type;
  in->channels = channels;
  in->srcRate = srcRate;
  in->dstRate = dstRate;
  in->ratio = static_cast<double>(dstRate) / srcRate;
  in->inverseRatio = static_cast<double>(srcRate) / dstRate;
  in->filterAfter = (flags & KYRESAMPLE_FILTERAFTER) ? 1 : 0;
  in->userFlags = flags & KYRESAMPLE_USERMASK;
  in->antiAlias = flags & KYRESAMPLE_AAMASK;
  in->method = flags & KYRESAMPLE_METHODMASK;
  in->countAdjust = (flags & KYRESAMPLE_COUNTADJUST) ? 1 : 0;
  if (!IsFloatType(type) && (in->method == 3 || in->antiAlias != 0)) {
    // The sinc engine and the filter are for float data; integer data interpolates.
    in->method = 2;
    in->antiAlias = 0;
  }
  InstallFilter(in, false);
  if (in->method == 3) {
    in->tableStep = kTableStep;
    SincTable();
    in->history = AllocRings(channels);
    in->ringSuccessor = static_cast<LONG *>(calloc(kRing + 2, sizeof(LONG)));
    if (!in->history || !in->ringSuccessor) {
      Close(in);
      return E_OUTOFMEMORY;
    }
    for (int k = 0; k < kRing + 2; ++k) in->ringSuccessor[k] = (k - 1 + kRing) % kRing;
  }
  SetExactPhase(in, srcRate, dstRate, false);
  UpdateKernelCache(in);
  RestartStream(in);
  *out = in;
  return S_OK;
}

// Reset and ResetEx: haveRatio selects the ratio form (rates untouched).
HRESULT Reset(tKYRESAMPLEINSTANCE *in, LONG type, LONG srcRate, LONG dstRate, bool haveRatio,
              double ratio, LONG channels, BOOL keepState) {
  if (!in) return E_POINTER;
  if ((type != 0 && !ValidType(type)) || channels > KYRESAMPLE_MAXCHANNELS || isnan(ratio))
    return E_INVALIDARG;
  const LONG newSrc = !haveRatio && srcRate > 0 ? srcRate : in->srcRate;
  const LONG newDst = !haveRatio && dstRate > 0 ? dstRate : in->dstRate;
  // Given rates always set the ratio of the two (also after a ratio was set by ResetEx).
  const bool ratesGiven = !haveRatio && (srcRate > 0 || dstRate > 0);
  double newRatio = in->ratio, newInverse = in->inverseRatio;
  if (haveRatio && ratio > 0.0 && ratio != in->ratio) {
    newRatio = ratio;
    newInverse = 1.0 / ratio;
  } else if (ratesGiven) {
    newRatio = static_cast<double>(newDst) / newSrc;
    newInverse = static_cast<double>(newSrc) / newDst;
  }
  if (!ValidRatio(newRatio)) return E_INVALIDARG;
  const bool rateChange = newRatio != in->ratio || newInverse != in->inverseRatio ||
                          (ratesGiven && in->phaseDen == 0);
  // New rates of the same ratio change no coefficients, but they do restart the count.
  const bool ratesChanged = !haveRatio && (newSrc != in->srcRate || newDst != in->dstRate);
  const bool channelChange = channels > 0 && channels != in->channels;
  if (channelChange && in->history) {
    // New rings first, so that a failed allocation leaves the instance as it was.
    double **rings = AllocRings(channels);
    if (!rings) return E_OUTOFMEMORY;
    FreeRings(in->history, in->channels);
    in->history = rings;
  }
  if (type != 0) in->sampleType = type;
  if (channelChange) in->channels = channels;
  in->srcRate = newSrc;
  in->dstRate = newDst;
  in->ratio = newRatio;
  in->inverseRatio = newInverse;
  const bool keep = keepState && !channelChange;
  if (rateChange) {
    if (haveRatio)
      SetRatioPhase(in, keep);
    else
      SetExactPhase(in, newSrc, newDst, keep);
  }
  UpdateKernelCache(in);
  if (keep) {
    InstallFilter(in, true);
    if (rateChange || ratesChanged) in->srcPos = in->dstPos = 0;
  } else {
    InstallFilter(in, false);
    RestartStream(in);
  }
  return S_OK;
}

// Largest count of a LONG that n x ratio frames (plus slack) may reach.
LONG Capacity(double frames, double ratio) {
  const double c = ceil(frames * ratio) + 2.0;
  return c >= 2147483647.0 ? 2147483647 : static_cast<LONG>(c);
}

// Callers can write every field of an instance: the engines run only on a state they
// could have left themselves.
bool Runnable(const tKYRESAMPLEINSTANCE *in) {
  return ValidType(in->sampleType) && in->channels >= 1 &&
         in->channels <= KYRESAMPLE_MAXCHANNELS && ValidRatio(in->ratio) &&
         ValidRatio(1.0 / in->inverseRatio) && in->phase >= 0.0 && in->phase < 1.0 &&
         in->linearIndex >= -1 && in->pendingFrames >= 0 && in->drainedFrames >= 0 &&
         (in->phaseDen == 0 || (in->phaseNum < in->phaseDen && in->phaseStepNum < in->phaseDen)) &&
         (!in->history || (in->ringSuccessor && in->ringIndex >= 0 && in->ringIndex < kRing &&
                           in->tableStep > 0.0 && in->tableStep <= kTableStep));
}

LONG Block(tKYRESAMPLEINSTANCE *in, void *dst, void *src, LONG n) {
  // A null source drains the stream; an empty block does nothing.
  if (!in || !dst || n < 0 || (src && n == 0) || !Runnable(in)) return 0;
  const bool drain = !src;
  // The engines do nothing on a block converted into itself; an unknown method never reaches
  // them and reports its count below.
  if (!drain && src == dst && in->method <= 3) return 0;
  const LONG type = in->sampleType;
  LONG out, used;
  if (in->method > 3) {
    // Unknown method: nothing is written and the requested count is reported.
    out = used = n;
  } else {
    const LONG cap = Capacity(drain ? kPrime : n, in->ratio);
    if (in->method == 3 && IsFloatType(type) && in->history)
      out = SincConvert(in, type, in->channels, dst, cap, src, n, drain);
    else
      out = LinearConvert(in, type, dst, cap, src, n, drain);
    used = in->consumed;
  }
  if (used > 0 && in->countAdjust && in->inverseRatio < 1.0) --used;
  in->srcPos += used;
  in->dstPos += out;
  return out;
}

LONGLONG ToFrame(double x) {
  if (!(x == x)) return 0;
  if (x >= 9.2233720368547758e18) return 0x7FFFFFFFFFFFFFFFLL;
  if (x <= -9.2233720368547758e18) return static_cast<LONGLONG>(0x8000000000000000ULL);
  return static_cast<LONGLONG>(x);
}

HRESULT OneShot(const WAVEFORMATEX *format, void *dst, LONG dstFrames, const void *src,
                LONG srcFrames) {
  if (!format || !dst || !src || dstFrames <= 0 || srcFrames <= 0) return S_OK;
  const LONG type = ky::audio::Classify(format);
  const int channels = format->nChannels;
  const double rate = format->nSamplesPerSec;
  const double dstRate = floor(static_cast<double>(dstFrames) / srcFrames * rate);
  if (!type || channels < 1 || channels > KYRESAMPLE_MAXCHANNELS || dstRate < 1.0 ||
      dstRate > 2147483647.0)
    return S_OK;
  HKYRESAMPLE h = nullptr;
  if (FAILED(Open(&h, type, static_cast<LONG>(rate), static_cast<LONG>(dstRate), channels,
                  0x222)))
    return S_OK;
  const size_t frameBytes = static_cast<size_t>(SampleBytes(type)) * channels;
  // The filter of a down-sampling conversion runs over its source in place: a copy keeps
  // the caller's data as it was.
  void *work = const_cast<void *>(src);
  void *copy = nullptr;
  if (FilterBefore(h)) {
    copy = malloc(frameBytes * srcFrames);
    if (!copy) {
      Close(h);
      return S_OK;
    }
    memcpy(copy, src, frameBytes * srcFrames);
    work = copy;
  }
  BYTE *d = static_cast<BYTE *>(dst);
  LONG done = LinearConvert(h, type, d, dstFrames, work, srcFrames, false);
  done += LinearConvert(h, type, d + done * frameBytes, dstFrames - done, nullptr, 0, true);
  // The truncated rate may leave a few frames at the end: they hold the last one.
  for (LONG k = done; k < dstFrames && done > 0; ++k)
    memcpy(d + k * frameBytes, d + (done - 1) * frameBytes, frameBytes);
  free(copy);
  Close(h);
  return S_OK;
}

HRESULT Stupid(const WAVEFORMATEX *format, void *dst, LONG dstFrames, const void *src,
               LONG srcFrames) {
  if (!format) return E_POINTER;
  const LONG type = ky::audio::Classify(format);
  if (!type || format->nChannels < 1) return E_FAIL;
  if (dstFrames <= 0 || srcFrames <= 0) return S_OK;
  if (!dst || !src) return E_POINTER;
  const size_t frameBytes = static_cast<size_t>(SampleBytes(type)) * format->nChannels;
  BYTE *d = static_cast<BYTE *>(dst);
  const BYTE *s = static_cast<const BYTE *>(src);
  // Nearest frame to each destination frame's centre: floor((2k + 1) srcFrames / 2 dstFrames).
  for (LONG k = 0; k < dstFrames; ++k) {
    const ULONGLONG j = (2ULL * k + 1) * static_cast<ULONGLONG>(srcFrames) /
                        (2ULL * static_cast<ULONGLONG>(dstFrames));
    memmove(d + k * frameBytes, s + j * frameBytes, frameBytes);
  }
  return S_OK;
}

} // namespace

void RestartStream(tKYRESAMPLEINSTANCE *in) {
  if (in->history)
    for (int c = 0; c < in->channels; ++c) memset(in->history[c], 0, kRing * sizeof(double));
  // The first frame loaded goes to slot 12, the 13th to slot 0: the ring then holds the
  // frames -12 .. 12 around the first output instant, frame 0 (the earlier ones silent).
  in->priming = 1;
  in->primedCount = 0;
  in->ringIndex = kPrime;
  in->pendingFrames = kPrime;
  in->phase = 0.0;
  in->phaseNum = 0;
  in->drainedFrames = 0;
  in->linearIndex = 0;
  in->lastFrameValid = 0;
  in->consumed = 0;
  memset(in->lastFrame, 0, sizeof in->lastFrame);
  in->srcPos = in->dstPos = 0;
}

} // namespace ky::resample

using namespace ky::resample;
using ky::Guard;
using ky::GuardHr;

extern "C" HRESULT WINAPI KyAudio_ResampleOpen(HKYRESAMPLE *out, KYSAMPLETYPE type,
                                               LONG srcRate, LONG dstRate, LONG channels,
                                               WORD flags) {
  return GuardHr([&] { return Open(out, type, srcRate, dstRate, channels, flags); });
}

extern "C" HRESULT WINAPI KyAudio_ResampleOpenEx(HKYRESAMPLE *out, KYSAMPLETYPE type,
                                                 LONG channels, double ratio, DWORD flags) {
  return GuardHr([&]() -> HRESULT {
    if (!out) return E_POINTER;
    *out = nullptr;
    if (!ValidRatio(ratio)) return E_INVALIDARG;
    HKYRESAMPLE h = nullptr;
    HRESULT hr = Open(&h, type, 1, 1, channels, static_cast<WORD>(flags));
    if (FAILED(hr)) return hr;
    h->inverseRatio = 1.0 / ratio;
    h->phaseOffset = 0.0;
    hr = Reset(h, type, 0, 0, true, ratio, channels, FALSE);
    if (FAILED(hr)) {
      Close(h);
      return hr;
    }
    *out = h;
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyAudio_ResampleReset(HKYRESAMPLE h, KYSAMPLETYPE type, LONG srcRate,
                                                LONG dstRate, LONG channels, BOOL keepState) {
  return GuardHr([&] { return Reset(h, type, srcRate, dstRate, false, 0.0, channels, keepState); });
}

extern "C" HRESULT WINAPI KyAudio_ResampleResetEx(HKYRESAMPLE h, KYSAMPLETYPE type, double ratio,
                                                  LONG channels, BOOL keepState) {
  return GuardHr([&] { return Reset(h, type, 0, 0, true, ratio, channels, keepState); });
}

extern "C" HRESULT WINAPI KyAudio_ResampleClose(HKYRESAMPLE h) {
  return GuardHr([&] { return Close(h); });
}

extern "C" LONG WINAPI KyAudio_ResampleEx(HKYRESAMPLE h, void *dst, void *src, LONG srcFrames) {
  return Guard<LONG>(0, [&] { return Block(h, dst, src, srcFrames); });
}

extern "C" LONG WINAPI KyAudio_Resample_Sinc(KYSAMPLETYPE type, LONG channels, void *dst,
                                             LONG dstFrames, void *src, LONG srcFrames,
                                             HKYRESAMPLE h) {
  return Guard<LONG>(0, [&]() -> LONG {
    if (!h || !dst || !IsFloatType(type) || !h->history || !Runnable(h) || channels < 1 ||
        channels > h->channels || dstFrames < 0 || srcFrames < 0 || (src && srcFrames == 0))
      return 0;
    const bool drain = !src;
    return SincConvert(h, type, channels, dst, dstFrames, src, srcFrames, drain);
  });
}

extern "C" HRESULT WINAPI KyAudio_Resample(const WAVEFORMATEX *format, void *dst, LONG dstFrames,
                                           const void *src, LONG srcFrames) {
  Guard<HRESULT>(S_OK, [&] { return OneShot(format, dst, dstFrames, src, srcFrames); });
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_ResampleStupid(const WAVEFORMATEX *format, void *dst,
                                                 LONG dstFrames, const void *src,
                                                 LONG srcFrames) {
  return GuardHr([&] { return Stupid(format, dst, dstFrames, src, srcFrames); });
}

extern "C" LONGLONG WINAPI KyAudio_ResampleGetSrcFromDst(HKYRESAMPLE h, LONGLONG dstFrame) {
  if (!h) return 0;
  double x = static_cast<double>(dstFrame) * h->inverseRatio + h->phaseOffset;
  if (x >= 0.0 && x != floor(x)) x = ceil(x);
  return ToFrame(h->inverseRatio >= 1.0 ? x : x + 1.0);
}

extern "C" LONGLONG WINAPI KyAudio_ResampleGetDstFromSrc(HKYRESAMPLE h, LONGLONG srcFrame) {
  if (!h) return 0;
  return ToFrame(static_cast<double>(srcFrame) * h->ratio - h->phaseOffset);
}

extern "C" LONGLONG WINAPI KyAudio_ResampleGetSrcPos(HKYRESAMPLE h) {
  return h ? h->srcPos + h->srcOffset : 0;
}

extern "C" LONGLONG WINAPI KyAudio_ResampleGetDstPos(HKYRESAMPLE h) {
  return h ? h->dstPos + h->dstOffset : 0;
}

extern "C" void WINAPI KyAudio_ResampleSetSrcPos(HKYRESAMPLE h, LONGLONG pos) {
  if (h) h->srcPos = pos;
}

extern "C" void WINAPI KyAudio_ResampleSetDstPos(HKYRESAMPLE h, LONGLONG pos) {
  if (h) h->dstPos = pos;
}

extern "C" void WINAPI KyAudio_ResampleSetSrcOffset(HKYRESAMPLE h, LONGLONG offset) {
  if (h) h->srcOffset = offset;
}

extern "C" void WINAPI KyAudio_ResampleSetDstOffset(HKYRESAMPLE h, LONGLONG offset) {
  if (h) h->dstOffset = offset;
}

extern "C" void WINAPI KyAudio_ResampleStuffPrevSample(HKYRESAMPLE h, double value, DWORD param1,
                                                       DWORD param2) {
  if (!h) return;
  h->prevValue = value;
  h->prevParam1 = param1;
  h->prevParam2 = param2;
}
