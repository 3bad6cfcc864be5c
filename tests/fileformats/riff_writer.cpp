// Writes a WAVE file and a 64-bit RIFF wave file with the library's chunk writers, for the
// independent readers of riff_readers.sh. Both hold 1000 16-bit mono samples at 8000 Hz,
// sample i = (i * 37) mod 65536 - 32768. The WAVE file adds an INFO title "Tellarok" (an odd
// string with its pad byte) and a cue point at sample 500; the 64-bit file adds a "junk"
// chunk of 5 bytes (3 pad bytes) before its data, which is streamed in two parts.
#include <windows.h>
#include <stdio.h>
#include <string.h>
#include <string>
#include <vector>

#include "ky_riff64.h"

namespace {

constexpr DWORD kSamples = 1000;
constexpr DWORD kRate = 8000;

std::vector<short> Samples() {
  std::vector<short> s(kSamples);
  for (DWORD i = 0; i < kSamples; ++i) s[i] = static_cast<short>(int((i * 37) % 65536) - 32768);
  return s;
}

WAVEFORMATEX Format() {
  WAVEFORMATEX f{};
  f.wFormatTag = WAVE_FORMAT_PCM;
  f.nChannels = 1;
  f.nSamplesPerSec = kRate;
  f.wBitsPerSample = 16;
  f.nBlockAlign = 2;
  f.nAvgBytesPerSec = kRate * 2;
  return f;
}

HANDLE Create(const std::string &path) {
  return CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                     FILE_ATTRIBUTE_NORMAL, nullptr);
}

bool Check(HRESULT hr, const char *what) {
  if (FAILED(hr)) fprintf(stderr, "riff_writer: %s failed: 0x%08lX\n", what, (unsigned long)hr);
  return SUCCEEDED(hr);
}

#define CHECK(call) \
  if (!Check((call), #call)) return false

bool WriteWave(const std::string &path) {
  HANDLE h = Create(path);
  if (h == INVALID_HANDLE_VALUE) return false;
  const WAVEFORMATEX fmt = Format();
  const std::vector<short> s = Samples();
  DWORD n = 0, total = 4;
  CHECK(riff_WriteFileID(h, KY_FOURCC('W', 'A', 'V', 'E'), 0));
  CHECK(riff_WriteChunk(h, KY_FOURCC('f', 'm', 't', ' '), &fmt, 16, &n));
  total += n;
  // LIST "INFO" with a title written as a string ("Tellarok" + zero = 9 bytes, padded).
  CHECK(riff_WriteListHeader(h, KY_FOURCC('I', 'N', 'F', 'O'), 4 + 8 + 10));
  CHECK(riff_WriteChunkHeader(h, KY_FOURCC('I', 'N', 'A', 'M'), 9));
  CHECK(riff_WriteANSIString(h, "Tellarok", &n));
  total += 12 + 8 + n;
  // One cue point at sample 500: id, position, "data", chunk start, block start, offset.
  const DWORD cue[7] = {1, 1, 500, KY_FOURCC('d', 'a', 't', 'a'), 0, 0, 500};
  CHECK(riff_WriteChunk(h, KY_FOURCC('c', 'u', 'e', ' '), cue, sizeof cue, &n));
  total += n;
  CHECK(riff_WriteChunk(h, KY_FOURCC('d', 'a', 't', 'a'), s.data(), kSamples * 2, &n));
  total += n;
  CHECK(riff_SetRIFFSize(h, total));
  CloseHandle(h);
  return true;
}

bool WriteWave64(const std::string &path) {
  static const GUID kRiff = KY_RIFF64_GUID_RIFF_INIT;
  static const GUID kWave = {0x65766177, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  static const GUID kFmt = {0x20746D66, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  static const GUID kData = {0x61746164, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  static const GUID kJunk = {0x6B6E756A, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  HANDLE h = Create(path);
  if (h == INVALID_HANDLE_VALUE) return false;
  const WAVEFORMATEX fmt = Format();
  const std::vector<short> s = Samples();
  ULONGLONG fileStart = 0, dataStart = 0, n = 0;
  CHECK(riff64_PrepareChunk(h, kRiff, &fileStart));
  CHECK(riff64_WriteToFile(h, &kWave, sizeof kWave));
  CHECK(riff64_WriteChunk(h, kFmt, &fmt, 16, &n));
  CHECK(riff64_WriteChunk(h, kJunk, "pad!!", 5, &n));
  // The data streamed in two parts through the two-phase writer.
  CHECK(riff64_PrepareChunk(h, kData, &dataStart));
  CHECK(riff64_WriteToFile(h, s.data(), 1000));
  CHECK(riff64_WriteToFile(h, reinterpret_cast<const BYTE *>(s.data()) + 1000, kSamples * 2 - 1000));
  CHECK(riff64_CompleteChunk(h, dataStart));
  CHECK(riff64_CompleteChunk(h, fileStart));
  CloseHandle(h);
  return true;
}

} // namespace

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: riff_writer OUT.wav OUT.w64\n");
    return 2;
  }
  return WriteWave(argv[1]) && WriteWave64(argv[2]) ? 0 : 1;
}
