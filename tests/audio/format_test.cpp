// Classification of wave formats into sample types, type sizes, header repair, equality.
#include "ky_testutil.h"
#include "ky_audio.h"

#include <string.h>
#include <mmsystem.h>
#include <msacm.h>

namespace {

WAVEFORMATEXTENSIBLE Wfx(WORD tag, WORD bits, WORD channels = 2, DWORD rate = 44100) {
  WAVEFORMATEXTENSIBLE x;
  memset(&x, 0, sizeof x);
  x.Format.wFormatTag = tag;
  x.Format.nChannels = channels;
  x.Format.nSamplesPerSec = rate;
  x.Format.wBitsPerSample = bits;
  x.Format.nBlockAlign = static_cast<WORD>(bits / 8 * channels);
  x.Format.nAvgBytesPerSec = rate * x.Format.nBlockAlign;
  return x;
}

const GUID kPcm = {0x00000001, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
const GUID kFloat = {0x00000003, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

struct ClassRow {
  WORD tag;
  WORD bits;
  KYSAMPLETYPE expected;
};

const ClassRow kClassRows[] = {
    {1, 8, 16}, {1, 16, 17}, {1, 24, 18}, {1, 32, 19}, {1, 20, 0}, {1, 12, 0}, {1, 64, 0},
    {0xFE01, 8, 49}, {0xFE01, 16, 17}, {0xFE01, 24, 18}, {0xFE01, 32, 19}, {0xFE01, 4, 0},
    {3, 32, 32}, {3, 64, 33}, {3, 16, 0}, {3, 24, 0},
    {0xFE00, 24, 48}, {0xFE00, 32, 48}, {0xFE00, 16, 0},
    {0xFE02, 8, 16}, {0xFE02, 16, 64}, {0xFE02, 24, 65}, {0xFE02, 32, 66}, {0xFE02, 64, 0},
    {2, 16, 0}, {0x55, 0, 0}, {0xFE03, 16, 0}, {0, 16, 0},
};

TEST(AudioFormat, ClassifiesEveryTagAndSize) {
  for (const ClassRow &r : kClassRows) {
    WAVEFORMATEXTENSIBLE x = Wfx(r.tag, r.bits);
    EXPECT_EQ(KyAudio_GetSampleType(&x.Format), r.expected)
        << "tag " << std::hex << r.tag << std::dec << " bits " << r.bits;
  }
  EXPECT_EQ(KyAudio_GetSampleType(nullptr), 0);
}

TEST(AudioFormat, ClassifiesExtensibleByItsSubFormatAndValidBits) {
  struct Row {
    const GUID *sub;
    WORD bits, valid;
    KYSAMPLETYPE expected;
  } rows[] = {
      {&kPcm, 8, 8, 16},   {&kPcm, 16, 16, 17},  {&kPcm, 24, 24, 18}, {&kPcm, 24, 20, 18},
      {&kPcm, 32, 32, 19}, {&kPcm, 32, 24, 19},  {&kPcm, 32, 20, 0},  {&kPcm, 32, 0, 0},
      {&kPcm, 20, 20, 0},  {&kFloat, 32, 32, 0}, {&kFloat, 16, 16, 0},
  };
  for (const Row &r : rows) {
    WAVEFORMATEXTENSIBLE x = Wfx(WAVE_FORMAT_EXTENSIBLE, r.bits);
    x.Format.cbSize = 22;
    x.Samples.wValidBitsPerSample = r.valid;
    x.SubFormat = *r.sub;
    EXPECT_EQ(KyAudio_GetSampleType(&x.Format), r.expected) << r.bits << "/" << r.valid;
  }
}

TEST(AudioFormat, SizesOfEveryType) {
  struct Row {
    KYSAMPLETYPE t;
    LONG bits, bytes, tag;
  } rows[] = {
      {0, 0, 0, 0},          {16, 8, 1, 1},         {17, 16, 2, 1},        {18, 24, 3, 1},
      {19, 32, 4, 1},        {32, 32, 4, 3},        {33, 64, 8, 3},        {48, 32, 4, 0xFE00},
      {49, 8, 1, 0xFE01},    {64, 16, 2, 0xFE02},   {65, 24, 3, 0xFE02},   {66, 32, 4, 0xFE02},
      {15, 0, 0, 0},         {20, 0, 0, 0},         {34, 0, 0, 0},         {50, 0, 0, 0},
      {67, 0, 0, 0},         {-1, 0, 0, 0},         {0x7FFFFFFF, 0, 0, 0},
  };
  for (const Row &r : rows) {
    EXPECT_EQ(KyAudio_BitsFromSampleType(r.t), r.bits) << r.t;
    EXPECT_EQ(KyAudio_BytesFromSampleType(r.t), r.bytes) << r.t;
    EXPECT_EQ(KyAudio_FormatTagFromSampleType(r.t), r.tag) << r.t;
  }
  EXPECT_EQ(KyAudio_GetNormalizeFactor(8), 128.0);
  EXPECT_EQ(KyAudio_GetNormalizeFactor(16), 32768.0);
  EXPECT_EQ(KyAudio_GetNormalizeFactor(24), 8388608.0);
  EXPECT_EQ(KyAudio_GetNormalizeFactor(32), 2147483648.0);
  EXPECT_EQ(KyAudio_GetNormalizeFactor(20), 1.0);
  EXPECT_EQ(KyAudio_GetNormalizeFactor(64), 1.0);
}

TEST(AudioFormat, FixBadWfxRepairsOnlyPcm) {
  WAVEFORMATEXTENSIBLE x = Wfx(1, 20, 2);
  x.Format.nBlockAlign = 5;
  x.Format.nAvgBytesPerSec = 12345;
  EXPECT_EQ(KyAudio_GetSampleType(&x.Format), 0);
  EXPECT_TRUE(KyAudio_FixBadWfx(&x.Format));
  EXPECT_EQ(x.Format.wBitsPerSample, 24);
  EXPECT_EQ(x.Format.nBlockAlign, 6);
  EXPECT_EQ(x.Format.nAvgBytesPerSec, 12345u); // left alone
  EXPECT_EQ(KyAudio_GetSampleType(&x.Format), 18);
  EXPECT_FALSE(KyAudio_FixBadWfx(&x.Format)); // nothing left to repair

  x = Wfx(1, 16, 2);
  x.Format.nBlockAlign = 8;
  EXPECT_TRUE(KyAudio_FixBadWfx(&x.Format));
  EXPECT_EQ(x.Format.nBlockAlign, 4);

  x = Wfx(1, 20, 1); // only the bits change: 20/8 = 2 was the old block size
  x.Format.nBlockAlign = 3;
  EXPECT_TRUE(KyAudio_FixBadWfx(&x.Format));
  EXPECT_EQ(x.Format.nBlockAlign, 3);

  for (WORD tag : {WORD(3), WORD(0xFE00), WORD(0xFE01), WORD(0xFE02), WORD(0xFFFE)}) {
    x = Wfx(tag, 20, 2);
    x.Format.nBlockAlign = 1;
    EXPECT_FALSE(KyAudio_FixBadWfx(&x.Format)) << tag;
    EXPECT_EQ(x.Format.wBitsPerSample, 20);
    EXPECT_EQ(x.Format.nBlockAlign, 1);
  }
  EXPECT_FALSE(KyAudio_FixBadWfx(nullptr));
}

TEST(AudioFormat, IsEqualFormatComparesFourFields) {
  WAVEFORMATEXTENSIBLE a = Wfx(1, 16, 2), b = a;
  EXPECT_TRUE(KyAudio_IsEqualFormat(&a.Format, &b.Format));
  b.Format.nBlockAlign = 99; // not compared
  b.Format.nAvgBytesPerSec = 1;
  EXPECT_TRUE(KyAudio_IsEqualFormat(&a.Format, &b.Format));
  a = Wfx(0xFFFE, 16, 2);
  b = a;
  a.SubFormat = kPcm;
  b.SubFormat = kFloat; // not compared
  EXPECT_TRUE(KyAudio_IsEqualFormat(&a.Format, &b.Format));

  WAVEFORMATEXTENSIBLE base = Wfx(1, 16, 2, 44100);
  WAVEFORMATEXTENSIBLE diff[] = {Wfx(1, 16, 1, 44100), Wfx(1, 16, 2, 48000),
                                 Wfx(1, 24, 2, 44100), Wfx(0xFE01, 16, 2, 44100)};
  for (auto &d : diff) EXPECT_FALSE(KyAudio_IsEqualFormat(&base.Format, &d.Format));
  EXPECT_FALSE(KyAudio_IsEqualFormat(&base.Format, nullptr));
}

} // namespace

namespace {

TEST(AudioText, TagNames) {
  const struct {
    DWORD tag;
    const char *text;
  } rows[] = {{1, "PCM"},
              {3, "PCM (float)"},
              {0xFE00, "PCM (unpacked)"},
              {0xFE01, "PCM (signed)"},
              {0xFE02, "PCM (big endian)"}};
  char buf[64];
  for (auto &r : rows) {
    memset(buf, 'x', sizeof buf);
    EXPECT_EQ(KyAudio_GetTagText(r.tag, buf, sizeof buf), S_OK);
    EXPECT_STREQ(buf, r.text);
  }
  // A tag nobody knows.
  EXPECT_EQ(KyAudio_GetTagText(0xFE07, buf, sizeof buf), E_FAIL);
  EXPECT_STREQ(buf, "Unknown");
  // Cut to the buffer and terminated; a null buffer is left alone.
  char small[5];
  memset(small, 'x', sizeof small);
  EXPECT_EQ(KyAudio_GetTagText(0xFE02, small, sizeof small), S_OK);
  EXPECT_STREQ(small, "PCM ");
  EXPECT_EQ(KyAudio_GetTagText(1, nullptr, 10), S_OK);
}

TEST(AudioText, FormatDescriptions) {
  const struct {
    WORD tag, bits, channels;
    DWORD rate;
    const char *text;
  } rows[] = {{1, 16, 2, 44100, "44,100 Hz, 16-bit, Stereo"},
              {3, 32, 1, 48000, "48,000 Hz, 32-bit (float), Mono"},
              {0xFE01, 8, 6, 8000, "8,000 Hz, 8-bit, 6 Channels"},
              {0xFE02, 24, 2, 96000, "96,000 Hz, 24-bit, Stereo"},
              {0xFE00, 32, 1, 500, "500 Hz, 32-bit, Mono"}};
  char buf[80];
  for (auto &r : rows) {
    WAVEFORMATEXTENSIBLE x = Wfx(r.tag, r.bits, r.channels, r.rate);
    EXPECT_EQ(KyAudio_GetAttribsText(&x.Format, buf, sizeof buf), S_OK);
    EXPECT_STREQ(buf, r.text);
  }
  char small[8];
  WAVEFORMATEXTENSIBLE x = Wfx(1, 16, 2, 44100);
  EXPECT_EQ(KyAudio_GetAttribsText(&x.Format, small, sizeof small), S_OK);
  EXPECT_STREQ(small, "44,100 ");
  EXPECT_EQ(KyAudio_GetAttribsText(nullptr, buf, sizeof buf), E_FAIL);
  EXPECT_STREQ(buf, "Unknown");
  EXPECT_EQ(KyAudio_GetAttribsText(&x.Format, nullptr, 10), S_OK);
}

// Formats the library does not describe itself are described by the Audio Compression
// Manager, exactly as it answers (or "Unknown" with E_FAIL when it cannot).
TEST(AudioText, OtherFormatsGoToTheCompressionManager) {
  HMODULE acm = LoadLibraryA("msacm32.dll");
  ASSERT_NE(acm, nullptr);
  auto details = reinterpret_cast<MMRESULT(WINAPI *)(HACMDRIVER, LPACMFORMATDETAILSA, DWORD)>(
      reinterpret_cast<void *>(GetProcAddress(acm, "acmFormatDetailsA")));
  ASSERT_NE(details, nullptr);
  const struct {
    WORD tag, bits, align;
    DWORD cb; // the header size the library must pass
  } rows[] = {{1, 16, 3, 16}, {3, 32, 5, 16}, {0xFE07, 16, 4, 18 + 22}, {2, 4, 256, 18 + 22}};
  for (auto &r : rows) {
    WAVEFORMATEXTENSIBLE x = Wfx(r.tag, r.bits, 2, 44100);
    x.Format.nBlockAlign = r.align;
    x.Format.cbSize = 22;
    ACMFORMATDETAILSA d = {};
    d.cbStruct = sizeof d;
    d.dwFormatTag = r.tag;
    d.pwfx = &x.Format;
    d.cbwfx = r.cb;
    const bool known = details(nullptr, &d, ACM_FORMATDETAILSF_FORMAT) == 0 && d.szFormat[0];
    char buf[ACMFORMATDETAILS_FORMAT_CHARS];
    EXPECT_EQ(KyAudio_GetAttribsText(&x.Format, buf, sizeof buf), known ? S_OK : E_FAIL) << r.tag;
    EXPECT_STREQ(buf, known ? d.szFormat : "Unknown") << r.tag;
  }
  FreeLibrary(acm);
}

} // namespace
