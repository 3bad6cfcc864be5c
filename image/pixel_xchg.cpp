// Pixel exchange: per-type row readers and writers to and from the two working forms
// (tKYPIXEL32 with 8-bit channels, tKYPIXEL64 with 16-bit channels), the row operations, and
// the preparation of the exchange record that selects them.
#include <string.h>
#include <type_traits>
#include "ky_internal.h"
#include "pixel_private.h"

namespace ky::image {

namespace {

// ---------------------------------------------------------------------------------------
// Channel scaling between n-bit values and the working form's range (exact rounding).

template <int Bits>
constexpr ULONGLONG MaxOf() {
  return (Bits >= 64) ? ~0ull : ((1ull << Bits) - 1);
}

// The two working forms.
struct W8 {
  typedef tKYPIXEL32 Pixel;
  typedef BYTE Channel;
  static constexpr int kBits = 8;
  static constexpr DWORD kMax = 255;
};
struct W16 {
  typedef tKYPIXEL64 Pixel;
  typedef WORD Channel;
  static constexpr int kBits = 16;
  static constexpr DWORD kMax = 65535;
};

// n-bit value -> working channel, round(v x max / (2^n - 1)).
template <int Bits, class W>
inline typename W::Channel Expand(DWORD v) {
  if constexpr (Bits == W::kBits) {
    return typename W::Channel(v);
  } else {
    constexpr ULONGLONG from = MaxOf<Bits>();
    // 32-bit arithmetic wherever the product fits: a 64-bit division is a library call here.
    if constexpr (from * W::kMax * 2 + from <= 0xFFFFFFFFull)
      return typename W::Channel((v * W::kMax * 2 + DWORD(from)) / DWORD(2 * from));
    else
      return typename W::Channel((ULONGLONG(v) * W::kMax * 2 + from) / (2 * from));
  }
}

// Working channel -> n-bit value, round(w x (2^n - 1) / max).
template <int Bits, class W>
inline DWORD Reduce(DWORD w) {
  if constexpr (Bits == W::kBits) {
    return w;
  } else {
    constexpr ULONGLONG to = MaxOf<Bits>();
    if constexpr (W::kMax * to * 2 + W::kMax <= 0xFFFFFFFFull)
      return (w * DWORD(to) * 2 + W::kMax) / (2 * W::kMax);
    else
      return DWORD((ULONGLONG(w) * to * 2 + W::kMax) / (2ull * W::kMax));
  }
}

template <class W>
inline DWORD Luminance(const typename W::Pixel &p) {
  if constexpr (W::kBits == 8)
    return (77u * p.red + 150u * p.green + 29u * p.blue + 128u) >> 8;
  else
    return (19595u * p.red + 38470u * p.green + 7471u * p.blue + 32768u) >> 16;
}

template <class W>
inline void SetGray(typename W::Pixel &p, typename W::Channel v) {
  p.blue = p.green = p.red = v;
  p.alpha = typename W::Channel(W::kMax);
}

template <class W>
inline void FromQuad(typename W::Pixel &p, const RGBQUAD &q) {
  p.blue = Expand<8, W>(q.rgbBlue);
  p.green = Expand<8, W>(q.rgbGreen);
  p.red = Expand<8, W>(q.rgbRed);
  p.alpha = typename W::Channel(W::kMax);
}

template <class W>
inline DWORD ToRgb(const typename W::Pixel &p) {
  return (Reduce<8, W>(p.red) << 16) | (Reduce<8, W>(p.green) << 8) | Reduce<8, W>(p.blue);
}

// What a codec needs besides the row: the palette it reads through and the quantizer it
// writes through.
struct Ctx {
  const RGBQUAD *colors;
  QuantizerData *quantizer;
};

// ---------------------------------------------------------------------------------------
// Codecs: Get reads pixel i of a row (bit offset applied), Put writes it.

// Sub-byte pixels, most significant bits first (as every DIB stores them).
template <int Bits>
inline DWORD GetBits(const BYTE *row, LONG bitOffset, LONG i) {
  const LONG pos = bitOffset + i * Bits;
  return (row[pos >> 3] >> (8 - Bits - (pos & 7))) & DWORD(MaxOf<Bits>());
}
template <int Bits>
inline void PutBits(BYTE *row, LONG bitOffset, LONG i, DWORD v) {
  const LONG pos = bitOffset + i * Bits;
  const int shift = 8 - Bits - (pos & 7);
  const BYTE mask = BYTE(MaxOf<Bits>() << shift);
  row[pos >> 3] = BYTE((row[pos >> 3] & ~mask) | ((v << shift) & mask));
}

template <class T>
inline T Load(const BYTE *p) {
  T v;
  memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
inline void Store(BYTE *p, T v) {
  memcpy(p, &v, sizeof v);
}

// Grayscale of n bits ("KYGS"): equal colour channels, opaque.
template <int Bits>
struct GrayCodec {
  static constexpr int kBitsPerPixel = Bits;
  static DWORD Raw(const BYTE *row, LONG off, LONG i) {
    if constexpr (Bits < 8) return GetBits<Bits>(row, off, i);
    else if constexpr (Bits == 8) return row[i];
    else if constexpr (Bits == 16) return Load<WORD>(row + 2 * i);
    else return Load<DWORD>(row + 4 * i);
  }
  template <class W>
  static void Get(const BYTE *row, LONG off, LONG i, typename W::Pixel &p, const Ctx &) {
    SetGray<W>(p, Expand<Bits, W>(Raw(row, off, i)));
  }
  template <class W>
  static void Put(BYTE *row, LONG off, LONG i, const typename W::Pixel &p, const Ctx &) {
    const DWORD v = Reduce<Bits, W>(Luminance<W>(p));
    if constexpr (Bits < 8) PutBits<Bits>(row, off, i, v);
    else if constexpr (Bits == 8) row[i] = BYTE(v);
    else if constexpr (Bits == 16) Store<WORD>(row + 2 * i, WORD(v));
    else Store<DWORD>(row + 4 * i, v);
  }
};

// Palette indexes of n bits: looked up in the colour table when there is one, else read as
// gray levels; written through the quantizer when there is one, else as gray levels.
template <int Bits>
struct PaletteCodec {
  static constexpr int kBitsPerPixel = Bits;
  template <class W>
  static void Get(const BYTE *row, LONG off, LONG i, typename W::Pixel &p, const Ctx &c) {
    const DWORD index = Bits == 8 ? row[i] : GetBits<Bits>(row, off, i);
    if (c.colors) FromQuad<W>(p, c.colors[index]);
    else SetGray<W>(p, Expand<Bits, W>(index));
  }
  template <class W>
  static void Put(BYTE *row, LONG off, LONG i, const typename W::Pixel &p, const Ctx &c) {
    const DWORD index = c.quantizer ? QuantizeNearest(c.quantizer, ToRgb<W>(p))
                                    : Reduce<Bits, W>(Luminance<W>(p));
    if constexpr (Bits == 8) row[i] = BYTE(index);
    else PutBits<Bits>(row, off, i, index);
  }
};

// Packed 16- and 32-bit RGB: channel widths blue, green, red from bit 0 upwards; the bits
// above them are unused (read as opaque, written 0).
template <int B, int G, int R, int Size>
struct PackedCodec {
  static constexpr int kBitsPerPixel = Size;
  typedef std::conditional_t<Size == 16, WORD, DWORD> Word;
  template <class W>
  static void Get(const BYTE *row, LONG, LONG i, typename W::Pixel &p, const Ctx &) {
    const DWORD v = Load<Word>(row + i * sizeof(Word));
    p.blue = Expand<B, W>(v & DWORD(MaxOf<B>()));
    p.green = Expand<G, W>((v >> B) & DWORD(MaxOf<G>()));
    p.red = Expand<R, W>((v >> (B + G)) & DWORD(MaxOf<R>()));
    p.alpha = typename W::Channel(W::kMax);
  }
  template <class W>
  static void Put(BYTE *row, LONG, LONG i, const typename W::Pixel &p, const Ctx &) {
    const DWORD v = Reduce<B, W>(p.blue) | (Reduce<G, W>(p.green) << B) |
                    (Reduce<R, W>(p.red) << (B + G));
    Store<Word>(row + i * sizeof(Word), Word(v));
  }
};

// Byte channels: 24-bit (no alpha), 32-bit with an unused fourth byte (read opaque, written
// 0) or with alpha.
template <int Bytes, bool Alpha>
struct ByteCodec {
  static constexpr int kBitsPerPixel = Bytes * 8;
  template <class W>
  static void Get(const BYTE *row, LONG, LONG i, typename W::Pixel &p, const Ctx &) {
    const BYTE *s = row + i * Bytes;
    p.blue = Expand<8, W>(s[0]);
    p.green = Expand<8, W>(s[1]);
    p.red = Expand<8, W>(s[2]);
    p.alpha = Alpha ? Expand<8, W>(s[3]) : typename W::Channel(W::kMax);
  }
  template <class W>
  static void Put(BYTE *row, LONG, LONG i, const typename W::Pixel &p, const Ctx &) {
    BYTE *d = row + i * Bytes;
    d[0] = BYTE(Reduce<8, W>(p.blue));
    d[1] = BYTE(Reduce<8, W>(p.green));
    d[2] = BYTE(Reduce<8, W>(p.red));
    if constexpr (Bytes == 4) d[3] = Alpha ? BYTE(Reduce<8, W>(p.alpha)) : 0;
  }
};

// Four 16-bit channels.
struct Rgba64Codec {
  static constexpr int kBitsPerPixel = 64;
  template <class W>
  static void Get(const BYTE *row, LONG, LONG i, typename W::Pixel &p, const Ctx &) {
    const tKYPIXEL64 s = Load<tKYPIXEL64>(row + 8 * i);
    p.blue = typename W::Channel(ConvertFrom16<W>(s.blue));
    p.green = typename W::Channel(ConvertFrom16<W>(s.green));
    p.red = typename W::Channel(ConvertFrom16<W>(s.red));
    p.alpha = typename W::Channel(ConvertFrom16<W>(s.alpha));
  }
  template <class W>
  static void Put(BYTE *row, LONG, LONG i, const typename W::Pixel &p, const Ctx &) {
    tKYPIXEL64 d;
    d.blue = WORD(Reduce<16, W>(p.blue));
    d.green = WORD(Reduce<16, W>(p.green));
    d.red = WORD(Reduce<16, W>(p.red));
    d.alpha = WORD(Reduce<16, W>(p.alpha));
    Store<tKYPIXEL64>(row + 8 * i, d);
  }
  // 16-bit value -> working channel: the exact inverse of Reduce<16, W>.
  template <class W>
  static DWORD ConvertFrom16(DWORD v) {
    return Reduce<W::kBits, W16>(v);
  }
};

// Four float channels, 0.0 to 1.0; values outside (and not-a-number) are clamped on reading.
struct FloatCodec {
  static constexpr int kBitsPerPixel = 128;
  template <class W>
  static typename W::Channel FromFloat(float f) {
    if (!(f > 0.0f)) return 0;
    if (f >= 1.0f) return typename W::Channel(W::kMax);
    return typename W::Channel(f * float(W::kMax) + 0.5f);
  }
  template <class W>
  static void Get(const BYTE *row, LONG, LONG i, typename W::Pixel &p, const Ctx &) {
    float s[4];
    memcpy(s, row + 16 * i, sizeof s);
    p.blue = FromFloat<W>(s[0]);
    p.green = FromFloat<W>(s[1]);
    p.red = FromFloat<W>(s[2]);
    p.alpha = FromFloat<W>(s[3]);
  }
  template <class W>
  static void Put(BYTE *row, LONG, LONG i, const typename W::Pixel &p, const Ctx &) {
    // Division, not a multiply by the reciprocal: k / max is then exactly the float nearest
    // to the level, and reading it back gives the same level.
    const float m = float(W::kMax);
    const float d[4] = {p.blue / m, p.green / m, p.red / m, p.alpha / m};
    memcpy(row + 16 * i, d, sizeof d);
  }
};

// ---------------------------------------------------------------------------------------
// Row routines built from a codec.

template <class W>
inline typename W::Channel Lerp(DWORD a, DWORD b, DWORD f) {  // f: 14-bit fraction
  return typename W::Channel((a * (16384u - f) + b * f + 8192u) >> 14);
}

template <class W>
inline void LerpPixel(typename W::Pixel &out, const typename W::Pixel &a,
                      const typename W::Pixel &b, DWORD f) {
  out.blue = Lerp<W>(a.blue, b.blue, f);
  out.green = Lerp<W>(a.green, b.green, f);
  out.red = Lerp<W>(a.red, b.red, f);
  out.alpha = Lerp<W>(a.alpha, b.alpha, f);
}

inline Ctx SourceCtx(const tKYDIBXCHGPARAMS *x) { return Ctx{x->srcColors, nullptr}; }
inline Ctx DestCtx(const tKYDIBXCHGPARAMS *x) { return Ctx{x->dstColors, nullptr}; }

template <class C, class W>
struct Rows {
  typedef typename W::Pixel P;

  static void Read(const Ctx &c, const BYTE *row, LONG off, P *out, LONG count) {
    for (LONG i = 0; i < count; ++i) C::template Get<W>(row, off, i, out[i], c);
  }

  // Pixel at an 18.14 position, interpolated with its right neighbour.
  static void Sample(const Ctx &c, const BYTE *row, LONG off, LONG pos, P &out) {
    if (pos < 0) pos = 0;
    const LONG i = pos >> 14;
    const DWORD f = DWORD(pos) & 0x3FFF;
    C::template Get<W>(row, off, i, out, c);
    if (f) {
      P next;
      C::template Get<W>(row, off, i + 1, next, c);
      LerpPixel<W>(out, out, next, f);
    }
  }

  static void *WINAPI ReadRow(tKYDIBXCHGPARAMS *x, const void *row, LONG off, void *work,
                              LONG count) {
    Read(SourceCtx(x), static_cast<const BYTE *>(row), off, static_cast<P *>(work), count);
    return work;
  }

  static void *WINAPI ReadDstRow(tKYDIBXCHGPARAMS *x, const void *row, LONG off, void *work,
                                 LONG count) {
    Read(DestCtx(x), static_cast<const BYTE *>(row), off, static_cast<P *>(work), count);
    return work;
  }

  static void WINAPI WriteRow(tKYDIBXCHGPARAMS *x, void *row, LONG off, const void *work,
                              LONG count) {
    Ctx c = DestCtx(x);
    HGLOBAL qh = x->dstQuantizer;
    c.quantizer = qh ? LockQuantizer(qh) : nullptr;
    BYTE *r = static_cast<BYTE *>(row);
    const P *in = static_cast<const P *>(work);
    for (LONG i = 0; i < count; ++i) C::template Put<W>(r, off, i, in[i], c);
    if (c.quantizer) GlobalUnlock(qh);
  }

  static void WINAPI ReadSampled(tKYDIBXCHGPARAMS *x, const void *row, LONG off, LONG pos,
                                 LONG step, void *work, LONG count) {
    const Ctx c = SourceCtx(x);
    P *out = static_cast<P *>(work);
    for (LONG i = 0; i < count; ++i, pos += step)
      Sample(c, static_cast<const BYTE *>(row), off, pos, out[i]);
  }

  static void WINAPI ReadSampledOne(tKYDIBXCHGPARAMS *x, const void *row, LONG off, LONG,
                                    LONG, void *work, LONG count) {
    P *out = static_cast<P *>(work);
    if (count <= 0) return;
    C::template Get<W>(static_cast<const BYTE *>(row), off, 0, out[0], SourceCtx(x));
    for (LONG i = 1; i < count; ++i) out[i] = out[0];
  }

  static void *WINAPI ReadBlended(tKYDIBXCHGPARAMS *x, const void *row, LONG off, void *work,
                                  LONG count) {
    const Ctx c = SourceCtx(x);
    const BYTE *r = static_cast<const BYTE *>(row);
    P *out = static_cast<P *>(work);
    const DWORD f = DWORD(x->yFraction) & 0x3FFF;
    const LONG next = x->srcNextStride;
    for (LONG i = 0; i < count; ++i) {
      C::template Get<W>(r, off, i, out[i], c);
      if (f && next) {
        P below;
        C::template Get<W>(r + next, off, i, below, c);
        LerpPixel<W>(out[i], out[i], below, f);
      }
    }
    return work;
  }

  static void WINAPI ReadSampledBlended(tKYDIBXCHGPARAMS *x, const void *row, LONG off,
                                        LONG pos, LONG step, void *work, LONG count) {
    const Ctx c = SourceCtx(x);
    const BYTE *r = static_cast<const BYTE *>(row);
    P *out = static_cast<P *>(work);
    const DWORD f = DWORD(x->yFraction) & 0x3FFF;
    const LONG next = x->srcNextStride;
    for (LONG i = 0; i < count; ++i, pos += step) {
      Sample(c, r, off, pos, out[i]);
      if (f && next) {
        P below;
        Sample(c, r + next, off, pos, below);
        LerpPixel<W>(out[i], out[i], below, f);
      }
    }
  }

  static void WINAPI ReadPixel(tKYDIBXCHGPARAMS *x, const void *row, LONG off, LONG index,
                               void *out) {
    C::template Get<W>(static_cast<const BYTE *>(row), off, index, *static_cast<P *>(out),
                       SourceCtx(x));
  }
};

// Direct path: the type is stored exactly like the working form.
template <class W>
struct DirectRows {
  static void *WINAPI ReadRow(tKYDIBXCHGPARAMS *, const void *row, LONG, void *, LONG) {
    return const_cast<void *>(row);
  }
  static void WINAPI WriteRow(tKYDIBXCHGPARAMS *, void *row, LONG, const void *work,
                              LONG count) {
    if (work != row && count > 0) memmove(row, work, size_t(count) * sizeof(typename W::Pixel));
  }
};

struct RoutineSet {
  KYXCHGREADPROC read;
  KYXCHGWRITEPROC write;
  KYXCHGSAMPLEPROC sampled;
  KYXCHGREADPROC blended;
  KYXCHGPIXELPROC pixel;
  KYXCHGREADPROC readDst;
  KYXCHGSAMPLEPROC sampledOne;
  KYXCHGSAMPLEPROC sampledBlended;
};

template <class C, class W>
constexpr RoutineSet Converting() {
  typedef Rows<C, W> R;
  return RoutineSet{&R::ReadRow,   &R::WriteRow,   &R::ReadSampled,    &R::ReadBlended,
                    &R::ReadPixel, &R::ReadDstRow, &R::ReadSampledOne, &R::ReadSampledBlended};
}

template <class C, class W>
constexpr RoutineSet Direct() {
  RoutineSet s = Converting<C, W>();
  s.read = &DirectRows<W>::ReadRow;
  s.write = &DirectRows<W>::WriteRow;
  return s;
}

typedef GrayCodec<1> Gray1;  // KYPT_RGB1 without a table reads like 1-bit gray
typedef ByteCodec<4, true> Rgba32Codec;

// Columns: 0 generic 8-bit, 1 generic 16-bit, 2 direct 8-bit, 3 direct 16-bit.
template <class W>
constexpr RoutineSet GrayRow(int type) {
  switch (type) {
    case KYPT_RGB1: return Converting<PaletteCodec<1>, W>();
    case KYPT_GRAY1: return Converting<GrayCodec<1>, W>();
    case KYPT_GRAY2: return Converting<GrayCodec<2>, W>();
    case KYPT_GRAY4: return Converting<GrayCodec<4>, W>();
    case KYPT_GRAY8: return Converting<GrayCodec<8>, W>();
    case KYPT_GRAY16: return Converting<GrayCodec<16>, W>();
    default: return Converting<GrayCodec<32>, W>();
  }
}

template <class W>
constexpr RoutineSet ColourRow(int type) {
  switch (type) {
    case KYPT_RGB4: return Converting<PaletteCodec<4>, W>();
    case KYPT_RGB8: return Converting<PaletteCodec<8>, W>();
    case KYPT_RGB555: return Converting<PackedCodec<5, 5, 5, 16>, W>();
    case KYPT_RGB565: return Converting<PackedCodec<5, 6, 5, 16>, W>();
    case KYPT_RGB24: return Converting<ByteCodec<3, false>, W>();
    case KYPT_RGB32: return Converting<ByteCodec<4, false>, W>();
    case KYPT_RGBA32: return Converting<Rgba32Codec, W>();
    case KYPT_RGB101010: return Converting<PackedCodec<10, 10, 10, 32>, W>();
    case KYPT_RGBA64: return Converting<Rgba64Codec, W>();
    default: return Converting<FloatCodec, W>();
  }
}

constexpr RoutineSet kNone = {};

const RoutineSet kGrayRoutines[4][7] = {
    {GrayRow<W8>(16), GrayRow<W8>(17), GrayRow<W8>(18), GrayRow<W8>(19), GrayRow<W8>(20),
     GrayRow<W8>(21), GrayRow<W8>(22)},
    {GrayRow<W16>(16), GrayRow<W16>(17), GrayRow<W16>(18), GrayRow<W16>(19), GrayRow<W16>(20),
     GrayRow<W16>(21), GrayRow<W16>(22)},
    {kNone, kNone, kNone, kNone, kNone, kNone, kNone},  // no gray type is stored as the
    {kNone, kNone, kNone, kNone, kNone, kNone, kNone},  // working form
};

const RoutineSet kColourRoutines[4][10] = {
    {ColourRow<W8>(23), ColourRow<W8>(24), ColourRow<W8>(25), ColourRow<W8>(26),
     ColourRow<W8>(27), ColourRow<W8>(28), ColourRow<W8>(29), ColourRow<W8>(30),
     ColourRow<W8>(31), ColourRow<W8>(32)},
    {ColourRow<W16>(23), ColourRow<W16>(24), ColourRow<W16>(25), ColourRow<W16>(26),
     ColourRow<W16>(27), ColourRow<W16>(28), ColourRow<W16>(29), ColourRow<W16>(30),
     ColourRow<W16>(31), ColourRow<W16>(32)},
    {kNone, kNone, kNone, kNone, kNone, kNone, Direct<Rgba32Codec, W8>(), kNone, kNone, kNone},
    {kNone, kNone, kNone, kNone, kNone, kNone, kNone, kNone, Direct<Rgba64Codec, W16>(),
     kNone},
};

const RoutineSet &Routines(LONG type, int column) {
  return type < KYPT_RGB4 ? kGrayRoutines[column][type - KYPT_RGB1]
                          : kColourRoutines[column][type - KYPT_RGB4];
}

// ---------------------------------------------------------------------------------------
// Operations on working rows.

template <class W>
inline DWORD Apply(int op, DWORD d, DWORD s) {
  const DWORD m = W::kMax;
  switch (op) {
    case KYXCHGOP_COPY: return s;
    case KYXCHGOP_ADD: return d + s > m ? m : d + s;
    case KYXCHGOP_SUBTRACT: return d > s ? d - s : 0;
    case KYXCHGOP_MULTIPLY: return DWORD((ULONGLONG(d) * s + m / 2) / m);
    case KYXCHGOP_SCREEN: return d + s - DWORD((ULONGLONG(d) * s + m / 2) / m);
    case KYXCHGOP_DARKEN: return d < s ? d : s;
    case KYXCHGOP_LIGHTEN: return d > s ? d : s;
    default: return d > s ? d - s : s - d;  // difference
  }
}

// d + (r - d) x weight / max, rounded.
template <class W>
inline typename W::Channel Mix(DWORD d, DWORD r, DWORD weight) {
  if constexpr (W::kBits == 8) {
    return typename W::Channel((d * (255 - weight) + r * weight + 127) / 255);
  } else {
    const ULONGLONG m = W::kMax;
    return typename W::Channel((ULONGLONG(d) * (m - weight) + ULONGLONG(r) * weight + m / 2) / m);
  }
}

template <class W>
inline typename W::Pixel SolidColour(const tKYDIBXCHGPARAMS *x) {
  const DWORD c = x->op[2];
  typename W::Pixel p;
  p.blue = Expand<8, W>(c & 0xFF);
  p.green = Expand<8, W>((c >> 8) & 0xFF);
  p.red = Expand<8, W>((c >> 16) & 0xFF);
  p.alpha = Expand<8, W>(c >> 24);
  return p;
}

template <class W, int Op, bool SrcAlpha, bool Opacity, bool Solid>
void Combine(tKYDIBXCHGPARAMS *x, void *dstWork, const void *srcWork, const BYTE *coverage,
             LONG count) {
  typedef typename W::Pixel P;
  const ULONGLONG m = W::kMax;
  P *d = static_cast<P *>(dstWork);
  const P *s = static_cast<const P *>(srcWork);
  P solid{};
  if constexpr (Solid) solid = SolidColour<W>(x);
  DWORD opacity = 65536;
  if constexpr (Opacity) opacity = x->op[1] > 65536 ? 65536 : x->op[1];
  for (LONG i = 0; i < count; ++i) {
    const P &src = Solid ? solid : s[i];
    ULONGLONG w = coverage ? (ULONGLONG(coverage[i]) * m + 127) / 255 : m;
    if constexpr (Opacity) w = (w * opacity + 32768) >> 16;
    P &dst = d[i];
    if constexpr (SrcAlpha) {
      const DWORD weight = DWORD((w * src.alpha + m / 2) / m);
      dst.blue = Mix<W>(dst.blue, Apply<W>(Op, dst.blue, src.blue), weight);
      dst.green = Mix<W>(dst.green, Apply<W>(Op, dst.green, src.green), weight);
      dst.red = Mix<W>(dst.red, Apply<W>(Op, dst.red, src.red), weight);
      // Alpha composes like "over": weight + dst x (1 - weight).
      dst.alpha = typename W::Channel(weight + (ULONGLONG(dst.alpha) * (m - weight) + m / 2) / m);
    } else {
      const DWORD weight = DWORD(w);
      dst.blue = Mix<W>(dst.blue, Apply<W>(Op, dst.blue, src.blue), weight);
      dst.green = Mix<W>(dst.green, Apply<W>(Op, dst.green, src.green), weight);
      dst.red = Mix<W>(dst.red, Apply<W>(Op, dst.red, src.red), weight);
      dst.alpha = Mix<W>(dst.alpha, Apply<W>(Op, dst.alpha, src.alpha), weight);
    }
  }
}

// One table entry: picks the working form from the record's flags.
template <int Op, bool SrcAlpha, bool Opacity, bool Solid, bool WithCoverage>
void WINAPI OpEntry(tKYDIBXCHGPARAMS *x, void *dstWork, const void *srcWork,
                    const BYTE *coverage, LONG count) {
  if (!WithCoverage) coverage = nullptr;
  if (x->flags & KYXCHG_DEEP)
    Combine<W16, Op, SrcAlpha, Opacity, Solid>(x, dstWork, srcWork, coverage, count);
  else
    Combine<W8, Op, SrcAlpha, Opacity, Solid>(x, dstWork, srcWork, coverage, count);
}

constexpr int kOpsPerBlock = 20;
constexpr int kImplementedOps = 8;

struct OpSet {
  KYXCHGOPPROC row, rowCoverage, solid, solidCoverage;
};

template <int Op, bool SrcAlpha, bool Opacity>
constexpr OpSet MakeOp() {
  return OpSet{&OpEntry<Op, SrcAlpha, Opacity, false, false>,
               &OpEntry<Op, SrcAlpha, Opacity, false, true>,
               &OpEntry<Op, SrcAlpha, Opacity, true, false>,
               &OpEntry<Op, SrcAlpha, Opacity, true, true>};
}

template <bool SrcAlpha, bool Opacity>
constexpr void FillBlock(OpSet *block) {
  block[0] = MakeOp<0, SrcAlpha, Opacity>();
  block[1] = MakeOp<1, SrcAlpha, Opacity>();
  block[2] = MakeOp<2, SrcAlpha, Opacity>();
  block[3] = MakeOp<3, SrcAlpha, Opacity>();
  block[4] = MakeOp<4, SrcAlpha, Opacity>();
  block[5] = MakeOp<5, SrcAlpha, Opacity>();
  block[6] = MakeOp<6, SrcAlpha, Opacity>();
  block[7] = MakeOp<7, SrcAlpha, Opacity>();
  static_assert(kImplementedOps == 8);
}

// Operation tables: 20 entries per block; block = path column (0 generic, 2 direct) plus 1
// with KYXCHG_SRCALPHA. The second set (KYXCHG_OPACITY) applies operand 1's opacity. The
// generic and direct blocks hold the same routines: both work on working-form rows.
struct OpTables {
  OpSet first[4 * kOpsPerBlock];
  OpSet second[4 * kOpsPerBlock];
};

constexpr OpTables MakeOpTables() {
  OpTables t{};
  for (int block = 0; block < 4; ++block) {
    const bool alpha = block & 1;
    OpSet *f = t.first + block * kOpsPerBlock;
    OpSet *s = t.second + block * kOpsPerBlock;
    if (alpha) {
      FillBlock<true, false>(f);
      FillBlock<true, true>(s);
    } else {
      FillBlock<false, false>(f);
      FillBlock<false, true>(s);
    }
  }
  return t;
}

const OpTables kOps = MakeOpTables();

} // namespace

} // namespace ky::image

using namespace ky::image;

extern "C" HRESULT WINAPI KyDibPrepareXchgParams(KYPIXELTYPE dstType, KYPIXELTYPE srcType,
                                                 DWORD flags, tKYDIBXCHGPARAMS *x,
                                                 const DWORD *opBlock) {
  if (!x) return E_INVALIDARG;
  memset(x, 0, sizeof *x);
  if (!IsKnownType(dstType) || !IsKnownType(srcType)) return E_INVALIDARG;

  switch (flags & 0xF) {
    case 1: flags = (flags & 0x07FFF1F0u) + 0x180; break;
    case 2: flags = (flags & 0x07FFF1F0u) + 0x000 + 0x1C0; break;
    case 3: flags = (flags & 0x07FFF1F0u) + 0x020 + 0x1C0; break;
    case 4: flags = (flags & 0x07FFF1F0u) + 0x030 + 0x1C0; break;
    default: break;
  }
  const int deep = (flags & KYXCHG_DEEP) ? 1 : 0;
  if (!Routines(srcType, 2 + deep).read || !Routines(dstType, 2 + deep).read)
    flags |= KYXCHG_GENERIC;
  const int pathColumn = (flags & KYXCHG_GENERIC) ? 0 : 2;
  const int column = pathColumn + deep;

  const RoutineSet &src = Routines(srcType, column);
  const RoutineSet &dst = Routines(dstType, column);
  x->flags = flags;
  x->srcType = srcType;
  x->dstType = dstType;
  x->readRow = src.read;
  x->writeRow = dst.write;
  x->readSampled = src.sampled;
  x->readBlended = src.blended;
  x->readPixel = src.pixel;
  x->readDstRow = dst.readDst;
  x->readSampledOne = src.sampledOne;
  x->readSampledBlended = src.sampledBlended;
  x->flagsByte = (flags >> 16) & 0xFF;

  if (opBlock) {
    memcpy(x->op, opBlock, sizeof x->op);
    const DWORD block = DWORD(pathColumn) + ((flags & KYXCHG_SRCALPHA) ? 1 : 0);
    const DWORD index = x->op[0] + kOpsPerBlock * block;
    const OpSet *table = (flags & KYXCHG_OPACITY) ? kOps.second : kOps.first;
    // Indexes past the tables (a wild operation word) have no routines either.
    if (x->op[0] >= DWORD(kOpsPerBlock) || !table[index].row) {
      memset(x, 0, sizeof *x);
      return E_NOTIMPL;
    }
    x->opRow = table[index].row;
    x->opRowCoverage = table[index].rowCoverage;
    x->opSolid = table[index].solid;
    x->opSolidCoverage = table[index].solidCoverage;
  }
  return S_OK;
}
