// The conversion matrix, every converter against the reference, the processor variants
// against the plain loops, and in-place conversion against out-of-place.
#include "ky_testutil.h"
#include "audio_ref.h"
#include "ky_kernel.h"

#include <set>
#include <string>
#include <xmmintrin.h>

using namespace audioref;

namespace {

// The pairs that have a converter: {dst, {sources}}.
struct MatrixRow {
  KYSAMPLETYPE dst;
  std::set<KYSAMPLETYPE> src;
};
const MatrixRow kMatrix[] = {
    {16, {16, 17, 18, 19, 32, 33, 48, 49}},
    {17, {16, 17, 18, 19, 32, 33, 48, 49, 64, 65}},
    {18, {16, 17, 18, 19, 32, 33, 48, 49, 65}},
    {19, {16, 17, 18, 19, 32, 33, 48, 49, 66}},
    {32, {16, 17, 18, 19, 32, 33, 48, 49, 64, 65}},
    {33, {16, 17, 18, 19, 32, 33, 48, 49, 64, 65}},
    {48, {16, 17, 18, 19, 32, 33, 48, 49}},
    {49, {16, 17, 18, 19, 32, 33, 48, 49}},
    {64, {17, 19, 32, 33, 65}},
    {65, {17, 18, 19, 32, 33}},
    {66, {}},
};

bool HasConverter(KYSAMPLETYPE d, KYSAMPLETYPE s) {
  for (const MatrixRow &r : kMatrix)
    if (r.dst == d) return r.src.count(s) != 0;
  return false;
}

const float kGains[] = {1.0f, 0.5f, 1.7f, -1.0f, 0.0f, 3.0517578e-5f, NAN};

std::string Pair(KYSAMPLETYPE d, KYSAMPLETYPE s, float g) {
  return std::string(Of(d).name) + " <- " + Of(s).name + " gain " + std::to_string(g);
}

// Runs f over src and checks every output sample against the reference; returns the
// number of mismatches (the first few are reported).
int CheckAgainstReference(KYAUDIOCOPYFUNC f, KYSAMPLETYPE d, KYSAMPLETYPE s,
                          const std::vector<uint8_t> &src, float gain) {
  const Type &D = Of(d), &S = Of(s);
  const size_t n = src.size() / S.bytes;
  std::vector<uint8_t> out(n * D.bytes + 8, 0xCD), ref(D.bytes);
  f(out.data(), src.data(), LONG(n), gain);
  int bad = 0;
  for (size_t i = 0; i < n; ++i) {
    Convert(d, ref.data(), s, &src[i * S.bytes], gain);
    if (!SameSample(d, &out[i * D.bytes], ref.data())) {
      if (++bad <= 3) {
        ADD_FAILURE() << Pair(d, s, gain) << " sample " << i << " in "
                      << (S.isFloat ? GetFloat(s, &src[i * S.bytes])
                                    : double(GetInt(s, &src[i * S.bytes])))
                      << " out " << (D.isFloat ? GetFloat(d, &out[i * D.bytes])
                                               : double(GetInt(d, &out[i * D.bytes])))
                      << " want " << (D.isFloat ? GetFloat(d, ref.data())
                                                : double(GetInt(d, ref.data())));
      }
    }
  }
  for (size_t i = n * D.bytes; i < out.size(); ++i)
    if (out[i] != 0xCD) {
      ADD_FAILURE() << Pair(d, s, gain) << " wrote past the end";
      break;
    }
  return bad;
}

TEST(AudioConvert, MatrixHasExactlyTheListedPairs) {
  const KYSAMPLETYPE all[] = {0, 1, 15, 16, 17, 18, 19, 20, 32, 33, 48, 49, 64, 65, 66, 67};
  for (KYSAMPLETYPE d : all)
    for (KYSAMPLETYPE s : all)
      EXPECT_EQ(KyAudio_GetCopyFunction2(d, s) != nullptr, HasConverter(d, s)) << d << " <- " << s;
}

TEST(AudioConvert, EveryConverterMatchesTheReference) {
  const unsigned seed = 20261123;
  for (const Type &S : kTypes) {
    const std::vector<uint8_t> src = SourceSamples(S.t, seed);
    for (const Type &D : kTypes) {
      KYAUDIOCOPYFUNC f = KyAudio_GetCopyFunction2(D.t, S.t);
      if (!f) continue;
      for (float g : kGains)
        EXPECT_EQ(CheckAgainstReference(f, D.t, S.t, src, g), 0) << Pair(D.t, S.t, g)
                                                                 << " seed " << seed;
    }
  }
}

// The examples every user of the library relies on.
TEST(AudioConvert, FloatToSixteenBitExamples) {
  struct Row {
    float in;
    int16_t out;
  } rows[] = {{1.5f, 32767},      {-1.0f, -32768},     {0.99999f, 32767}, {-0.00002f, 0},
              {1.0f, 32767},      {-1.5f, -32768},     {0.5f, 16384},     {-0.5f, -16384},
              {-0.9999f, -32764}, {1e-40f, 0},         {NAN, 0},          {INFINITY, 32767},
              {-INFINITY, -32768}};
  KYAUDIOCOPYFUNC f = KyAudio_GetCopyFunction2(KYSAMPLE_S16, KYSAMPLE_F32);
  ASSERT_NE(f, nullptr);
  for (const Row &r : rows) {
    int16_t out = 0x1234;
    f(&out, &r.in, 1, 1.0f);
    EXPECT_EQ(out, r.out) << r.in;
  }
  // Unsigned 8-bit: clamp, then flip the sign bit.
  const float in[] = {1.0f, -1.0f, 0.0f, -0.0078125f};
  uint8_t u8[4];
  KyAudio_GetCopyFunction2(KYSAMPLE_U8, KYSAMPLE_F32)(u8, in, 4, 1.0f);
  EXPECT_EQ(u8[0], 0xFF);
  EXPECT_EQ(u8[1], 0x00);
  EXPECT_EQ(u8[2], 0x80);
  EXPECT_EQ(u8[3], 0x7F);
  // 32-bit: at or above 2^31-1 gives 0x7FFFFFFF, below -2^31 gives 0x80000000.
  const double d[] = {1.0, -1.0, 2.0, -2.0};
  int32_t s32[4];
  KyAudio_GetCopyFunction2(KYSAMPLE_S32, KYSAMPLE_F64)(s32, d, 4, 1.0f);
  EXPECT_EQ(s32[0], 0x7FFFFFFF);
  EXPECT_EQ(s32[1], int32_t(0x80000000));
  EXPECT_EQ(s32[2], 0x7FFFFFFF);
  EXPECT_EQ(s32[3], int32_t(0x80000000));
}

TEST(AudioConvert, ProcessorVariantsGiveThePlainBits) {
  auto forLevel = kytest::Export<KYAUDIOCOPYFUNC(WINAPI *)(KYSAMPLETYPE, KYSAMPLETYPE, LONG)>(
      "KyInternal_AudioConverterForLevel");
  auto forCpu =
      kytest::Export<KYAUDIOCOPYFUNC(WINAPI *)(KYSAMPLETYPE, KYSAMPLETYPE, LONG, DWORD)>(
          "KyInternal_AudioConverterForCpu");
  ASSERT_NE(forLevel, nullptr);
  ASSERT_NE(forCpu, nullptr);
  // The byte-shuffle loops run only where the processor has them.
  const bool ssse3 = (DWORD(KyGetCPUSupport(KYCPU_FEATURES)) & KYCPU_SSSE3) != 0;
  const KYSAMPLETYPE pairs[][2] = {{KYSAMPLE_F32, KYSAMPLE_S16},
                                   {KYSAMPLE_F32, KYSAMPLE_S24},
                                   {KYSAMPLE_S16, KYSAMPLE_F32},
                                   {KYSAMPLE_S24, KYSAMPLE_F32},
                                   {KYSAMPLE_F64, KYSAMPLE_F32}};
  const unsigned seed = 77;
  for (auto &p : pairs) {
    const KYSAMPLETYPE d = p[0], s = p[1];
    KYAUDIOCOPYFUNC plain = forLevel(d, s, 0);
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(forLevel(d, s, -1), plain);
    EXPECT_EQ(forCpu(d, s, 1, KYCPU_SSSE3), plain) << Pair(d, s, 1) << " level 1 is plain";
    EXPECT_EQ(forCpu(d, s, 3, 0), forLevel(d, s, 3));
    // Levels -1..7 of the SSE2 forms, then levels 2..5 with SSSE3 reported.
    struct Variant {
      KYAUDIOCOPYFUNC f;
      std::string name;
    };
    std::vector<Variant> list;
    for (LONG level = -1; level <= 7; ++level)
      list.push_back({forLevel(d, s, level), "level " + std::to_string(level)});
    if (ssse3) {
      for (LONG level = 2; level <= 5; ++level)
        list.push_back({forCpu(d, s, level, KYCPU_SSSE3), "ssse3 level " + std::to_string(level)});
    }
    std::set<KYAUDIOCOPYFUNC> variants;
    const std::vector<uint8_t> src = SourceSamples(s, seed);
    const size_t total = src.size() / Of(s).bytes;
    for (const Variant &v : list) {
      KYAUDIOCOPYFUNC f = v.f;
      if (!variants.insert(f).second) continue; // already compared
      // Lengths around the block sizes, at odd offsets, so every tail path runs.
      for (size_t n : {size_t(0), size_t(1), size_t(5), size_t(6), size_t(7), size_t(9),
                       size_t(15), size_t(16), size_t(17), size_t(33), size_t(48), total - 3,
                       total}) {
        for (size_t off : {size_t(0), size_t(1)}) {
          if (off + n > total) continue;
          // The last gain is large enough for a denormal source sample to reach +-1 and more.
          for (float g : {1.0f, 0.75f, -2.5f, 3e37f}) {
            std::vector<uint8_t> a(n * Of(d).bytes + 16, 0xEE), b = a;
            plain(a.data() + 1, &src[off * Of(s).bytes], LONG(n), g);
            f(b.data() + 1, &src[off * Of(s).bytes], LONG(n), g);
            ASSERT_EQ(a, b) << Pair(d, s, g) << " " << v.name << " n " << n << " offset " << off;
          }
        }
      }
      // In place, at a gain and at unity.
      for (float g : {0.5f, 1.0f}) {
        std::vector<uint8_t> want(total * Of(d).bytes);
        plain(want.data(), src.data(), LONG(total), g);
        std::vector<uint8_t> buf(total * (Of(d).bytes > Of(s).bytes ? Of(d).bytes : Of(s).bytes));
        memcpy(buf.data(), src.data(), src.size());
        const unsigned csr = _mm_getcsr();
        f(buf.data(), buf.data(), LONG(total), g);
        EXPECT_EQ(_mm_getcsr(), csr) << Pair(d, s, g) << " changed MXCSR, " << v.name;
        buf.resize(want.size());
        EXPECT_TRUE(buf == want) << Pair(d, s, g) << " in place, " << v.name;
      }
    }
    const bool shuffled = ssse3 && s != KYSAMPLE_S16 && d != KYSAMPLE_S16 && d != KYSAMPLE_F64;
    EXPECT_GE(variants.size(), shuffled ? 3u : 2u) << Pair(d, s, 1) << " has no processor variant";
  }
}

// Large, aligned buffers take the streaming stores of the 16-bit to float32 variant.
TEST(AudioConvert, LargeAlignedBuffersGiveThePlainBits) {
  auto forLevel = kytest::Export<KYAUDIOCOPYFUNC(WINAPI *)(KYSAMPLETYPE, KYSAMPLETYPE, LONG)>(
      "KyInternal_AudioConverterForLevel");
  ASSERT_NE(forLevel, nullptr);
  const LONG n = 300001;
  auto *a = static_cast<float *>(VirtualAlloc(nullptr, n * 8, MEM_COMMIT, PAGE_READWRITE));
  auto *b = static_cast<float *>(VirtualAlloc(nullptr, n * 8, MEM_COMMIT, PAGE_READWRITE));
  ASSERT_TRUE(a && b);
  std::vector<int16_t> src(n);
  for (LONG i = 0; i < n; ++i) src[i] = int16_t(i * 7919);
  for (LONG level : {2, 5}) {
    forLevel(KYSAMPLE_F32, KYSAMPLE_S16, 0)(a, src.data(), n, 0.25f);
    forLevel(KYSAMPLE_F32, KYSAMPLE_S16, level)(b, src.data(), n, 0.25f);
    EXPECT_EQ(memcmp(a, b, n * 4), 0) << "level " << level;
    memcpy(b, src.data(), n * 2); // in place
    forLevel(KYSAMPLE_F32, KYSAMPLE_S16, level)(b, b, n, 0.25f);
    EXPECT_EQ(memcmp(a, b, n * 4), 0) << "in place, level " << level;
  }
  VirtualFree(a, 0, MEM_RELEASE);
  VirtualFree(b, 0, MEM_RELEASE);
}

TEST(AudioConvert, InPlaceEqualsOutOfPlace) {
  const unsigned seed = 5;
  for (const Type &S : kTypes) {
    const std::vector<uint8_t> src = SourceSamples(S.t, seed);
    const size_t n = src.size() / S.bytes;
    for (const Type &D : kTypes) {
      KYAUDIOCOPYFUNC f = KyAudio_GetCopyFunction2(D.t, S.t);
      if (!f) continue;
      for (float g : {1.0f, 0.3f}) {
        std::vector<uint8_t> out(n * D.bytes);
        f(out.data(), src.data(), LONG(n), g);
        std::vector<uint8_t> inplace(n * (D.bytes > S.bytes ? D.bytes : S.bytes));
        memcpy(inplace.data(), src.data(), src.size());
        f(inplace.data(), inplace.data(), LONG(n), g);
        inplace.resize(out.size());
        EXPECT_TRUE(inplace == out) << Pair(D.t, S.t, g);
      }
    }
  }
}

WAVEFORMATEX Fmt(WORD tag, WORD bits, WORD channels) {
  WAVEFORMATEX f = {};
  f.wFormatTag = tag;
  f.wBitsPerSample = bits;
  f.nChannels = channels;
  f.nSamplesPerSec = 48000;
  f.nBlockAlign = WORD(bits / 8 * channels);
  return f;
}

TEST(AudioConvert, CopyRunsFramesTimesSourceChannels) {
  WAVEFORMATEX s16 = Fmt(1, 16, 2), f32 = Fmt(3, 32, 2), be32 = Fmt(0xFE02, 32, 2);
  const int16_t in[6] = {16384, -16384, 32767, -32768, 1, -1};
  float out[8];
  for (float &o : out) o = 99.0f;
  EXPECT_EQ(KyAudio_Copy(&f32, out, &s16, in, 2, 0x3F800000), S_OK);
  EXPECT_EQ(out[0], 0.5f);
  EXPECT_EQ(out[1], -0.5f);
  EXPECT_EQ(out[3], -1.0f);
  EXPECT_EQ(out[4], 99.0f); // frame 3 untouched
  EXPECT_EQ(KyAudio_Copy(&f32, out, &s16, in, 1, 0x40000000), S_OK); // gain 2.0
  EXPECT_EQ(out[0], 1.0f);
  // 0 frames succeeds even for a pair without a converter; with frames it does not.
  EXPECT_EQ(KyAudio_Copy(&be32, out, &f32, out, 0, 0x3F800000), S_OK);
  EXPECT_EQ(KyAudio_Copy(&be32, out, &f32, out, 1, 0x3F800000), E_NOTIMPL);
  EXPECT_EQ(KyAudio_Copy(nullptr, out, &f32, out, 1, 0x3F800000), E_NOTIMPL);
  EXPECT_EQ(KyAudio_Copy(&f32, nullptr, &s16, in, 1, 0x3F800000), E_POINTER);
  EXPECT_EQ(KyAudio_Copy(&f32, out, &s16, in, -1, 0x3F800000), E_FAIL);
  EXPECT_EQ(KyAudio_GetCopyFunction(&f32, &s16), KyAudio_GetCopyFunction2(32, 17));
  EXPECT_EQ(KyAudio_GetCopyFunction(&be32, &f32), nullptr);
}

} // namespace
