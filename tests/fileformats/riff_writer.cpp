// Writes a WAVE file and a 64-bit RIFF wave file with the library's chunk writers, for the
// independent readers of riff_readers.sh. Both hold 1000 16-bit mono samples at 8000 Hz,
// sample i = (i * 37) mod 65536 - 32768. The WAVE file adds an INFO title "Tellarok" (an odd
// string with its pad byte) and a cue point at sample 500; the 64-bit file adds a "junk"
// chunk of 5 bytes (3 pad bytes) before its data, which is streamed in two parts.
#include <stdio.h>
#include <vector>
#include "ky_riff64.h"

static std::vector<short> g_samples(1000);
static WAVEFORMATEX g_fmt = {WAVE_FORMAT_PCM, 1, 8000, 16000, 2, 16, 0};

static bool WriteWave(HANDLE h) {
  const DWORD cue[7] = {1, 1, 500, KY_FOURCC('d', 'a', 't', 'a'), 0, 0, 500};
  DWORD n[5] = {};
  bool ok = SUCCEEDED(riff_WriteFileID(h, KY_FOURCC('W', 'A', 'V', 'E'), 0)) &&
            SUCCEEDED(riff_WriteChunk(h, KY_FOURCC('f', 'm', 't', ' '), &g_fmt, 16, &n[0])) &&
            SUCCEEDED(riff_WriteListHeader(h, KY_FOURCC('I', 'N', 'F', 'O'), 4 + 8 + 10)) &&
            SUCCEEDED(riff_WriteChunkHeader(h, KY_FOURCC('I', 'N', 'A', 'M'), 9)) &&
            SUCCEEDED(riff_WriteANSIString(h, "Tellarok", &n[1])) &&
            SUCCEEDED(riff_WriteChunk(h, KY_FOURCC('c', 'u', 'e', ' '), cue, sizeof cue, &n[2])) &&
            SUCCEEDED(riff_WriteChunk(h, KY_FOURCC('d', 'a', 't', 'a'), g_samples.data(), 2000, &n[3]));
  return ok && SUCCEEDED(riff_SetRIFFSize(h, 4 + n[0] + 12 + 8 + n[1] + n[2] + n[3]));
}

static bool WriteWave64(HANDLE h) {
  const GUID riff = KY_RIFF64_GUID_RIFF_INIT;
  GUID wave = {0x65766177, 0xACF3, 0x11D3, {0x8C, 0xD1, 0x00, 0xC0, 0x4F, 0x8E, 0xDB, 0x8A}};
  GUID fmt = wave, junk = wave, data = wave;
  fmt.Data1 = 0x20746D66;
  junk.Data1 = 0x6B6E756A;
  data.Data1 = 0x61746164;
  ULONGLONG fileStart = 0, dataStart = 0, n = 0;
  const BYTE *bytes = reinterpret_cast<const BYTE *>(g_samples.data());
  return SUCCEEDED(riff64_PrepareChunk(h, riff, &fileStart)) &&
         SUCCEEDED(riff64_WriteToFile(h, &wave, sizeof wave)) &&
         SUCCEEDED(riff64_WriteChunk(h, fmt, &g_fmt, 16, &n)) &&
         SUCCEEDED(riff64_WriteChunk(h, junk, "pad!!", 5, &n)) &&
         SUCCEEDED(riff64_PrepareChunk(h, data, &dataStart)) &&
         SUCCEEDED(riff64_WriteToFile(h, bytes, 1000)) &&
         SUCCEEDED(riff64_WriteToFile(h, bytes + 1000, 1000)) &&
         SUCCEEDED(riff64_CompleteChunk(h, dataStart)) &&
         SUCCEEDED(riff64_CompleteChunk(h, fileStart));
}

int main(int argc, char **argv) {
  if (argc != 3) {
    fprintf(stderr, "usage: riff_writer OUT.wav OUT.w64\n");
    return 2;
  }
  for (size_t i = 0; i < g_samples.size(); ++i) g_samples[i] = short(int((i * 37) % 65536) - 32768);
  bool ok = true;
  for (int k = 0; k < 2; ++k) {
    HANDLE h = CreateFileA(argv[1 + k], GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    ok = ok && h != INVALID_HANDLE_VALUE && (k == 0 ? WriteWave(h) : WriteWave64(h));
    if (h != INVALID_HANDLE_VALUE) CloseHandle(h);
  }
  if (!ok) fprintf(stderr, "riff_writer: writing failed\n");
  return ok ? 0 : 1;
}
