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

// Two channels at once, one per SSE2 lane: the same operations in the same order as Run,
// so the results are identical; the two recurrences overlap instead of waiting on each
// other.
inline __m128d Load2(const float *p) {
  return _mm_cvtps_pd(_mm_castsi128_ps(_mm_loadl_epi64(reinterpret_cast<const __m128i *>(p))));
}
inline void Store2(float *p, __m128d v) {
  _mm_storel_epi64(reinterpret_cast<__m128i *>(p), _mm_castps_si128(_mm_cvtpd_ps(v)));
}
inline __m128d Load2(const double *p) { return _mm_loadu_pd(p); }
inline void Store2(double *p, __m128d v) { _mm_storeu_pd(p, v); }

template <class T>
void RunPair(tKYIIRSTATE &s0, tKYIIRSTATE &s1, T *data, int stride, int frames) {
  const int sections = s0.sections;
  __m128d c[KYIIR_MAXSECTIONS][5], z[KYIIR_MAXSECTIONS][2];
  for (int s = 0; s < sections; ++s) {
    for (int k = 0; k < 5; ++k) c[s][k] = _mm_set_pd(s1.coef[s][k], s0.coef[s][k]);
    for (int k = 0; k < 2; ++k) z[s][k] = _mm_set_pd(s1.history[s][k], s0.history[s][k]);
  }
  T *p = data;
  for (int i = 0; i < frames; ++i, p += stride) {
    __m128d x = Load2(p);
    for (int s = 0; s < sections; ++s) {
      const __m128d y = _mm_add_pd(_mm_mul_pd(c[s][0], x), z[s][0]);
      z[s][0] = _mm_add_pd(_mm_sub_pd(_mm_mul_pd(c[s][1], x), _mm_mul_pd(c[s][3], y)), z[s][1]);
      z[s][1] = _mm_sub_pd(_mm_mul_pd(c[s][2], x), _mm_mul_pd(c[s][4], y));
      x = y;
    }
    Store2(p, x);
  }
  for (int s = 0; s < sections; ++s) {
    for (int k = 0; k < 2; ++k) {
      s0.history[s][k] = _mm_cvtsd_f64(z[s][k]);
      s1.history[s][k] = _mm_cvtsd_f64(_mm_unpackhi_pd(z[s][k], z[s][k]));
    }
  }
}

template <class T>
void RunAll(tKYIIRSTATE *states, T *data, int channels, int frames) {
  int c = 0;
  for (; c + 1 < channels; c += 2) {
    if (states[c].sections == states[c + 1].sections) {
      RunPair(states[c], states[c + 1], data + c, channels, frames);
    } else {
      Run(states[c], data + c, channels, frames);
      Run(states[c + 1], data + c + 1, channels, frames);
    }
  }
  if (c < channels) Run(states[c], data + c, channels, frames);
}

} // namespace

void IirRun(tKYIIRSTATE *states, LONG type, void *data, int channels, int frames) {
  // A decaying filter runs into denormal numbers in long silences, which cost a hundred
  // times the normal time on x86. Flushing them to zero is done by the processor for the
  // length of this call (sample by sample, so the result is the same for any blocking).
  const unsigned int csr = _mm_getcsr();
  _mm_setcsr(csr | 0x8040);  // flush-to-zero and denormals-are-zero
  if (type == KYSAMPLE_F32)
    RunAll(states, static_cast<float *>(data), channels, frames);
  else
    RunAll(states, static_cast<double *>(data), channels, frames);
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
