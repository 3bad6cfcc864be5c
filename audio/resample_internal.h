// Private declarations shared by the resampler's sources (resample*.cpp) and the IIR
// filter (iir.cpp). Never included by clients.
#pragma once

#include <windows.h>
#include "ky_resample.h"

namespace ky::resample {

// Bytes of one sample of a type; 0 for a value that is no sample type.
int SampleBytes(LONG type);
inline bool IsFloatType(LONG type) { return type == KYSAMPLE_F32 || type == KYSAMPLE_F64; }

// The sinc engine's geometry: 25 taps, 12 on each side of the centre frame, and the shared
// kernel table over 13 zero crossings.
constexpr int kRing = KYRESAMPLE_RINGSIZE;
constexpr int kHalf = 12;
constexpr int kPrime = kHalf + 1;   // frames loaded before the first output
constexpr int kTable = KYRESAMPLE_SINCTABLE;
constexpr double kTableStep = 1000.0 / 13.0;

// Builds the shared kernel table on first use (safe when several threads ask at once) and
// returns it: kTable doubles, never freed.
const double *SincTable();

// In-place IIR pass over interleaved float or double frames, channel c through states[c].
void IirRun(tKYIIRSTATE *states, LONG type, void *data, int channels, int frames);

// Runs the anti-alias filter of an instance over `frames` frames at `data` when the
// instance has one.
inline void AntiAlias(tKYRESAMPLEINSTANCE *in, LONG type, void *data, int channels,
                      int frames) {
  if (in->filter[0].sections > 0 && frames > 0) IirRun(in->filter, type, data, channels, frames);
}

// True when the anti-alias filter runs over the source block: always when down-sampling,
// where its cutoff (the output's Nyquist frequency) is set as a fraction of the source
// rate. Over the output it would come too late to stop the aliasing, and at that rate the
// cutoff would cut into the pass band.
inline bool FilterBefore(const tKYRESAMPLEINSTANCE *in) {
  return in->filter[0].sections > 0 && in->ratio < 1.0;
}

// The phase of the next output: the fraction phi in 0..1 past the frame floor(t). It
// advances by the inverse ratio per output; for instances opened with two rates exactly,
// as a fraction with the denominator dstRate / gcd, so that it never drifts and takes only
// phaseDen different values.
struct PhaseClock {
  double phi, inv;
  DWORD num, den, stepNum, stepWhole;
  explicit PhaseClock(const tKYRESAMPLEINSTANCE *in)
      : phi(in->phase), inv(in->inverseRatio), num(in->phaseNum), den(in->phaseDen),
        stepNum(in->phaseStepNum), stepWhole(in->phaseStepWhole) {}
  // Advances to the next output; returns the whole frames crossed.
  LONG Advance() {
    if (den) {
      LONG whole = static_cast<LONG>(stepWhole);
      num += stepNum;
      if (num >= den) {
        num -= den;
        ++whole;
      }
      phi = static_cast<double>(num) / den;
      return whole;
    }
    phi += inv;
    const LONG whole = static_cast<LONG>(phi);  // phi >= 0: truncation is floor
    phi -= whole;
    return whole;
  }
  void Save(tKYRESAMPLEINSTANCE *in) const {
    in->phase = phi;
    in->phaseNum = num;
  }
};

// Builds, keeps or frees the sinc kernel cache to match the instance's method and phase
// denominator. A failed allocation leaves no cache: the kernel is then computed per output.
void UpdateKernelCache(tKYRESAMPLEINSTANCE *in);
void FreeKernelCache(tKYRESAMPLEINSTANCE *in);

// The engines. Each converts one block of n source frames (a drain when `drain`: the
// frames past the end are made up) into at most dstMax frames, returns the frames written
// and leaves the source frames used in in->consumed.
LONG SincConvert(tKYRESAMPLEINSTANCE *in, LONG type, int channels, void *dst, LONG dstMax,
                 void *src, LONG n, bool drain);
LONG LinearConvert(tKYRESAMPLEINSTANCE *in, LONG type, void *dst, LONG dstMax, void *src,
                   LONG n, bool drain);

// Puts a stream's running state back to its start: positions, phase, rings, priming.
void RestartStream(tKYRESAMPLEINSTANCE *in);

} // namespace ky::resample
