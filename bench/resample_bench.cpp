// Resampler speed: how many times faster than real time each method converts stereo audio
// between 44100 and 48000 Hz, next to memcpy of the same source data. One core, blocks of
// 4096 frames, ten seconds of audio per pass; the fastest of at least five passes (and half
// a second) counts, so that other programs on a shared machine disturb the figures less.
#include <windows.h>
#include <math.h>
#include <stdio.h>
#include <string.h>
#include <vector>

#include "ky_resample.h"

namespace {

double Now() {
  LARGE_INTEGER f, c;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&c);
  return static_cast<double>(c.QuadPart) / static_cast<double>(f.QuadPart);
}

constexpr LONG kChannels = 2;
constexpr LONG kBlock = 4096;
constexpr double kSeconds = 10.0;

// Seconds of audio converted per second of run time.
double Measure(LONG type, int bytes, LONG src, LONG dst, WORD flags, bool ratioForm) {
  const LONG frames = static_cast<LONG>(kSeconds * src);
  std::vector<BYTE> in(static_cast<size_t>(frames) * kChannels * bytes);
  for (LONG i = 0; i < frames * kChannels; ++i) {
    const double v = 0.5 * sin(i * 0.001) + 0.25 * sin(i * 0.37);
    BYTE *p = &in[static_cast<size_t>(i) * bytes];
    if (type == 32) { const float f = static_cast<float>(v); memcpy(p, &f, 4); }
    else if (type == 33) memcpy(p, &v, 8);
    else { const short s = static_cast<short>(v * 32767); memcpy(p, &s, 2); }
  }
  std::vector<BYTE> block(static_cast<size_t>(kBlock) * kChannels * bytes);
  std::vector<BYTE> out((static_cast<size_t>(kBlock) * dst / src + 16) * kChannels * bytes);
  HKYRESAMPLE h = nullptr;
  const HRESULT hr = ratioForm ? KyAudio_ResampleOpenEx(&h, type, kChannels,
                                                        1.000001 * dst / src, flags)
                               : KyAudio_ResampleOpen(&h, type, src, dst, kChannels, flags);
  if (FAILED(hr)) return 0;
  double best = 1e30, total = 0;
  LONGLONG produced = 0;
  for (int pass = 0; pass < 5 || total < 0.5; ++pass) {
    const double t0 = Now();
    for (LONG at = 0; at < frames; at += kBlock) {
      const LONG n = frames - at < kBlock ? frames - at : kBlock;
      // A fresh copy per block, as a player reading from its buffers would hand over (the
      // anti-alias filter of a down-sampling conversion writes into the source).
      memcpy(block.data(), &in[static_cast<size_t>(at) * kChannels * bytes],
             static_cast<size_t>(n) * kChannels * bytes);
      produced += KyAudio_ResampleEx(h, out.data(), block.data(), n);
    }
    const double t = Now() - t0;
    best = t < best ? t : best;
    total += t;
    if (produced < static_cast<LONGLONG>((pass + 1) * kSeconds * dst * 0.99)) printf("  (short output!)\n");
  }
  KyAudio_ResampleClose(h);
  return kSeconds / best;
}

double MeasureCopy(int bytes, LONG src) {
  const size_t n = static_cast<size_t>(kSeconds * src) * kChannels * bytes;
  std::vector<BYTE> in(n, 1), out(n);
  double best = 1e30, total = 0;
  for (int pass = 0; pass < 5 || total < 0.5; ++pass) {
    const double t0 = Now();
    for (size_t at = 0; at < n; at += kBlock * kChannels * bytes) {
      const size_t len = n - at < static_cast<size_t>(kBlock) * kChannels * bytes
                             ? n - at
                             : static_cast<size_t>(kBlock) * kChannels * bytes;
      memcpy(out.data() + at, in.data() + at, len);
    }
    const double t = Now() - t0;
    best = t < best ? t : best;
    total += t;
  }
  volatile BYTE sink = out[n / 2];
  (void)sink;
  return kSeconds / best;
}

} // namespace

int main() {
  setvbuf(stdout, nullptr, _IONBF, 0);
  // A ratio that is no fraction (a varispeed of one part in a million here) has no exact
  // phase, hence no kernel cache: the 25 kernel values are computed for every output.
  struct Case { const char *name; LONG type; int bytes; WORD flags; bool ratioForm; } cases[] = {
      {"sinc, float", 32, 4, 0x0003, false},
      {"sinc + order-4 anti-alias, float", 32, 4, 0x0023, false},
      {"sinc, double", 33, 8, 0x0003, false},
      {"sinc, float, arbitrary ratio", 32, 4, 0x0003, true},
      {"linear, float", 32, 4, 0x0002, false},
      {"linear, 16-bit", 17, 2, 0x0002, false},
  };
  const LONG rates[][2] = {{44100, 48000}, {48000, 44100}};
  printf("stereo, blocks of %ld frames; figures are times faster than real time\n\n", (long)kBlock);
  for (const auto &r : rates) {
    printf("%ld -> %ld Hz\n", (long)r[0], (long)r[1]);
    double copy[9] = {};
    for (int bytes : {2, 4, 8}) {
      copy[bytes] = MeasureCopy(bytes, r[0]);
      printf("  memcpy of the %d-byte-sample source    %10.0f x\n", bytes, copy[bytes]);
    }
    for (const Case &c : cases) {
      const double x = Measure(c.type, c.bytes, r[0], r[1], c.flags, c.ratioForm);
      printf("  %-36s %10.0f x   (memcpy of the same data / this: %.0f)\n", c.name, x,
             copy[c.bytes] / x);
    }
    printf("\n");
  }
  return 0;
}
