// Pixel exchange speed: rows of 1920 pixels read into and written from the working forms,
// per type, in megapixels per second; the direct path beside the converting one; palette
// writes through the quantizer.
#include <stdio.h>
#include <string.h>
#include <vector>
#include <windows.h>
#include "ky_video.h"

namespace {

double Seconds(LARGE_INTEGER a, LARGE_INTEGER b) {
  LARGE_INTEGER f;
  QueryPerformanceFrequency(&f);
  return double(b.QuadPart - a.QuadPart) / double(f.QuadPart);
}

const int kWidth = 1920;

// Megapixels per second of read + write for one type pair and flag set.
double Measure(LONG dst, LONG src, DWORD flags, HGLOBAL quantizer, const RGBQUAD *colours) {
  tKYDIBXCHGPARAMS x;
  if (FAILED(KyDibPrepareXchgParams(dst, src, flags, &x, nullptr))) return 0;
  x.srcColors = colours;
  x.dstQuantizer = quantizer;
  std::vector<BYTE> in(kWidth * 16 + 16), out(kWidth * 16 + 16), work(kWidth * 8 + 16);
  for (size_t i = 0; i < in.size(); ++i) in[i] = BYTE(i * 37 + (i >> 7));
  if (src == KYPT_RGBAFLOAT)
    for (int i = 0; i < kWidth * 4; ++i) {
      const float f = float(i % 977) / 977.0f;
      memcpy(&in[4 * i], &f, 4);
    }
  int rows = 0;
  LARGE_INTEGER t0, t1;
  QueryPerformanceCounter(&t0);
  do {
    for (int k = 0; k < 50; ++k, ++rows) {
      void *w = x.readRow(&x, in.data(), 0, work.data(), kWidth);
      x.writeRow(&x, out.data(), 0, w, kWidth);
    }
    QueryPerformanceCounter(&t1);
  } while (Seconds(t0, t1) < 0.2);
  return rows * double(kWidth) / Seconds(t0, t1) / 1e6;
}

} // namespace

int main() {
  printf("pixel exchange, %d-pixel rows, read + write, Mpixel/s\n", kWidth);
  printf("%-10s %10s %10s\n", "type", "8-bit", "16-bit");
  for (LONG t = KYPT_FIRST; t <= KYPT_LAST; ++t) {
    if (t == KYPT_RGB1 || t == KYPT_RGB4 || t == KYPT_RGB8) continue;
    printf("%-10ld %10.1f %10.1f\n", (long)t, Measure(t, t, 0x10, nullptr, nullptr),
           Measure(t, t, 0x30, nullptr, nullptr));
  }
  printf("RGBA32 -> RGBA32 direct path: %.1f Mpixel/s\n", Measure(KYPT_RGBA32, KYPT_RGBA32, 0, nullptr, nullptr));
  printf("RGBA64 -> RGBA64 direct path: %.1f Mpixel/s\n", Measure(KYPT_RGBA64, KYPT_RGBA64, 0x20, nullptr, nullptr));
  printf("RGB24 -> RGB565: %.1f Mpixel/s\n", Measure(KYPT_RGB565, KYPT_RGB24, 0, nullptr, nullptr));

  // Palette destination: the quantizer of a 256-entry palette.
  std::vector<BYTE> mem(40 + 1024);
  auto *h = reinterpret_cast<BITMAPINFOHEADER *>(mem.data());
  std::vector<RGBQUAD> pal(256);
  for (int i = 0; i < 256; ++i) pal[i] = RGBQUAD{BYTE((i & 3) * 85), BYTE(((i >> 2) & 7) * 36), BYTE((i >> 5) * 36), 0};
  KyVideo_InitBitmapInfo(h, KYPT_RGB8, kWidth, 1, pal.data(), 256, nullptr);
  HGLOBAL q = KyDibCreateColorQuantizer(h);
  printf("RGB24 -> RGB8 through the quantizer: %.1f Mpixel/s\n", Measure(KYPT_RGB8, KYPT_RGB24, 0, q, nullptr));
  printf("RGB8 -> RGB24 through the palette: %.1f Mpixel/s\n", Measure(KYPT_RGB24, KYPT_RGB8, 0, nullptr, pal.data()));
  KyDibDestroyColorQuantizer(q);
  return 0;
}
