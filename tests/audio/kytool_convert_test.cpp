// kytool convert end to end: its WAVE writer and reader, the conversion through an
// intermediate type, and the channel and fade stages.
#include "ky_testutil.h"
#include "audio_ref.h"

#include <stdio.h>
#include <string>

namespace {

DWORD RunKytool(const std::string &args) {
  return kytest::RunProgram(kytest::BinPath("kytool.exe"), args);
}

struct Wave {
  WAVEFORMATEX format = {};
  std::vector<uint8_t> data;
};

bool ReadWave(const std::string &path, Wave &w) {
  FILE *f = fopen(path.c_str(), "rb");
  if (!f) return false;
  std::vector<uint8_t> file;
  uint8_t buf[4096];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) file.insert(file.end(), buf, buf + n);
  fclose(f);
  if (file.size() < 12 || memcmp(file.data(), "RIFF", 4) || memcmp(&file[8], "WAVE", 4)) return false;
  const uint32_t riff = file[4] | file[5] << 8 | file[6] << 16 | uint32_t(file[7]) << 24;
  if (riff + 8 != file.size()) return false; // the RIFF size covers the whole file
  bool fmt = false, data = false;
  for (size_t at = 12; at + 8 <= file.size();) {
    const uint32_t size = file[at + 4] | file[at + 5] << 8 | file[at + 6] << 16 |
                          uint32_t(file[at + 7]) << 24;
    if (at + 8 + size > file.size()) return false;
    if (!memcmp(&file[at], "fmt ", 4) && size >= 16) {
      memcpy(&w.format, &file[at + 8], size < sizeof w.format ? size : sizeof w.format);
      fmt = true;
    } else if (!memcmp(&file[at], "data", 4)) {
      w.data.assign(file.begin() + at + 8, file.begin() + at + 8 + size);
      data = true;
    }
    at += 8 + size + (size & 1);
  }
  return fmt && data;
}

TEST(AudioKytool, ConvertsThroughEveryStage) {
  const std::string src = kytest::DataPath("audio/src_s16.wav");
  const std::string dir = kytest::TempDir("audio-kytool");
  const std::string be = dir + "be32.wav", back = dir + "back16.wav", mono = dir + "mono.wav";
  Wave original;
  ASSERT_TRUE(ReadWave(src, original));

  // 16-bit -> 32-bit big-endian (no converter has that destination) -> 16-bit again.
  ASSERT_EQ(RunKytool("convert \"" + src + "\" \"" + be + "\" --to s32be"), 0u);
  Wave w;
  ASSERT_TRUE(ReadWave(be, w));
  EXPECT_EQ(w.format.wFormatTag, 0xFE02);
  EXPECT_EQ(w.format.wBitsPerSample, 32);
  EXPECT_EQ(w.format.nBlockAlign, 8);
  ASSERT_EQ(w.data.size(), original.data.size() * 2);
  EXPECT_EQ(audioref::GetInt(KYSAMPLE_S32BE, &w.data[4]),
            audioref::GetInt(KYSAMPLE_S16, &original.data[2]) * 65536);
  ASSERT_EQ(RunKytool("convert \"" + be + "\" \"" + back + "\" --to s16"), 0u);
  ASSERT_TRUE(ReadWave(back, w));
  EXPECT_TRUE(w.data == original.data);

  // Fold to mono with a 10 ms fade-in: frame 0 silent, the rest the channels' sum.
  ASSERT_EQ(RunKytool("convert \"" + src + "\" \"" + mono + "\" --to f32 --channels 1 --fade-in 10"), 0u);
  ASSERT_TRUE(ReadWave(mono, w));
  EXPECT_EQ(w.format.wFormatTag, 3);
  EXPECT_EQ(w.format.nChannels, 1);
  const size_t frames = original.data.size() / 4;
  ASSERT_EQ(w.data.size(), frames * 4);
  float first, later;
  memcpy(&first, &w.data[0], 4);
  memcpy(&later, &w.data[(frames - 1) * 4], 4);
  EXPECT_EQ(first, 0.0f);
  const double sum = (audioref::GetInt(KYSAMPLE_S16, &original.data[(frames - 1) * 4]) +
                      audioref::GetInt(KYSAMPLE_S16, &original.data[(frames - 1) * 4 + 2])) / 32768.0;
  EXPECT_NEAR(later, sum, 1e-6);

  // Refusals: an unknown type, and a missing input.
  EXPECT_NE(RunKytool("convert \"" + src + "\" \"" + mono + "\" --to s20"), 0u);
  EXPECT_NE(RunKytool("convert \"" + dir + "missing.wav\" \"" + mono + "\" --to s16"), 0u);
  DeleteFileA(be.c_str());
  DeleteFileA(back.c_str());
  DeleteFileA(mono.c_str());
}

} // namespace
