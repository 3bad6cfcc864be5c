// kytool's minimal WAVE reader and writer (the RIFF chunk functions of the library take
// over once they are available).
#include "wave_io.h"

#include <stdio.h>
#include <string.h>

#include "ky_audio.h"

namespace kytool::convert {

namespace {

uint32_t Le32(const uint8_t *p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t(p[3]) << 24; }
void PutLe32(std::vector<uint8_t> &v, uint32_t x) {
  for (int i = 0; i < 4; ++i) v.push_back(uint8_t(x >> (8 * i)));
}
void PutLe16(std::vector<uint8_t> &v, uint16_t x) {
  v.push_back(uint8_t(x));
  v.push_back(uint8_t(x >> 8));
}

const GUID kFloatSubFormat = {0x00000003, 0x0000, 0x0010,
                              {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

bool Fail(const std::string &path, const char *what) {
  fprintf(stderr, "kytool: %s: %s\n", path.c_str(), what);
  return false;
}

} // namespace

bool ReadWave(const std::string &path, Audio &out) {
  FILE *f = fopen(path.c_str(), "rb");
  if (!f) return Fail(path, "cannot open");
  std::vector<uint8_t> file;
  uint8_t chunk[65536];
  size_t got;
  while ((got = fread(chunk, 1, sizeof chunk, f)) > 0) file.insert(file.end(), chunk, chunk + got);
  fclose(f);
  if (file.size() < 12 || memcmp(&file[0], "RIFF", 4) != 0 || memcmp(&file[8], "WAVE", 4) != 0)
    return Fail(path, "not a RIFF WAVE file");
  bool haveFormat = false, haveData = false;
  memset(&out.format, 0, sizeof out.format);
  size_t at = 12, dataAt = 0, dataSize = 0;
  while (at + 8 <= file.size()) {
    const uint8_t *h = &file[at];
    const size_t size = Le32(h + 4);
    const size_t body = at + 8;
    const size_t avail = file.size() - body < size ? file.size() - body : size;
    if (memcmp(h, "fmt ", 4) == 0 && !haveFormat) {
      if (avail < 16) return Fail(path, "\"fmt \" chunk too short");
      memcpy(&out.format, &file[body], avail < sizeof out.format ? avail : sizeof out.format);
      if (avail < 18) out.format.Format.cbSize = 0;
      haveFormat = true;
    } else if (memcmp(h, "data", 4) == 0 && !haveData) {
      dataAt = body;
      dataSize = avail; // a data chunk cut short keeps what the file holds
      haveData = true;
    }
    at = body + size + (size & 1);
    if (at < body) break; // size wrapped around
  }
  if (!haveFormat) return Fail(path, "no \"fmt \" chunk");
  if (!haveData) return Fail(path, "no \"data\" chunk");
  WAVEFORMATEX &w = out.format.Format;
  if (w.wFormatTag == WAVE_FORMAT_EXTENSIBLE && w.cbSize >= 22 &&
      memcmp(&out.format.SubFormat, &kFloatSubFormat, sizeof(GUID)) == 0)
    w.wFormatTag = WAVE_FORMAT_IEEE_FLOAT;
  KyAudio_FixBadWfx(&w);
  const LONG type = KyAudio_GetSampleType(&w);
  if (type == KYSAMPLE_UNKNOWN || w.nChannels == 0) {
    char text[128] = "";
    KyAudio_GetTagText(w.wFormatTag, text, sizeof text);
    fprintf(stderr, "kytool: %s: unsupported sample format (%s, %u-bit)\n", path.c_str(), text,
            unsigned(w.wBitsPerSample));
    return false;
  }
  // From here on the plain header of the sample type describes the data (an extensible
  // header of a PCM type says nothing more that the conversion needs).
  out.format = MakeFormat(type, w.nChannels, w.nSamplesPerSec);
  const WORD align = out.format.Format.nBlockAlign;
  out.frames = LONG(dataSize / align);
  out.data.assign(file.begin() + dataAt, file.begin() + dataAt + size_t(out.frames) * align);
  return true;
}

bool WriteWave(const std::string &path, const Audio &in) {
  const WAVEFORMATEX &w = in.format.Format;
  const bool pcm = w.wFormatTag == WAVE_FORMAT_PCM;
  const uint32_t fmtSize = pcm ? 16 : 18;
  const size_t dataSize = in.data.size();
  if (dataSize > 0xFFFFFF00u) return Fail(path, "too much data for a WAVE file");
  std::vector<uint8_t> head;
  head.insert(head.end(), {'R', 'I', 'F', 'F'});
  PutLe32(head, uint32_t(4 + 8 + fmtSize + 8 + dataSize + (dataSize & 1)));
  head.insert(head.end(), {'W', 'A', 'V', 'E', 'f', 'm', 't', ' '});
  PutLe32(head, fmtSize);
  PutLe16(head, w.wFormatTag);
  PutLe16(head, w.nChannels);
  PutLe32(head, w.nSamplesPerSec);
  PutLe32(head, w.nAvgBytesPerSec);
  PutLe16(head, w.nBlockAlign);
  PutLe16(head, w.wBitsPerSample);
  if (!pcm) PutLe16(head, 0);
  head.insert(head.end(), {'d', 'a', 't', 'a'});
  PutLe32(head, uint32_t(dataSize));
  FILE *f = fopen(path.c_str(), "wb");
  if (!f) return Fail(path, "cannot create");
  bool ok = fwrite(head.data(), 1, head.size(), f) == head.size();
  if (ok && dataSize) ok = fwrite(in.data.data(), 1, dataSize, f) == dataSize;
  if (ok && (dataSize & 1)) ok = fputc(0, f) != EOF;
  ok = fclose(f) == 0 && ok;
  return ok ? true : Fail(path, "write failed");
}

} // namespace kytool::convert
