// The converters against sox (files made by tests/data/audio/make_sox_fixtures.sh): integer
// widening is bit-exact; float to integer is within one step of sox's rounding.
#include "ky_testutil.h"
#include "audio_ref.h"

#include <stdio.h>
#include <string>

using namespace audioref;

namespace {

// The data chunk of a WAVE file (empty when unreadable).
std::vector<uint8_t> WaveData(const std::string &name) {
  std::vector<uint8_t> file;
  FILE *f = fopen(kytest::DataPath("audio/" + name).c_str(), "rb");
  if (!f) return file;
  uint8_t buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) file.insert(file.end(), buf, buf + n);
  fclose(f);
  for (size_t at = 12; at + 8 <= file.size();) {
    const uint32_t size = file[at + 4] | file[at + 5] << 8 | file[at + 6] << 16 |
                          uint32_t(file[at + 7]) << 24;
    if (memcmp(&file[at], "data", 4) == 0 && at + 8 + size <= file.size())
      return std::vector<uint8_t>(file.begin() + at + 8, file.begin() + at + 8 + size);
    at += 8 + size + (size & 1);
  }
  return {};
}

KYSAMPLETYPE TypeOf(const std::string &s) {
  if (s == "u8") return KYSAMPLE_U8;
  if (s == "s16") return KYSAMPLE_S16;
  if (s == "s24") return KYSAMPLE_S24;
  if (s == "s32") return KYSAMPLE_S32;
  if (s == "f32") return KYSAMPLE_F32;
  return KYSAMPLE_F64;
}

struct Row {
  const char *from, *to;
  int steps; // largest difference allowed, in steps of the target type
};
const Row kRows[] = {
    {"u8", "s16", 0},  {"u8", "s24", 0},  {"u8", "s32", 0},  {"s16", "s24", 0},
    {"s16", "s32", 0}, {"s24", "s32", 0}, {"u8", "f32", 0},  {"s16", "f32", 0},
    {"s24", "f32", 0}, {"s16", "f64", 0}, {"s24", "f64", 0}, {"s32", "f64", 0},
    {"f32", "u8", 1},  {"f32", "s16", 1}, {"f32", "s24", 1}, {"f32", "s32", 1},
};

TEST(AudioSox, ConversionsAgreeWithSox) {
  for (const Row &r : kRows) {
    const std::string what = std::string(r.from) + " -> " + r.to;
    const std::vector<uint8_t> src = WaveData(std::string("src_") + r.from + ".wav");
    const std::vector<uint8_t> want = WaveData(std::string("sox_") + r.from + "_to_" + r.to + ".wav");
    ASSERT_FALSE(src.empty()) << what;
    const KYSAMPLETYPE st = TypeOf(r.from), dt = TypeOf(r.to);
    const size_t n = src.size() / Of(st).bytes;
    ASSERT_EQ(want.size(), n * Of(dt).bytes) << what;
    std::vector<uint8_t> got(want.size());
    KYAUDIOCOPYFUNC f = KyAudio_GetCopyFunction2(dt, st);
    ASSERT_NE(f, nullptr) << what;
    f(got.data(), src.data(), LONG(n), 1.0f);
    int worst = 0, differing = 0;
    for (size_t i = 0; i < n; ++i) {
      const uint8_t *a = &got[i * Of(dt).bytes], *b = &want[i * Of(dt).bytes];
      if (Of(dt).isFloat) {
        if (memcmp(a, b, Of(dt).bytes) != 0) {
          if (++differing <= 3)
            ADD_FAILURE() << what << " sample " << i << ": " << GetFloat(dt, a) << " vs sox "
                          << GetFloat(dt, b);
        }
        continue;
      }
      const int64_t d = GetInt(dt, a) - GetInt(dt, b);
      const int diff = int(d < 0 ? -d : d);
      differing += diff != 0;
      if (diff > worst) worst = diff;
    }
    EXPECT_LE(worst, r.steps) << what;
    if (r.steps == 0) {
      EXPECT_EQ(differing, 0) << what;
    }
    // Truncating where sox rounds must differ somewhere, or the data proves nothing (a float
    // scaled to 32 bits is mostly an integer already, so only the narrower targets count).
    if (r.steps == 1 && dt != KYSAMPLE_S32) {
      EXPECT_GT(differing, 0) << what;
    }
  }
}

} // namespace
