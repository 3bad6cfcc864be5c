// IIR filters: Butterworth low- and high-pass designs of order 1 to 6 by the bilinear
// transform, run as a cascade of second-order sections in transposed direct form II.
#include <windows.h>
#include <emmintrin.h>
#include <math.h>
#include <string.h>

#include "ky_internal.h"
#include "resample_internal.h"

namespace ky::resample {
namespace {

constexpr double kPi = 3.14159265358979323846;

// Designs into one record's coefficients; the history is not touched.
void DesignInto(const tKYIIRDESIGN &d, tKYIIRSTATE &st) {
  // The analogue prototype is pre-warped so that the digital -3 dB point lands exactly on
  // the requested cutoff.
  const double k = tan(kPi * d.cutoff);
  const double k2 = k * k;
  const bool high = d.kind == KYIIR_HIGHPASS;
  const int pairs = d.order / 2;
  int s = 0;
  for (int p = 0; p < pairs; ++p, ++s) {
    // The poles of order N lie on the unit circle, pi/N apart and symmetric about the
    // negative real axis: a pair at the angle a from that axis has the quality 1/(2 cos a),
    // with a = (2p + 1) pi / 2N for even N and (p + 1) pi / N for odd N (whose real pole
    // is the first-order section below).
    const double a = (d.order & 1) ? (p + 1) * kPi / d.order : (2 * p + 1) * kPi / (2.0 * d.order);
    const double q = 1.0 / (2.0 * cos(a));
    const double norm = 1.0 / (1.0 + k / q + k2);
    double *c = st.coef[s];
    c[0] = high ? norm : k2 * norm;
    c[1] = high ? -2.0 * c[0] : 2.0 * c[0];
    c[2] = c[0];
    c[3] = 2.0 * (k2 - 1.0) * norm;
    c[4] = (1.0 - k / q + k2) * norm;
  }
  if (d.order & 1) {  // the real pole of an odd order
    const double norm = 1.0 / (1.0 + k);
    double *c = st.coef[s++];
    c[0] = high ? norm : k * norm;
    c[1] = high ? -c[0] : c[0];
    c[2] = 0.0;
    c[3] = (k - 1.0) * norm;
    c[4] = 0.0;
  }
  for (int r = s; r < KYIIR_MAXSECTIONS; ++r) memset(st.coef[r], 0, sizeof st.coef[r]);
  const double gain = d.gain == 0.0 ? 1.0 : d.gain;
  for (int i = 0; i < 3; ++i) st.coef[0][i] *= gain;
  st.sections = s;
  st.order = d.order;
}

// Every sample passes all sections in double precision; only the cascade's output is
// rounded to the buffer's type.
template <class T>
void Run(tKYIIRSTATE &st, T *data, int stride, int frames) {
  const int sections = st.sections;
  double c[KYIIR_MAXSECTIONS][5], z[KYIIR_MAXSECTIONS][2];
  memcpy(c, st.coef, sizeof c);
  memcpy(z, st.history, sizeof z);
  T *p = data;
  for (int i = 0; i < frames; ++i, p += stride) {
    double x = *p;
    for (int s = 0; s < sections; ++s) {
      const double y = c[s][0] * x + z[s][0];
      z[s][0] = c[s][1] * x - c[s][3] * y + z[s][1];
      z[s][1] = c[s][2] * x - c[s][4] * y;
      x = y;
    }
    *p = static_cast<T>(x);
  }
  memcpy(st.history, z, sizeof z);
}

} // namespace

void IirRun(tKYIIRSTATE *states, LONG type, void *data, int channels, int frames) {
  // A decaying filter runs into denormal numbers in long silences, which cost a hundred
  // times the normal time on x86. Flushing them to zero is done by the processor for the
  // length of this call (sample by sample, so the result is the same for any blocking).
  const unsigned int csr = _mm_getcsr();
  _mm_setcsr(csr | 0x8040);  // flush-to-zero and denormals-are-zero
  for (int c = 0; c < channels; ++c) {
    if (type == kF32)
      Run(states[c], static_cast<float *>(data) + c, channels, frames);
    else
      Run(states[c], static_cast<double *>(data) + c, channels, frames);
  }
  _mm_setcsr(csr);
}

} // namespace ky::resample

using namespace ky::resample;

extern "C" HRESULT WINAPI KyIIR_Design(const tKYIIRDESIGN *design, tKYIIRSTATE *states) {
  if (!design || !states) return E_POINTER;
  const tKYIIRDESIGN d = *design;
  if ((d.kind != KYIIR_LOWPASS && d.kind != KYIIR_HIGHPASS) || d.order < 1 ||
      d.order > KYIIR_MAXORDER || d.channels < 1 || d.channels > KYRESAMPLE_MAXCHANNELS ||
      !(d.cutoff > 0.0 && d.cutoff < 0.5) || !isfinite(d.gain) ||
      (d.flags & ~KYIIR_KEEPHISTORY) != 0)
    return E_INVALIDARG;
  tKYIIRSTATE first;
  memset(&first, 0, sizeof first);
  DesignInto(d, first);
  for (LONG c = 0; c < d.channels; ++c) {
    tKYIIRSTATE &st = states[c];
    memcpy(st.coef, first.coef, sizeof st.coef);
    st.sections = first.sections;
    st.order = first.order;
    if (!(d.flags & KYIIR_KEEPHISTORY)) memset(st.history, 0, sizeof st.history);
  }
  return S_OK;
}

extern "C" HRESULT WINAPI KyIIR_Process(tKYIIRSTATE *states, KYSAMPLETYPE type, void *data,
                                        LONG channels, LONG frames) {
  if (!IsFloatType(type) || channels < 1 || channels > KYRESAMPLE_MAXCHANNELS)
    return E_INVALIDARG;
  if (frames <= 0) return S_OK;
  if (!states || !data) return E_POINTER;
  for (LONG c = 0; c < channels; ++c)
    if (states[c].sections < 0 || states[c].sections > KYIIR_MAXSECTIONS) return E_INVALIDARG;
  IirRun(states, type, data, channels, frames);
  return S_OK;
}
