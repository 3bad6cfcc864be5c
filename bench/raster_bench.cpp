// Rasteriser speed: frames per second and covered pixels per second for a 1920 x 1080 frame
// of N textured quads and M flat triangles, and for the demo scene (one textured picture
// turned in 3D and four triangles), through the A-buffer and through a plain 4 x 4
// supersampling renderer of the same polygons, measured the same way in the same run.
//   raster_bench [N quads (4)] [M triangles (32)] [frames (5)]
// "Covered pixels" are the polygons' areas summed (overdraw counts), the same for both.
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <vector>

#include "ky_abuffer.h"
#include "ky_geometry.h"
#include "ky_video.h"

namespace {

constexpr int kW = 1920, kH = 1080, kTex = 256;

struct Scene {
  std::vector<KY3DPOLY> polys;
  double area = 0;
};

double Area(const KY3DPOLY &p) {
  double a = 0;
  for (int i = 0; i < p.count; ++i) {
    const KY3DVERTEX &u = p.v[i], &v = p.v[(i + 1) % p.count];
    a += u.x * v.y - v.x * u.y;
  }
  return fabs(a) / 2;
}

KY3DVERTEX Vtx(float x, float y, float rhw = 1, float u = 0, float v = 0) {
  KY3DVERTEX r = {x, y, 1 / rhw, rhw, u, v, 1.0f};
  return r;
}

// A unit square turned by `angle` about the vertical axis, centred at (cx, cy), `size`
// pixels across when facing the viewer; texture coordinates 0..1.
KY3DPOLY TurnedQuad(float cx, float cy, float size, float angle) {
  tKYMATRIX3D m;
  KyMatrix3DMakeIdentity(&m);
  KyMatrix3DRotate(0, 1, 0, angle, &m);
  KyMatrix3DRotate(1, 0, 0, 0.3f, &m);
  KyMatrix3DTranslate(0, 0, 3.0f, &m);
  const float c[4][2] = {{-1, -1}, {1, -1}, {1, 1}, {-1, 1}}, uv[4][2] = {{0, 1}, {1, 1}, {1, 0}, {0, 0}};
  KY3DPOLY q;
  memset(&q, 0, sizeof(q));
  q.count = 4;
  q.state = KY3DRS_TEXTURED;
  for (int i = 0; i < 4; ++i) {
    float v[4] = {c[i][0], c[i][1], 0, 1}, r[4];
    Ky3DTransform(v, r, &m);
    const float rhw = 1 / r[2];
    q.v[i] = Vtx(cx + 1.5f * size * r[0] * rhw, cy - 1.5f * size * r[1] * rhw, rhw, uv[i][0], uv[i][1]);
  }
  return q;
}

KY3DPOLY Tri(float x0, float y0, float x1, float y1, float x2, float y2, DWORD bgra) {
  KY3DPOLY t;
  memset(&t, 0, sizeof(t));
  t.count = 3;
  t.state = KY3DRS_FLAT;
  t.v[0] = Vtx(x0, y0);
  t.v[1] = Vtx(x1, y1);
  t.v[2] = Vtx(x2, y2);
  memcpy(&t.color, &bgra, 4);
  return t;
}

Scene Grid(int quads, int tris) {
  Scene s;
  unsigned seed = 12345;
  auto rnd = [&](float lo, float hi) {
    seed = seed * 1103515245u + 12345u;
    return lo + (hi - lo) * ((seed >> 8) & 0xFFFF) / 65535.0f;
  };
  const int cols = quads > 0 ? int(ceil(sqrt(quads * 16.0 / 9.0))) : 1;
  const int rows = quads > 0 ? (quads + cols - 1) / cols : 1;
  for (int i = 0; i < quads; ++i) {
    const float cw = float(kW) / cols, ch = float(kH) / rows;
    s.polys.push_back(TurnedQuad(cw * (i % cols + 0.5f), ch * (i / cols + 0.5f), 0.4f * (cw < ch ? cw : ch),
                                 0.3f + 0.2f * i));
  }
  for (int i = 0; i < tris; ++i) {
    const float x = rnd(40, kW - 120), y = rnd(40, kH - 120);
    s.polys.push_back(Tri(x, y, x + rnd(20, 110), y + rnd(-30, 30), x + rnd(-30, 60), y + rnd(30, 110),
                          0xFF000000u | (seed & 0xFFFFFF)));
  }
  for (const KY3DPOLY &p : s.polys) s.area += Area(p);
  return s;
}

Scene Demo() {
  Scene s;
  const float w = kW, h = kH;
  s.polys.push_back(Tri(0.05f * w, 0.70f * h, 0.30f * w, 0.95f * h, 0.02f * w, 0.98f * h, 0xFFE05030u));
  s.polys.push_back(Tri(0.70f * w, 0.05f * h, 0.97f * w, 0.10f * h, 0.90f * w, 0.35f * h, 0xFF30C0F0u));
  s.polys.push_back(Tri(0.80f * w, 0.75f * h, 0.98f * w, 0.97f * h, 0.62f * w, 0.96f * h, 0xFF60E060u));
  s.polys.push_back(Tri(0.86f * w, 0.62f * h, 0.99f * w, 0.88f * h, 0.72f * w, 0.86f * h, 0xFF4040E0u));
  s.polys.push_back(TurnedQuad(w / 2, h / 2, 0.45f * h, 0.6f));
  for (const KY3DPOLY &p : s.polys) s.area += Area(p);
  return s;
}

// ---- the plain 4 x 4 supersampling renderer ----

bool Inside(const KY3DPOLY &p, double x, double y) {
  bool in = false;
  for (int i = 0; i < p.count; ++i) {
    const KY3DVERTEX &a = p.v[i], &b = p.v[(i + 1) % p.count];
    if ((a.y > y) != (b.y > y) && a.x + (b.x - a.x) * (y - a.y) / (b.y - a.y) <= x) in = !in;
  }
  return in;
}

void SuperSample(const Scene &s, DWORD *dst, const DWORD *tex) {
  for (const KY3DPOLY &p : s.polys) {
    double x0 = 1e9, x1 = -1e9, y0 = 1e9, y1 = -1e9;
    for (int i = 0; i < p.count; ++i) {
      x0 = fmin(x0, p.v[i].x), x1 = fmax(x1, p.v[i].x);
      y0 = fmin(y0, p.v[i].y), y1 = fmax(y1, p.v[i].y);
    }
    const int ix0 = x0 < 0 ? 0 : int(x0), ix1 = x1 >= kW ? kW - 1 : int(x1);
    const int iy0 = y0 < 0 ? 0 : int(y0), iy1 = y1 >= kH ? kH - 1 : int(y1);
    // Perspective planes of q, u*q, v*q from the first three vertices.
    const KY3DVERTEX &a = p.v[0], &b = p.v[1], &c = p.v[2];
    const double det = (b.x - a.x) * (c.y - a.y) - (c.x - a.x) * (b.y - a.y);
    for (int y = iy0; y <= iy1; ++y)
      for (int x = ix0; x <= ix1; ++x) {
        int n = 0;
        for (int sy = 0; sy < 4; ++sy)
          for (int sx = 0; sx < 4; ++sx) n += Inside(p, x + (sx + 0.5) / 4, y + (sy + 0.5) / 4);
        if (!n) continue;
        DWORD col;
        if (p.state == KY3DRS_TEXTURED) {
          const double px = x + 0.5, py = y + 0.5;
          const double wb = ((px - a.x) * (c.y - a.y) - (c.x - a.x) * (py - a.y)) / det;
          const double wc = ((b.x - a.x) * (py - a.y) - (px - a.x) * (b.y - a.y)) / det;
          const double wa = 1 - wb - wc;
          const double q = wa * a.rhw + wb * b.rhw + wc * c.rhw;
          double u = (wa * a.u * a.rhw + wb * b.u * b.rhw + wc * c.u * c.rhw) / q;
          double v = (wa * a.v * a.rhw + wb * b.v * b.rhw + wc * c.v * c.rhw) / q;
          u = u < 0 ? 0 : (u > 1 ? 1 : u);
          v = v < 0 ? 0 : (v > 1 ? 1 : v);
          col = tex[int(v * (kTex - 1)) * kTex + int(u * (kTex - 1))];
        } else {
          memcpy(&col, &p.color, 4);
        }
        DWORD &d = dst[(kH - 1 - y) * kW + x];
        DWORD out = 0;
        for (int k = 0; k < 32; k += 8) {
          const int cc = (col >> k) & 255, dd = (d >> k) & 255;
          out |= DWORD(dd + (cc - dd) * n / 16) << k;
        }
        d = out;
      }
  }
}

double Now() {
  LARGE_INTEGER f, t;
  QueryPerformanceFrequency(&f);
  QueryPerformanceCounter(&t);
  return double(t.QuadPart) / f.QuadPart;
}

void Report(const char *what, const char *renderer, double seconds, int frames, double area) {
  const double perFrame = seconds / frames;
  printf("  %-22s %-28s %8.2f ms/frame %8.2f fps %8.1f Mpixel/s\n", what, renderer, perFrame * 1000,
         1 / perFrame, area / perFrame / 1e6);
}

// FNV-1a of the destination, to compare the images of two builds.
DWORD Checksum(const std::vector<DWORD> &frame) {
  DWORD h = 2166136261u;
  for (DWORD v : frame) h = (h ^ v) * 16777619u;
  return h;
}

// One frame first (not timed), then `frames` timed ones.
double RunABuffer(A_Buffer &ab, const Scene &s, tA_BUFFER_PARAM &prm, int frames) {
  double t0 = 0;
  for (int f = -1; f < frames; ++f) {
    if (f == 0) t0 = Now();
    ab.BeginFrame(&prm);
    for (const KY3DPOLY &p : s.polys) {
      KY3DPOLY q = p;
      ab.DrawPoly(&q, 0, 0);
    }
    ab.EndFrame();
  }
  return Now() - t0;
}

}  // namespace

int main(int argc, char **argv) {
  const int quads = argc > 1 ? atoi(argv[1]) : 4;
  const int tris = argc > 2 ? atoi(argv[2]) : 32;
  const int frames = argc > 3 ? atoi(argv[3]) : 5;
  std::vector<DWORD> tex(kTex * kTex), frame(kW * kH, 0xFF2C3B4Au);
  for (int y = 0; y < kTex; ++y)
    for (int x = 0; x < kTex; ++x)
      tex[y * kTex + x] = 0xFF000000u | ((((x / 32 + y / 32) & 1) ? 0xD0D0D0u : 0x303030u) ^ DWORD((x << 16) | y));
  static A_Buffer ab;
  if (!ab.Init()) {
    printf("A_Buffer::Init failed\n");
    return 1;
  }
  tA_BUFFER_PARAM prm;
  memset(&prm, 0, sizeof(prm));
  prm.dstHeader.biSize = sizeof(BITMAPINFOHEADER);
  prm.dstHeader.biWidth = kW;
  prm.dstHeader.biHeight = kH;
  prm.dstHeader.biPlanes = 1;
  prm.dstHeader.biBitCount = 32;
  prm.dstPixels = frame.data();
  prm.opacity = 1.0f;
  prm.textureCount = 1;
  prm.textures[0].header = prm.dstHeader;
  prm.textures[0].header.biWidth = prm.textures[0].header.biHeight = kTex;
  prm.textures[0].header.biCompression = KY_BI_KYDB;
  prm.textures[0].pixels = tex.data();

  printf("raster_bench: %dx%d, %d frame(s) per measurement, texture %dx%d RGBA32\n", kW, kH, frames, kTex, kTex);
  const Scene scenes[2] = {Demo(), Grid(quads, tris)};
  char names[2][48];
  snprintf(names[0], sizeof names[0], "demo scene");
  snprintf(names[1], sizeof names[1], "%d quads + %d triangles", quads, tris);
  for (int i = 0; i < 2; ++i) {
    const Scene &s = scenes[i];
    printf("%s: %zu polygons, %.0f covered pixels per frame\n", names[i], s.polys.size(), s.area);
    for (const DWORD compression : {DWORD(KY_BI_KYDB), DWORD(BI_RGB)}) {
      prm.dstHeader.biCompression = compression;
      const double t = RunABuffer(ab, s, prm, frames);
      Report(names[i], compression == BI_RGB ? "A-buffer, RGB32 destination" : "A-buffer, RGBA32 destination",
             t, frames, s.area);
      printf("    (image checksum %08lX)\n", static_cast<unsigned long>(Checksum(frame)));
    }
    printf("    (regions used in the last frame: %ld of %d%s)\n", (long)ab.m_poolUsed, KY_ABUFFER_POOL_SIZE,
           ab.m_poolWrapped ? ", the pool wrapped" : "");
    const double t0 = Now();
    for (int f = 0; f < frames; ++f) SuperSample(s, frame.data(), tex.data());
    const double ss = Now() - t0;
    Report(names[i], "plain 4x4 supersampling", ss, frames, s.area);
  }
  ab.Cleanup();
  return 0;
}
