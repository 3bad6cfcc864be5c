// Plainly written reference codecs for the audio tests: one sample at a time, from the
// written conversion rules, with no tables or templates shared with the library.
#pragma once

#include <math.h>
#include <stdint.h>
#include <string.h>
#include <random>
#include <vector>
#include "ky_audio.h"

namespace audioref {

struct Type {
  KYSAMPLETYPE t;
  int bytes;
  int bits; // significant bits of the integer value (24 for the unpacked type)
  bool isFloat;
  const char *name;
};

inline const Type kTypes[] = {
    {KYSAMPLE_U8, 1, 8, false, "U8"},          {KYSAMPLE_S16, 2, 16, false, "S16"},
    {KYSAMPLE_S24, 3, 24, false, "S24"},       {KYSAMPLE_S32, 4, 32, false, "S32"},
    {KYSAMPLE_F32, 4, 32, true, "F32"},        {KYSAMPLE_F64, 8, 64, true, "F64"},
    {KYSAMPLE_S24IN32, 4, 24, false, "S24IN32"}, {KYSAMPLE_S8, 1, 8, false, "S8"},
    {KYSAMPLE_S16BE, 2, 16, false, "S16BE"},   {KYSAMPLE_S24BE, 3, 24, false, "S24BE"},
    {KYSAMPLE_S32BE, 4, 32, false, "S32BE"},
};

inline const Type &Of(KYSAMPLETYPE t) {
  for (const Type &x : kTypes)
    if (x.t == t) return x;
  return kTypes[0];
}

inline bool BigEndian(KYSAMPLETYPE t) { return t >= KYSAMPLE_S16BE; }

// The integer value of a stored sample.
inline int64_t GetInt(KYSAMPLETYPE t, const uint8_t *p) {
  switch (t) {
  case KYSAMPLE_U8: return int64_t(p[0]) - 128;
  case KYSAMPLE_S8: return int8_t(p[0]);
  case KYSAMPLE_S16: return int16_t(p[0] | p[1] << 8);
  case KYSAMPLE_S16BE: return int16_t(p[1] | p[0] << 8);
  case KYSAMPLE_S24:
  case KYSAMPLE_S24IN32: {
    int64_t v = p[0] | p[1] << 8 | p[2] << 16;
    return v >= 0x800000 ? v - 0x1000000 : v;
  }
  case KYSAMPLE_S24BE: {
    int64_t v = p[2] | p[1] << 8 | p[0] << 16;
    return v >= 0x800000 ? v - 0x1000000 : v;
  }
  case KYSAMPLE_S32: return int32_t(uint32_t(p[0]) | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24);
  case KYSAMPLE_S32BE:
    return int32_t(uint32_t(p[3]) | p[2] << 8 | p[1] << 16 | uint32_t(p[0]) << 24);
  default: return 0;
  }
}

// Stores an integer value that is already inside the type's range.
inline void PutInt(KYSAMPLETYPE t, uint8_t *p, int64_t v) {
  const Type &ty = Of(t);
  uint32_t u = uint32_t(v);
  if (t == KYSAMPLE_U8) u = uint32_t(v + 128);
  if (t == KYSAMPLE_S24IN32) { // sign-extended into the whole word
    for (int i = 0; i < 4; ++i) p[i] = uint8_t(u >> (8 * i));
    return;
  }
  for (int i = 0; i < ty.bytes; ++i) {
    const int shift = BigEndian(t) ? 8 * (ty.bytes - 1 - i) : 8 * i;
    p[i] = uint8_t(u >> shift);
  }
}

inline double GetFloat(KYSAMPLETYPE t, const uint8_t *p) {
  if (t == KYSAMPLE_F32) {
    float f;
    memcpy(&f, p, 4);
    return f;
  }
  double d;
  memcpy(&d, p, 8);
  return d;
}

inline int64_t TruncClamp(double v, int bits) {
  const double lo = -ldexp(1.0, bits - 1), hi = ldexp(1.0, bits - 1) - 1;
  if (isnan(v)) return 0;
  if (v < lo) return int64_t(lo);
  if (v > hi) return int64_t(hi);
  return int64_t(trunc(v));
}

// One sample converted by the rules of KyAudio_Copy.
inline void Convert(KYSAMPLETYPE dt, uint8_t *out, KYSAMPLETYPE st, const uint8_t *in, float gain) {
  const Type &D = Of(dt), &S = Of(st);
  const bool unity = gain == 1.0f;
  if (!S.isFloat && !D.isFloat) {
    const int64_t v = GetInt(st, in);
    if (unity) {
      const int shift = D.bits - S.bits;
      const int64_t r = shift >= 0 ? v * (int64_t(1) << shift) : (v >> -shift); // floor
      PutInt(dt, out, r);
    } else {
      PutInt(dt, out, TruncClamp(double(v) * double(gain) * ldexp(1.0, D.bits - S.bits), D.bits));
    }
    return;
  }
  if (!S.isFloat) { // integer to float
    const int64_t v = GetInt(st, in);
    if (dt == KYSAMPLE_F32) {
      float f = float(v) * float(ldexp(1.0, 1 - S.bits));
      if (!unity) f = f * gain;
      memcpy(out, &f, 4);
    } else {
      double d = double(v) * ldexp(1.0, 1 - S.bits);
      if (!unity) d = d * double(gain);
      memcpy(out, &d, 8);
    }
    return;
  }
  const double x = GetFloat(st, in);
  if (!D.isFloat) { // float to integer
    double v;
    if (st == KYSAMPLE_F32 && D.bits <= 16) {
      const float k = unity ? float(ldexp(1.0, D.bits - 1)) : gain * float(ldexp(1.0, D.bits - 1));
      v = float(float(x) * k); // the product in float
    } else {
      v = x * (double(gain) * ldexp(1.0, D.bits - 1));
    }
    PutInt(dt, out, TruncClamp(v, D.bits));
    return;
  }
  if (dt == KYSAMPLE_F32) {
    float f;
    if (st == KYSAMPLE_F32)
      f = unity ? float(x) : float(x) * gain;
    else
      f = float(unity ? x : x * double(gain));
    memcpy(out, &f, 4);
  } else {
    const double d = unity ? x : x * double(gain);
    memcpy(out, &d, 8);
  }
}

// Equal samples: same bytes, or both NaN for float types.
inline bool SameSample(KYSAMPLETYPE t, const uint8_t *a, const uint8_t *b) {
  const Type &ty = Of(t);
  if (memcmp(a, b, ty.bytes) == 0) return true;
  if (ty.isFloat) return isnan(GetFloat(t, a)) && isnan(GetFloat(t, b));
  return false;
}

// Float sample values worth checking: zeros, full scale and just inside/outside it, the
// 16-bit steps, denormals, infinities, NaN, and seeded random values in [-2, 2].
inline std::vector<double> EdgeFloats(bool single, unsigned seed, int randomCount) {
  std::vector<double> v = {0.0, -0.0, 1.0, -1.0, 0.5, -0.5, 1.5, -1.5, 2.0, -2.0, 0.99999,
                           -0.00002, 1e-40, -1e-40, 1.4e-45, -1.4e-45, 1e-310, 1e30, -1e30,
                           INFINITY, -INFINITY, NAN, 32767.0 / 32768, -32767.0 / 32768,
                           8388607.0 / 8388608, 2147483647.0 / 2147483648.0, 127.0 / 128};
  for (double base : {1.0, -1.0, 0.5, 32767.0 / 32768, 8388607.0 / 8388608}) {
    if (single) {
      v.push_back(nextafterf(float(base), 2.0f));
      v.push_back(nextafterf(float(base), -2.0f));
    } else {
      v.push_back(nextafter(base, 2.0));
      v.push_back(nextafter(base, -2.0));
    }
  }
  for (int k = -40; k <= 40; ++k) v.push_back((k + 0.5) / 32768.0);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<double> u(-2.0, 2.0);
  for (int i = 0; i < randomCount; ++i) v.push_back(u(rng));
  return v;
}

// Source buffers covering a type: every value of 8- and 16-bit types, edges and seeded
// random values for the wider ones, the float edge set for float types.
inline std::vector<uint8_t> SourceSamples(KYSAMPLETYPE t, unsigned seed) {
  const Type &ty = Of(t);
  std::vector<uint8_t> buf;
  auto put = [&](int64_t v) {
    size_t at = buf.size();
    buf.resize(at + ty.bytes);
    PutInt(t, &buf[at], v);
  };
  if (ty.isFloat) {
    for (double d : EdgeFloats(t == KYSAMPLE_F32, seed, 2000)) {
      size_t at = buf.size();
      buf.resize(at + ty.bytes);
      if (t == KYSAMPLE_F32) {
        float f = float(d);
        memcpy(&buf[at], &f, 4);
      } else {
        memcpy(&buf[at], &d, 8);
      }
    }
  } else if (ty.bits <= 16) {
    for (int64_t v = -(int64_t(1) << (ty.bits - 1)); v < (int64_t(1) << (ty.bits - 1)); ++v) put(v);
  } else {
    const int64_t lo = -(int64_t(1) << (ty.bits - 1)), hi = -lo - 1;
    for (int64_t v : {lo, lo + 1, int64_t(-1), int64_t(0), int64_t(1), hi - 1, hi}) put(v);
    for (int64_t v = -300; v <= 300; ++v) put(v * 255);
    std::mt19937 rng(seed);
    std::uniform_int_distribution<int64_t> u(lo, hi);
    for (int i = 0; i < 4000; ++i) put(u(rng));
  }
  return buf;
}

} // namespace audioref
