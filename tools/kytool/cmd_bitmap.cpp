// kytool bitmap: the pixel type, format texts and layout facts of a .bmp file's header, and
// conversion of a .bmp file to another pixel type through the library's exchange routines.
#include "kytool.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#include "ky_video.h"

namespace {

const char *const kTypeNames[] = {"RGB1",   "GRAY1",  "GRAY2", "GRAY4",    "GRAY8",
                                   "GRAY16", "GRAY32", "RGB4",  "RGB8",     "RGB555",
                                   "RGB565", "RGB24",  "RGB32", "RGBA32",   "RGB101010",
                                   "RGBA64", "RGBAFLOAT"};

const char *TypeName(LONG type) {
  return type >= KYPT_FIRST && type <= KYPT_LAST ? kTypeNames[type - KYPT_FIRST] : "unknown";
}

// A type by number (16 to 32) or by name, with or without the KYPT_ prefix.
LONG ParseType(std::string s) {
  if (s.rfind("KYPT_", 0) == 0) s = s.substr(5);
  char *end = nullptr;
  const long n = strtol(s.c_str(), &end, 10);
  if (!s.empty() && *end == 0) return n >= KYPT_FIRST && n <= KYPT_LAST ? LONG(n) : 0;
  for (LONG t = KYPT_FIRST; t <= KYPT_LAST; ++t)
    if (_stricmp(s.c_str(), kTypeNames[t - KYPT_FIRST]) == 0) return t;
  return 0;
}

// A whole .bmp file: the file header, then the info header and everything after it.
struct BmpFile {
  BITMAPFILEHEADER file{};
  std::vector<BYTE> rest;  // from the info header to the end of the file
  BITMAPINFOHEADER *header() { return reinterpret_cast<BITMAPINFOHEADER *>(rest.data()); }
};

bool ReadBmp(const std::string &path, BmpFile *out, std::string *error) {
  FILE *f = fopen(path.c_str(), "rb");
  if (!f) {
    *error = "cannot open " + path;
    return false;
  }
  std::vector<BYTE> all;
  BYTE buf[65536];
  size_t n;
  while ((n = fread(buf, 1, sizeof buf, f)) > 0) all.insert(all.end(), buf, buf + n);
  fclose(f);
  if (all.size() < sizeof(BITMAPFILEHEADER) + sizeof(BITMAPINFOHEADER)) {
    *error = path + ": too short for a bitmap file";
    return false;
  }
  memcpy(&out->file, all.data(), sizeof out->file);
  if (out->file.bfType != 0x4D42) {
    *error = path + ": not a bitmap file (no \"BM\")";
    return false;
  }
  out->rest.assign(all.begin() + sizeof(BITMAPFILEHEADER), all.end());
  // Room for the masks that a short BI_BITFIELDS header is read with.
  out->rest.resize(out->rest.size() + 64, 0);
  const BITMAPINFOHEADER *h = out->header();
  if (h->biSize < sizeof(BITMAPINFOHEADER) || h->biSize > out->rest.size()) {
    *error = path + ": unsupported info header size " + std::to_string(h->biSize);
    return false;
  }
  return true;
}

// Offset of the pixels from the header's start, by the rule the image operations use.
DWORD RuleOffset(const BITMAPINFOHEADER *h) {
  if (h->biCompression == BI_BITFIELDS) return 52;
  if (h->biCompression == BI_RGB && h->biClrUsed == 0 && h->biBitCount >= 1 && h->biBitCount <= 8)
    return h->biSize + (4u << h->biBitCount);
  return h->biSize + 4 * h->biClrUsed;
}

LONG Stride(const BITMAPINFOHEADER *h) {
  return LONG(((LONGLONG(h->biBitCount) * h->biWidth + 31) & ~31LL) / 8);
}

int Info(const std::string &path) {
  BmpFile bmp;
  std::string error;
  if (!ReadBmp(path, &bmp, &error)) {
    fprintf(stderr, "kytool: %s\n", error.c_str());
    return 1;
  }
  const BITMAPINFOHEADER *h = bmp.header();
  const LONG type = KyGetPixelType(h);
  char format[64], attribs[64];
  KyVideo_GetFormatText(h->biCompression, format, sizeof format);
  KyVideo_GetAttribsText(h, attribs, sizeof attribs);
  BYTE bits[4];
  const LONG bpp = KyGetPixelBitsPerChannel(type, bits);
  printf("file:         %s (%lu bytes)\n", path.c_str(), (unsigned long)(bmp.rest.size() - 64 + sizeof(BITMAPFILEHEADER)));
  printf("pixel type:   %ld (%s)\n", (long)type, TypeName(type));
  printf("format:       %s (compression 0x%08lX)%s\n", format, (unsigned long)h->biCompression,
         KyVideo_IsCompressed(h) ? ", compressed: the image operations do not take it" : "");
  printf("attributes:   %s\n", attribs);
  if (type) printf("channel bits: %d,%d,%d,%d (%ld bits per pixel)\n", bits[0], bits[1], bits[2], bits[3], (long)bpp);
  if (h->biCompression == BI_BITFIELDS) {
    const DWORD *m = reinterpret_cast<const DWORD *>(reinterpret_cast<const BYTE *>(h) + 40);
    printf("masks:        red 0x%08lX, green 0x%08lX, blue 0x%08lX\n", (unsigned long)m[0],
           (unsigned long)m[1], (unsigned long)m[2]);
  }
  printf("colour table: %lu entries used%s\n", (unsigned long)h->biClrUsed,
         h->biClrUsed == 0 && h->biBitCount <= 8 && h->biCompression == BI_RGB
             ? " (table of 2^bits implied; the prepared records see no palette)" : "");
  const DWORD offset = RuleOffset(h);
  const LONGLONG imageEnd = LONGLONG(bmp.file.bfOffBits) +
                            LONGLONG(Stride(h)) * (h->biHeight < 0 ? -LONGLONG(h->biHeight) : h->biHeight);
  const LONGLONG fileSize = LONGLONG(bmp.rest.size()) - 64 + LONGLONG(sizeof(BITMAPFILEHEADER));
  if (!KyVideo_IsCompressed(h) && imageEnd > fileSize)
    printf("warning:      the file ends %lld bytes before the end of its pixels\n", imageEnd - fileSize);
  printf("pixels:       %lu bytes after the header's start (file offset %lu; the file says %lu)\n",
         (unsigned long)offset, (unsigned long)(offset + sizeof(BITMAPFILEHEADER)),
         (unsigned long)bmp.file.bfOffBits);
  printf("rows:         %ld bytes each, %s, %lu bytes of image\n", (long)Stride(h),
         h->biHeight < 0 ? "top-down" : "bottom-up",
         (unsigned long)(LONGLONG(Stride(h)) * (h->biHeight < 0 ? -h->biHeight : h->biHeight)));
  return 0;
}

// The palette a converted palette bitmap gets: the source's own when it has as many bits,
// else black and white (1 bit), the 16 standard colours (4 bits) or 3-3-2 levels (8 bits).
std::vector<RGBQUAD> DestinationPalette(LONG type, BmpFile &src) {
  const int bits = type == KYPT_RGB1 ? 1 : type == KYPT_RGB4 ? 4 : 8;
  const BITMAPINFOHEADER *h = src.header();
  std::vector<RGBQUAD> pal;
  if (h->biBitCount == bits && h->biCompression == BI_RGB) {
    const DWORD n = h->biClrUsed ? h->biClrUsed : (1u << bits);
    const RGBQUAD *q = reinterpret_cast<const RGBQUAD *>(src.rest.data() + h->biSize);
    pal.assign(q, q + n);
    return pal;
  }
  if (bits == 1) return {{0, 0, 0, 0}, {255, 255, 255, 0}};
  if (bits == 4) {
    static const BYTE vga[16][3] = {{0, 0, 0}, {128, 0, 0}, {0, 128, 0}, {128, 128, 0},
                                    {0, 0, 128}, {128, 0, 128}, {0, 128, 128}, {192, 192, 192},
                                    {128, 128, 128}, {255, 0, 0}, {0, 255, 0}, {255, 255, 0},
                                    {0, 0, 255}, {255, 0, 255}, {0, 255, 255}, {255, 255, 255}};
    for (auto &c : vga) pal.push_back(RGBQUAD{c[2], c[1], c[0], 0});
    return pal;
  }
  for (int i = 0; i < 256; ++i)
    pal.push_back(RGBQUAD{BYTE((i & 3) * 85), BYTE(((i >> 2) & 7) * 255 / 7), BYTE((i >> 5) * 255 / 7), 0});
  return pal;
}

int Convert(LONG dstType, const std::string &in, const std::string &out) {
  BmpFile src;
  std::string error;
  if (!ReadBmp(in, &src, &error)) {
    fprintf(stderr, "kytool: %s\n", error.c_str());
    return 1;
  }
  BITMAPINFOHEADER *sh = src.header();
  const LONG srcType = KyGetPixelType(sh);
  if (!srcType || KyVideo_IsCompressed(sh)) {
    fprintf(stderr, "kytool: %s: not a pixel format the library converts\n", in.c_str());
    return 1;
  }
  // Rows are converted in memory order; a top-down source is described bottom-up and its
  // rows are taken in reverse.
  const bool topDown = sh->biHeight < 0;
  const LONGLONG height = topDown ? -LONGLONG(sh->biHeight) : sh->biHeight;
  const LONGLONG stride = ((LONGLONG(sh->biBitCount) * sh->biWidth + 31) & ~31LL) / 8;
  const LONGLONG fileOffset = src.file.bfOffBits;
  const LONGLONG available = LONGLONG(src.rest.size()) - 64;  // without the mask padding
  const LONGLONG tableEnd = sh->biSize + (sh->biBitCount <= 8 ? 4LL << sh->biBitCount : 0);
  if (sh->biWidth <= 0 || height <= 0 || sh->biWidth > 1000000 || height > 1000000) {
    fprintf(stderr, "kytool: %s: unsupported size %ldx%ld\n", in.c_str(), (long)sh->biWidth,
            (long)sh->biHeight);
    return 1;
  }
  if (fileOffset < LONGLONG(sizeof(BITMAPFILEHEADER)) ||
      fileOffset - LONGLONG(sizeof(BITMAPFILEHEADER)) + stride * height > available ||
      (sh->biBitCount <= 8 && tableEnd > available)) {
    fprintf(stderr, "kytool: %s: the pixels run past the end of the file\n", in.c_str());
    return 1;
  }
  const LONG srcStride = LONG(stride);
  BYTE *srcPixels = src.rest.data() + (fileOffset - sizeof(BITMAPFILEHEADER));
  sh->biHeight = LONG(height);

  std::vector<RGBQUAD> pal;
  if (dstType == KYPT_RGB1 || dstType == KYPT_RGB4 || dstType == KYPT_RGB8) pal = DestinationPalette(dstType, src);
  BITMAPINFOHEADER *dst = nullptr;
  HRESULT hr = KyDibAlloc(&dst, dstType, sh->biWidth, height, pal.empty() ? nullptr : pal.data(),
                          LONG(pal.size()), 1);
  if (FAILED(hr)) {
    fprintf(stderr, "kytool: cannot allocate the destination (0x%08lX)\n", (unsigned long)hr);
    return 1;
  }
  tKYDIBGENERICPARAMS p;
  if (!KyDibPrepareGenericParams(&p, dst, nullptr, nullptr, 0, sh, srcPixels, nullptr, srcStride, 0)) {
    fprintf(stderr, "kytool: nothing to convert\n");
    KyDibFree(dst, 0);
    return 1;
  }
  // The 16-bit working form when either side has more than 8 bits in a channel.
  BYTE sb[4], db[4];
  KyGetPixelBitsPerChannel(srcType, sb);
  KyGetPixelBitsPerChannel(dstType, db);
  const bool deep = sb[0] > 8 || db[0] > 8 || sb[3] > 8 || db[3] > 8;
  tKYDIBXCHGPARAMS x;
  hr = KyDibPrepareXchgParams(dstType, srcType, deep ? KYXCHG_DEEP : 0, &x, nullptr);
  if (FAILED(hr)) {
    fprintf(stderr, "kytool: no exchange between types %ld and %ld (0x%08lX)\n", (long)dstType,
            (long)srcType, (unsigned long)hr);
    KyDibCleanupGenericParams(&p);
    KyDibFree(dst, 0);
    return 1;
  }
  // Palettes of BI_RGB sources with an implied table are still read through that table.
  x.srcColors = p.srcColors ? p.srcColors
                            : (sh->biBitCount <= 8 ? reinterpret_cast<RGBQUAD *>(src.rest.data() + sh->biSize) : nullptr);
  x.dstColors = p.dstColors;
  x.dstQuantizer = p.quantizer;
  std::vector<BYTE> work(size_t(sh->biWidth) * 8 + 16);
  for (LONG y = 0; y < height; ++y) {
    const LONG srcRow = topDown ? height - 1 - y : y;
    const void *w = x.readRow(&x, p.srcFirst + LONGLONG(srcRow) * p.srcStride, p.srcBitOffset,
                              work.data(), p.srcWidth);
    x.writeRow(&x, p.dstFirst + LONGLONG(y) * p.dstStride, p.dstBitOffset, w, p.dstWidth);
  }
  KyDibCleanupGenericParams(&p);

  const DWORD table = dst->biCompression == BI_BITFIELDS ? 12 : dst->biClrUsed * 4;
  const DWORD headerBytes = dst->biSize + table;
  BITMAPFILEHEADER fh = {};
  fh.bfType = 0x4D42;
  fh.bfOffBits = sizeof fh + headerBytes;
  fh.bfSize = fh.bfOffBits + dst->biSizeImage;
  FILE *f = fopen(out.c_str(), "wb");
  bool ok = f && fwrite(&fh, sizeof fh, 1, f) == 1 &&
            fwrite(dst, 1, headerBytes + dst->biSizeImage, f) == headerBytes + dst->biSizeImage;
  if (f && fclose(f) != 0) ok = false;
  KyDibFree(dst, 0);
  if (!ok) {
    fprintf(stderr, "kytool: cannot write %s\n", out.c_str());
    return 1;
  }
  printf("%s: type %ld (%s) -> %s: type %ld (%s), %s working form\n", in.c_str(), (long)srcType,
         TypeName(srcType), out.c_str(), (long)dstType, TypeName(dstType), deep ? "16-bit" : "8-bit");
  return 0;
}

int Bitmap(const kytool::Args &in) {
  kytool::Args args = in;
  const std::string to = kytool::TakeOption(args, "--convert", "");
  if (!to.empty()) {
    const LONG type = ParseType(to);
    if (!type || args.size() != 2) {
      fprintf(stderr, "kytool: bitmap --convert TYPE IN.bmp OUT.bmp (TYPE 16..32 or a name such as RGB565)\n");
      return 2;
    }
    return Convert(type, args[0], args[1]);
  }
  if (args.size() != 1) {
    fprintf(stderr, "kytool: bitmap FILE.bmp\n");
    return 2;
  }
  return Info(args[0]);
}

int BitmapDemo(const kytool::Args &) {
  const std::string sample = kytool::SamplePath("palette8.bmp");
  int rc = Info(sample);
  char tmp[MAX_PATH];
  GetTempPathA(MAX_PATH, tmp);
  const std::string out = std::string(tmp) + "kytool-rgb565.bmp";
  printf("\n");
  if (rc == 0) rc = Convert(KYPT_RGB565, sample, out);
  if (rc == 0) {
    printf("\n");
    rc = Info(out);
  }
  DeleteFileA(out.c_str());
  return rc;
}

} // namespace

KYTOOL_COMMAND("bitmap", "FILE.bmp | --convert TYPE IN.bmp OUT.bmp",
               "print a bitmap's pixel type and layout, or convert it to another pixel type",
               Bitmap, BitmapDemo, 60);
