// kytool render: draws the rasteriser's demo scene - a textured picture turned in 3D over a
// flat background, with a few overlapping triangles - and writes it as a .bmp.
#include "kytool.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <string>
#include <vector>

#include "ky_abuffer.h"
#include "ky_geometry.h"
#include "ky_video.h"

namespace {

BYTE *PixelsOf(BITMAPINFOHEADER *h) {
  const DWORD table = h->biCompression == BI_BITFIELDS ? 12 : h->biClrUsed * 4;
  return reinterpret_cast<BYTE *>(h) + h->biSize + table;
}

LONG Stride(const BITMAPINFOHEADER *h) { return ((h->biBitCount * h->biWidth + 31) & ~31) / 8; }

// The picture on the turning quad: a colour wheel inside a checkerboard frame.
BITMAPINFOHEADER *MakeTexture(int size) {
  BITMAPINFOHEADER *t = nullptr;
  if (FAILED(KyDibAlloc(&t, KYPT_RGBA32, size, size, nullptr, 0, 1))) return nullptr;
  BYTE *px = PixelsOf(t);
  const LONG stride = Stride(t);
  for (int y = 0; y < size; ++y) {
    BYTE *row = px + (size - 1 - y) * stride;  // bottom-up rows; y counts from the top
    for (int x = 0; x < size; ++x) {
      const double fx = (x + 0.5) / size - 0.5, fy = (y + 0.5) / size - 0.5;
      const double r = sqrt(fx * fx + fy * fy), a = atan2(fy, fx);
      BYTE b, g, rd;
      if (r < 0.38) {
        rd = BYTE(127.5 + 127.5 * cos(a));
        g = BYTE(127.5 + 127.5 * cos(a - 2.094));
        b = BYTE(127.5 + 127.5 * cos(a + 2.094));
        const double fade = r / 0.38;
        rd = BYTE(rd * fade + 255 * (1 - fade));
        g = BYTE(g * fade + 255 * (1 - fade));
        b = BYTE(b * fade + 255 * (1 - fade));
      } else {
        const bool dark = ((x * 8 / size) + (y * 8 / size)) & 1;
        rd = g = b = dark ? 40 : 215;
      }
      row[x * 4 + 0] = b;
      row[x * 4 + 1] = g;
      row[x * 4 + 2] = rd;
      row[x * 4 + 3] = 255;
    }
  }
  return t;
}

KY3DVERTEX Vertex(float x, float y, float rhw, float u, float v) {
  KY3DVERTEX r = {x, y, 1.0f / rhw, rhw, u, v, 1.0f};
  return r;
}

// Fills the destination with the flat background colour (the polygons are blended over
// what the bitmap holds).
void FillBackground(BITMAPINFOHEADER *dib) {
  BYTE *px = PixelsOf(dib);
  const LONG stride = Stride(dib);
  for (LONG y = 0; y < dib->biHeight; ++y)
    for (LONG x = 0; x < dib->biWidth; ++x) {
      BYTE *p = px + y * stride + x * 3;
      p[0] = 0x2C;
      p[1] = 0x3B;
      p[2] = 0x4A;
    }
}

// One frame of the scene at `angle` (radians) over the flat background. Inside a pixel the
// regions of a row are taken in order of their left ends: where the triangles overlap the
// quad or each other, a pixel covered wholly by several shows the one starting furthest
// right in that row, and on edges each sub-pixel goes to the first region claiming it.
bool DrawScene(A_Buffer &ab, tA_BUFFER_PARAM &prm, BITMAPINFOHEADER *dst, float angle) {
  const int w = dst->biWidth, h = dst->biHeight;
  FillBackground(dst);
  if (!ab.BeginFrame(&prm)) return false;
  const struct {
    float x0, y0, x1, y1, x2, y2;
    DWORD bgra;
  } tris[] = {
      {0.05f, 0.70f, 0.30f, 0.95f, 0.02f, 0.98f, 0xFFE05030u},
      {0.70f, 0.05f, 0.97f, 0.10f, 0.90f, 0.35f, 0xFF30C0F0u},
      {0.80f, 0.75f, 0.98f, 0.97f, 0.62f, 0.96f, 0xFF60E060u},
      {0.86f, 0.62f, 0.99f, 0.88f, 0.72f, 0.86f, 0xFF4040E0u},
  };
  for (const auto &t : tris) {
    KY3DTRIANGLE tri;
    memset(&tri, 0, sizeof(tri));
    tri.v[0] = Vertex(t.x0 * w, t.y0 * h, 1, 0, 0);
    tri.v[1] = Vertex(t.x1 * w, t.y1 * h, 1, 0, 0);
    tri.v[2] = Vertex(t.x2 * w, t.y2 * h, 1, 0, 0);
    tri.state = KY3DRS_FLAT;
    memcpy(&tri.color, &t.bgra, 4);
    ab.DrawTriangle(&tri);
  }
  // The picture: a unit square turned about the vertical axis and tilted, 3.6 units away.
  tKYMATRIX3D m;
  KyMatrix3DMakeIdentity(&m);
  KyMatrix3DRotate(0, 1, 0, angle, &m);
  KyMatrix3DRotate(1, 0, 0, 0.35f, &m);
  KyMatrix3DTranslate(0, 0, 3.6f, &m);
  const float corners[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}};
  const float uv[4][2] = {{0, 1}, {1, 1}, {1, 0}, {0, 0}};
  const float focal = 1.6f * (h < w ? h : w);
  KY3DPOLY quad;
  memset(&quad, 0, sizeof(quad));
  quad.count = 4;
  quad.state = KY3DRS_TEXTURED;
  for (int i = 0; i < 4; ++i) {
    float v[4] = {corners[i][0], corners[i][1], 0, 1}, r[4];
    Ky3DTransform(v, r, &m);
    const float rhw = 1.0f / r[2];
    quad.v[i] = Vertex(w * 0.5f + focal * r[0] * rhw, h * 0.5f - focal * r[1] * rhw, rhw, uv[i][0], uv[i][1]);
    quad.v[i].shade = 0.55f + 0.45f * fabsf(cosf(angle));
  }
  ab.DrawPoly(&quad, 0.0, 0.0);
  ab.EndFrame();
  return true;
}

bool WriteBmp(const std::string &path, BITMAPINFOHEADER *dib) {
  const DWORD bytes = dib->biSize + Stride(dib) * dib->biHeight;
  BITMAPFILEHEADER fh;
  memset(&fh, 0, sizeof(fh));
  fh.bfType = 0x4D42;  // "BM"
  fh.bfOffBits = sizeof(fh) + dib->biSize;
  fh.bfSize = fh.bfOffBits + Stride(dib) * dib->biHeight;
  FILE *f = fopen(path.c_str(), "wb");
  if (!f) return false;
  bool ok = fwrite(&fh, sizeof(fh), 1, f) == 1 && fwrite(dib, bytes, 1, f) == 1;
  ok = fclose(f) == 0 && ok;
  return ok;
}

int Render(const kytool::Args &in) {
  kytool::Args args = in;
  const int w = atoi(kytool::TakeOption(args, "--width", "640").c_str());
  const int h = atoi(kytool::TakeOption(args, "--height", "360").c_str());
  const int frames = atoi(kytool::TakeOption(args, "--frames", "1").c_str());
  if (args.size() != 1 || w < 2 || h < 2 || w > 16384 || h > KY_ABUFFER_MAX_ROWS || frames < 1) {
    fprintf(stderr, "usage: kytool render OUT.bmp [--width W] [--height H] [--frames N]\n"
                    "  (width 2..16384, height 2..2048, N >= 1)\n");
    return 2;
  }
  BITMAPINFOHEADER *dst = nullptr;
  BITMAPINFOHEADER *tex = MakeTexture(256);
  if (FAILED(KyDibAlloc(&dst, KYPT_RGB24, w, h, nullptr, 0, 1)) || !tex) {
    fprintf(stderr, "kytool: out of memory\n");
    KyDibFree(dst, 0);
    KyDibFree(tex, 0);
    return 1;
  }
  static A_Buffer ab;  // large: keep it off the stack
  tA_BUFFER_PARAM prm;
  memset(&prm, 0, sizeof(prm));
  prm.dstHeader = *dst;
  prm.dstPixels = PixelsOf(dst);
  prm.opacity = 1.0f;
  prm.textureCount = 1;
  prm.textures[0].header = *tex;
  prm.textures[0].pixels = PixelsOf(tex);
  int rc = 0;
  if (!ab.Init()) {
    fprintf(stderr, "kytool: the rasteriser could not allocate its pool\n");
    rc = 1;
  }
  LARGE_INTEGER f, t0, t1;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&t0);
  for (int i = 0; i < frames && rc == 0; ++i) {
    if (!DrawScene(ab, prm, dst, 0.6f + 0.05f * i)) {
      fprintf(stderr, "kytool: the frame was refused\n");
      rc = 1;
    }
  }
  QueryPerformanceCounter(&t1);
  ab.Cleanup();
  if (rc == 0) {
    const double ms = 1000.0 * (t1.QuadPart - t0.QuadPart) / f.QuadPart / frames;
    if (!WriteBmp(args[0], dst)) {
      fprintf(stderr, "kytool: cannot write %s\n", args[0].c_str());
      rc = 1;
    } else {
      printf("%s: %dx%d, 24-bit; %d frame(s), %.2f ms per frame\n", args[0].c_str(), w, h, frames, ms);
    }
  }
  KyDibFree(dst, 0);
  KyDibFree(tex, 0);
  return rc;
}

int RenderDemo(const kytool::Args &) {
  char tmp[MAX_PATH];
  GetTempPathA(MAX_PATH, tmp);
  return Render({std::string(tmp) + "kytool-render.bmp", "--width", "320", "--height", "180"});
}

}  // namespace

KYTOOL_COMMAND("render", "OUT.bmp [--width W] [--height H] [--frames N]",
               "draw the rasteriser's demo scene (a textured picture turned in 3D) into a .bmp",
               Render, RenderDemo, 60);
