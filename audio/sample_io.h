// Sample access for each sample type: loading a stored sample as a signed integer value
// or a float, storing with truncation toward zero and clamping, and the fixed conversion
// constants. The converters, mixers and channel operators are templates over these traits,
// so each per-pair loop is compiled without a type switch.
#pragma once

#include <stdint.h>
#include <string.h>
#include "ky_audio.h"

namespace ky::audio {

inline uint32_t Load32(const uint8_t *p) {
  uint32_t v;
  memcpy(&v, p, 4);
  return v;
}
inline void Store32(uint8_t *p, uint32_t v) { memcpy(p, &v, 4); }
inline uint16_t Load16(const uint8_t *p) {
  uint16_t v;
  memcpy(&v, p, 2);
  return v;
}
inline void Store16(uint8_t *p, uint16_t v) { memcpy(p, &v, 2); }

// Rounds toward zero and clamps into [lo, hi]; NaN becomes 0 (silence is the least
// surprising answer for a sample that has no value). The clamp comes first so that the
// conversion never sees an out-of-range value; for integer bounds the order does not change
// the answer.
inline int32_t TruncClamp(double v, double lo, double hi) {
  if (!(v == v)) return 0;
  if (v <= lo) return static_cast<int32_t>(lo);
  if (v >= hi) return static_cast<int32_t>(hi);
  return static_cast<int32_t>(v);
}
inline int32_t TruncClampF(float v, float lo, float hi) {
  if (!(v == v)) return 0;
  if (v <= lo) return static_cast<int32_t>(lo);
  if (v >= hi) return static_cast<int32_t>(hi);
  return static_cast<int32_t>(v);
}

// Integer types. `Value` is the sample as a signed integer of `bits` bits; `Top` is the
// same sample shifted to the top of a 32-bit word (the form unity-gain integer conversions
// go through: widening appends zero bits, narrowing drops the low bytes). `kScale` is the
// full-scale factor 1/2^(bits-1) applied to `Value` (for the packed 24-bit types to `Top`
// with 1/2^31, which gives the same number).
struct TU8 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_U8;
  static constexpr int kBytes = 1, kBits = 8;
  static constexpr bool kFloat = false;
  static int32_t Value(const uint8_t *p) { return static_cast<int8_t>(*p ^ 0x80); }
  static int32_t Top(const uint8_t *p) { return Value(p) * (1 << 24); }
  static void StoreValue(uint8_t *p, int32_t v) { *p = static_cast<uint8_t>(v ^ 0x80); }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 24); }
};
struct TS8 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S8;
  static constexpr int kBytes = 1, kBits = 8;
  static constexpr bool kFloat = false;
  static int32_t Value(const uint8_t *p) { return static_cast<int8_t>(*p); }
  static int32_t Top(const uint8_t *p) { return Value(p) * (1 << 24); }
  static void StoreValue(uint8_t *p, int32_t v) { *p = static_cast<uint8_t>(v); }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 24); }
};
struct TS16 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S16;
  static constexpr int kBytes = 2, kBits = 16;
  static constexpr bool kFloat = false;
  static int32_t Value(const uint8_t *p) { return static_cast<int16_t>(Load16(p)); }
  static int32_t Top(const uint8_t *p) { return static_cast<int32_t>(uint32_t(Load16(p)) << 16); }
  static void StoreValue(uint8_t *p, int32_t v) { Store16(p, static_cast<uint16_t>(v)); }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 16); }
};
struct TS16BE {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S16BE;
  static constexpr int kBytes = 2, kBits = 16;
  static constexpr bool kFloat = false;
  static int32_t Top(const uint8_t *p) {
    return static_cast<int32_t>((uint32_t(p[0]) << 24) | (uint32_t(p[1]) << 16));
  }
  static int32_t Value(const uint8_t *p) { return Top(p) >> 16; }
  static void StoreValue(uint8_t *p, int32_t v) {
    p[0] = static_cast<uint8_t>(v >> 8);
    p[1] = static_cast<uint8_t>(v);
  }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 16); }
};
struct TS24 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S24;
  static constexpr int kBytes = 3, kBits = 24;
  static constexpr bool kFloat = false;
  static int32_t Top(const uint8_t *p) {
    return static_cast<int32_t>((uint32_t(p[0]) << 8) | (uint32_t(p[1]) << 16) |
                                (uint32_t(p[2]) << 24));
  }
  static int32_t Value(const uint8_t *p) { return Top(p) >> 8; }
  static void StoreValue(uint8_t *p, int32_t v) {
    p[0] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[2] = static_cast<uint8_t>(v >> 16);
  }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 8); }
};
struct TS24BE {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S24BE;
  static constexpr int kBytes = 3, kBits = 24;
  static constexpr bool kFloat = false;
  static int32_t Top(const uint8_t *p) {
    return static_cast<int32_t>((uint32_t(p[2]) << 8) | (uint32_t(p[1]) << 16) |
                                (uint32_t(p[0]) << 24));
  }
  static int32_t Value(const uint8_t *p) { return Top(p) >> 8; }
  static void StoreValue(uint8_t *p, int32_t v) {
    p[2] = static_cast<uint8_t>(v);
    p[1] = static_cast<uint8_t>(v >> 8);
    p[0] = static_cast<uint8_t>(v >> 16);
  }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 8); }
};
struct TS32 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S32;
  static constexpr int kBytes = 4, kBits = 32;
  static constexpr bool kFloat = false;
  static int32_t Value(const uint8_t *p) { return static_cast<int32_t>(Load32(p)); }
  static int32_t Top(const uint8_t *p) { return Value(p); }
  static void StoreValue(uint8_t *p, int32_t v) { Store32(p, static_cast<uint32_t>(v)); }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t); }
};
struct TS32BE {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S32BE;
  static constexpr int kBytes = 4, kBits = 32;
  static constexpr bool kFloat = false;
  static int32_t Value(const uint8_t *p) {
    return static_cast<int32_t>(__builtin_bswap32(Load32(p)));
  }
  static int32_t Top(const uint8_t *p) { return Value(p); }
  static void StoreValue(uint8_t *p, int32_t v) {
    Store32(p, __builtin_bswap32(static_cast<uint32_t>(v)));
  }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t); }
};
// A 24-bit value in the low bits of a 32-bit word. Its top form is value << 8; stores of
// a 24-bit value keep the sign extension.
struct TS24IN32 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_S24IN32;
  static constexpr int kBytes = 4, kBits = 24;
  static constexpr bool kFloat = false;
  static int32_t Value(const uint8_t *p) {
    return static_cast<int32_t>(Load32(p) << 8) >> 8;
  }
  static int32_t Top(const uint8_t *p) { return static_cast<int32_t>(Load32(p) << 8); }
  static void StoreValue(uint8_t *p, int32_t v) { Store32(p, static_cast<uint32_t>(v)); }
  static void StoreTop(uint8_t *p, int32_t t) { StoreValue(p, t >> 8); }
};

struct TF32 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_F32;
  static constexpr int kBytes = 4, kBits = 32;
  static constexpr bool kFloat = true;
  static float Load(const uint8_t *p) {
    float f;
    memcpy(&f, p, 4);
    return f;
  }
  static void Store(uint8_t *p, float f) { memcpy(p, &f, 4); }
};
struct TF64 {
  static constexpr KYSAMPLETYPE kType = KYSAMPLE_F64;
  static constexpr int kBytes = 8, kBits = 64;
  static constexpr bool kFloat = true;
  static double Load(const uint8_t *p) {
    double f;
    memcpy(&f, p, 8);
    return f;
  }
  static void Store(uint8_t *p, double f) { memcpy(p, &f, 8); }
};

// 2^(bits-1) of an integer type, and its range.
template <class T> constexpr double FullScale() { return double(1LL << (T::kBits - 1)); }
template <class T> constexpr double MinValue() { return -FullScale<T>(); }
template <class T> constexpr double MaxValue() { return FullScale<T>() - 1.0; }

// Stores a double in an integer type's units: truncation toward zero, clamping.
template <class D> inline void StoreClamped(uint8_t *p, double v) {
  D::StoreValue(p, TruncClamp(v, MinValue<D>(), MaxValue<D>()));
}

} // namespace ky::audio
