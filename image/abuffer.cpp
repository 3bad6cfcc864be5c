// A_Buffer: the frame, the per-row region lists, scan conversion into regions and the
// resolve that blends every row into the destination.
#include <math.h>
#include <string.h>

#include "abuffer_internal.h"

using namespace ky::ab;

namespace ky::ab {

namespace {

void *AllocLocked(SIZE_T bytes) {
  HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, bytes);
  if (!h) return nullptr;
  void *p = GlobalLock(h);
  if (!p) GlobalFree(h);
  return p;
}

void FreeLocked(void *p) {
  if (!p) return;
  HGLOBAL h = GlobalHandle(p);
  if (!h) return;
  GlobalUnlock(h);
  GlobalFree(h);
}

// Layout of the work block allocated by PreAllocateListItems.
constexpr SIZE_T kBitCountBytes = 65536;
constexpr SIZE_T kRingBytes = sizeof(tACTIVEREGIONLIST) * KY_ABUFFER_RING_SIZE;
constexpr SIZE_T kPolyBytes = sizeof(PolyRec) * kPolyCapacity;
constexpr SIZE_T kTexBytes = sizeof(TexInfo) * KY_ABUFFER_MAX_TEXTURES;
constexpr SIZE_T kChunkBytes = sizeof(tKYPIXEL32) * kRowChunk;

inline TexInfo *Textures(void *work) {
  return reinterpret_cast<TexInfo *>(static_cast<BYTE *>(work) + kBitCountBytes + kRingBytes +
                                     kPolyBytes);
}

// A header as the pixel-format functions read it: the header followed by its colour table
// (palettised types) or its three masks (BI_BITFIELDS), taken from `given` or else from
// right before the pixels (a packed bitmap). Returns the colour table in the caller's
// memory, or null.
struct Described {
  BITMAPINFOHEADER h;
  RGBQUAD table[256];
};

const RGBQUAD *Describe(const BITMAPINFOHEADER &h, const void *pixels, const void *given, Described *d) {
  memset(d, 0, sizeof(*d));
  d->h = h;
  d->h.biSize = sizeof(BITMAPINFOHEADER);
  DWORD entries = 0;
  const bool masks = h.biCompression == BI_BITFIELDS;
  if (masks)
    entries = 3;
  else if (h.biCompression == BI_RGB && h.biBitCount >= 1 && h.biBitCount <= 8)
    entries = h.biClrUsed ? (h.biClrUsed > 256 ? 256 : h.biClrUsed) : (1u << h.biBitCount);
  if (!entries) return nullptr;
  const BYTE *src = static_cast<const BYTE *>(given);
  if (!src && pixels) src = static_cast<const BYTE *>(pixels) - entries * 4;
  if (!src || !Readable(src, entries * 4)) return nullptr;
  memcpy(d->table, src, entries * 4);
  if (masks) return nullptr;
  d->h.biClrUsed = entries;
  return reinterpret_cast<const RGBQUAD *>(src);
}



// Fits value = a * (x - ox) + b * (y - oy) + c through the vertices i, j, k (pixels).
void FitPlane(const double *xs, const double *ys, const double *f, int i, int j, int k,
              double ox, double oy, double *plane) {
  const double x1 = xs[j] - xs[i], y1 = ys[j] - ys[i];
  const double x2 = xs[k] - xs[i], y2 = ys[k] - ys[i];
  const double det = x1 * y2 - x2 * y1;
  double a = 0.0, b = 0.0;
  if (fabs(det) > 1e-9) {
    const double f1 = f[j] - f[i], f2 = f[k] - f[i];
    a = (f1 * y2 - f2 * y1) / det;
    b = (f2 * x1 - f1 * x2) / det;
  }
  plane[0] = a;
  plane[1] = b;
  plane[2] = f[i] + a * (ox - xs[i]) + b * (oy - ys[i]);
}

}  // namespace

bool Readable(const void *p, SIZE_T bytes) {
  const BYTE *at = static_cast<const BYTE *>(p);
  const BYTE *end = at + bytes;
  if (!p || end < at) return false;
  while (at < end) {
    MEMORY_BASIC_INFORMATION mbi;
    if (!VirtualQuery(at, &mbi, sizeof(mbi)) || mbi.State != MEM_COMMIT) return false;
    if (mbi.Protect & (PAGE_NOACCESS | PAGE_GUARD)) return false;
    if (!(mbi.Protect & (PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE_READ |
                         PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY)))
      return false;
    at = static_cast<const BYTE *>(mbi.BaseAddress) + mbi.RegionSize;
  }
  return true;
}

// Pixel callback of flat regions: the polygon's colour.
void KYAPI FlatPixel(tACTIVEREGIONLIST *entry, tKYPIXEL32 *pixel, tA_BUFFER_PARAM *) {
  *pixel = entry->step.color;
}

// Pixel callback of textured regions (see TexturedColor).
void KYAPI TexturedPixel(tACTIVEREGIONLIST *entry, tKYPIXEL32 *pixel, tA_BUFFER_PARAM *) {
  TexturedColor(entry->step, pixel);
}

}  // namespace ky::ab

// ---- construction ----

A_Buffer::A_Buffer() { memset(static_cast<void *>(this), 0, sizeof(*this)); }

// Deliberately leaves the pool alone: Cleanup frees it.
A_Buffer::~A_Buffer() {}

// Copies the tables and the frame parameters. The blocks an object allocates (pool, work
// block, quantizer) stay each object's own, so both may call Cleanup; the copy's row lists
// start empty and it is not inside a frame.
A_Buffer &A_Buffer::operator=(const A_Buffer &other) {
  if (this == &other) return *this;
  tKYABREGION *pool = m_pool;
  void *work = m_work;
  BYTE *bitCount = m_bitCount;
  tACTIVEREGIONLIST *ring = m_ring;
  void *polys = m_polys;
  tKYPIXEL32 *rowChunk = m_rowChunk;
  HGLOBAL quantizer = m_quantizer;
  const LONG poolCapacity = m_poolCapacity, polyCapacity = m_polyCapacity;
  memcpy(static_cast<void *>(this), &other, sizeof(*this));
  m_pool = pool;
  m_work = work;
  m_bitCount = bitCount;
  m_ring = ring;
  m_polys = polys;
  m_rowChunk = rowChunk;
  m_quantizer = quantizer;
  m_poolCapacity = poolCapacity;
  m_polyCapacity = polyCapacity;
  m_poolUsed = m_polyUsed = m_poolWrapped = 0;
  if (m_bitCount && other.m_bitCount) memcpy(m_bitCount, other.m_bitCount, 65536);
  for (int i = 0; i < KY_ABUFFER_MAX_ROWS; ++i) m_rows[i] = nullptr;
  m_inFrame = 0;
  return *this;
}

BOOL A_Buffer::Init() {
  if (!m_pool && !PreAllocateListItems()) return 0;
  BuildSubPixelMaskTable();
  for (int i = 0; i < KY_ABUFFER_MAX_ROWS; ++i) m_rows[i] = nullptr;
  return 1;
}

void A_Buffer::Cleanup() {
  KyDibDestroyColorQuantizer(m_quantizer);
  m_quantizer = nullptr;
  FreeListItems();
  m_inFrame = 0;
}

// Bit counts of every 16-bit value and the coverage weights: entry i is the integer part of
// sqrt(i / 1024) * 1024, so partial coverage is brightened; the size stored right after the
// table serves as the weight of full coverage.
void A_Buffer::BuildSubPixelMaskTable() {
  if (m_bitCount) {
    m_bitCount[0] = 0;
    for (int i = 1; i < 65536; ++i) m_bitCount[i] = static_cast<BYTE>(m_bitCount[i >> 1] + (i & 1));
  }
  for (int i = 0; i < 1024; ++i) m_weight[i] = static_cast<LONG>(pow(i * 0.0009765625, 0.5) * 1024.0);
  m_weightSize = 1024;
}

BOOL A_Buffer::PreAllocateListItems() {
  if (m_pool) return 1;
  m_pool = static_cast<tKYABREGION *>(AllocLocked(sizeof(tKYABREGION) * KY_ABUFFER_POOL_SIZE));
  if (!m_pool) return 0;
  m_work = AllocLocked(kBitCountBytes + kRingBytes + kPolyBytes + kTexBytes + kChunkBytes);
  if (!m_work) {
    FreeLocked(m_pool);
    m_pool = nullptr;
    return 0;
  }
  m_poolCapacity = KY_ABUFFER_POOL_SIZE;
  m_poolUsed = 0;
  m_bitCount = static_cast<BYTE *>(m_work);
  m_ring = reinterpret_cast<tACTIVEREGIONLIST *>(static_cast<BYTE *>(m_work) + kBitCountBytes);
  m_polys = static_cast<BYTE *>(m_work) + kBitCountBytes + kRingBytes;
  m_polyCapacity = kPolyCapacity;
  m_rowChunk = reinterpret_cast<tKYPIXEL32 *>(static_cast<BYTE *>(m_work) + kBitCountBytes + kRingBytes +
                                               kPolyBytes + kTexBytes);
  return 1;
}

void A_Buffer::FreeListItems() {
  FreeLocked(m_pool);
  FreeLocked(m_work);
  m_pool = nullptr;
  m_work = nullptr;
  m_bitCount = nullptr;
  m_ring = nullptr;
  m_polys = nullptr;
  m_rowChunk = nullptr;
  m_poolCapacity = m_poolUsed = 0;
  m_polyCapacity = m_polyUsed = 0;
  for (int i = 0; i < KY_ABUFFER_MAX_ROWS; ++i) m_rows[i] = nullptr;
}

// Hands out the next record of the pool. When the pool is exhausted it starts again at
// record 0 within the same frame: older regions are given up (deliberately; a frame that
// needs more than 4000 regions loses its first ones). A reused record is first taken out of
// the row list that holds it, so the lists stay well formed.
tKYABREGION *A_Buffer::GetIntersectStructure() {
  if (!m_pool || m_poolCapacity <= 0) return nullptr;
  if (m_poolUsed >= m_poolCapacity) {
    m_poolUsed = 0;
    m_poolWrapped = 1;
  }
  tKYABREGION *r = &m_pool[m_poolUsed++];
  if (m_poolWrapped) {
    const LONG row = r->isect.m_row;
    if (row >= 0 && row < KY_ABUFFER_MAX_ROWS) {
      for (tKYABREGION **link = &m_rows[row]; *link; link = &(*link)->next) {
        if (*link == r) {
          *link = r->next;
          break;
        }
      }
    }
  }
  r->next = nullptr;
  r->finished = 0;
  r->isect.m_row = -1;
  return r;
}

// Clips a region's x limits to the destination; 0 when nothing of it is inside.
BOOL A_Buffer::ClipIntersect(LONG *xMin, LONG *xMax) {
  const LONG right = m_width * kOne;
  if (*xMin < 0) *xMin = 0;
  if (*xMax > right) *xMax = right;
  return *xMin < *xMax;
}

// Puts the record into `row`'s list in order of start x (after records with the same start,
// so regions that start together keep their drawing order).
BOOL A_Buffer::InsertIntersect(tKYABREGION *region, LONG row, KYABPIXELPROC proc, LONG xMin,
                               LONG xMax) {
  if (!region || row < 0 || row >= KY_ABUFFER_MAX_ROWS || row >= m_height) return 0;
  region->isect.m_proc = proc;
  region->isect.m_xMin = xMin;
  region->isect.m_xMax = xMax;
  region->isect.m_width = m_width;
  region->isect.m_row = row;
  region->startX = xMin;
  region->finished = 0;
  tKYABREGION **link = &m_rows[row];
  while (*link && (*link)->startX <= xMin) link = &(*link)->next;
  region->next = *link;
  *link = region;
  return 1;
}

// Starts a frame: copies the parameters, classifies the destination and the textures,
// prepares the two exchange records (flags 35) and, for a 4-bit or 8-bit palettised
// destination, its colour quantizer; empties the pool, the polygon store and the rows.
// Returns 0 (no frame) without Init, for a missing destination, one wider than 65535
// pixels, a stride shorter than a row, or of no known pixel type, a texture count outside 0..32, textures of differing types, or a failed quantizer.
BOOL A_Buffer::BeginFrame(tA_BUFFER_PARAM *param) {
  m_inFrame = 0;
  if (m_quantizer) {
    KyDibDestroyColorQuantizer(m_quantizer);
    m_quantizer = nullptr;
  }
  if (!param || !m_pool) return 0;
  memcpy(&m_param, param, sizeof(m_param));
  const LONG count = m_param.textureCount;
  if (count < 0 || count > KY_ABUFFER_MAX_TEXTURES) return 0;
  Described d;
  // Every texture of a multi-texture frame must share the first one's pixel type.
  LONG texType = 0;
  const RGBQUAD *texColors[KY_ABUFFER_MAX_TEXTURES];
  for (LONG i = 0; i < count; ++i) {
    const tKYABUFFERTEXTURE &t = m_param.textures[i];
    texColors[i] = Describe(t.header, t.pixels, t.colors, &d);
    const LONG type = KyGetPixelType(&d.h);
    if (i == 0)
      texType = type;
    else if (type != texType)
      return 0;
  }
  const BITMAPINFOHEADER &h = m_param.dstHeader;
  // Positions inside the destination are 18.14 fixed point: at most 65535 columns.
  if (h.biWidth <= 0 || h.biWidth > 65535 || h.biHeight == 0 || !m_param.dstPixels) return 0;
  m_dstColors = Describe(h, m_param.dstPixels, nullptr, &d);
  const LONG dstType = KyGetPixelType(&d.h);
  if (dstType < KYPT_FIRST || dstType > KYPT_LAST) return 0;
  if (count > 0 && (texType < KYPT_FIRST || texType > KYPT_LAST)) return 0;
  memset(m_xchg, 0, sizeof(m_xchg));
  if (count > 0 && FAILED(KyDibPrepareXchgParams(dstType, texType, 35, &m_xchg[0], nullptr))) return 0;
  if (FAILED(KyDibPrepareXchgParams(dstType, dstType, 35, &m_xchg[1], nullptr))) return 0;
  // The resolve blends in the 8-bit working form.
  if ((m_xchg[1].flags | m_xchg[0].flags) & KYXCHG_DEEP) return 0;
  m_xchg[1].srcColors = m_dstColors;
  m_xchg[1].dstColors = m_dstColors;
  m_xchg[0].dstColors = m_dstColors;
  if (dstType == KYPT_RGB4 || dstType == KYPT_RGB8) {
    m_quantizer = KyDibCreateColorQuantizer(&d.h);
    if (!m_quantizer) return 0;
    m_xchg[0].dstQuantizer = m_quantizer;
    m_xchg[1].dstQuantizer = m_quantizer;
  }
  const LONG height = h.biHeight < 0 ? -h.biHeight : h.biHeight;
  LONG stride = m_param.dstStride;
  if (stride <= 0) stride = ((h.biBitCount * h.biWidth + 31) & ~31) / 8;
  if (stride < (h.biBitCount * h.biWidth + 7) / 8) return 0;  // rows would overlap
  m_dstType = dstType;
  m_texType = texType;
  m_width = h.biWidth;
  m_height = height > KY_ABUFFER_MAX_ROWS ? KY_ABUFFER_MAX_ROWS : height;
  BYTE *pixels = static_cast<BYTE *>(m_param.dstPixels);
  if (h.biHeight > 0) {
    m_dstTopRow = pixels + static_cast<LONG_PTR>(height - 1) * stride;
    m_dstRowStep = -stride;
  } else {
    m_dstTopRow = pixels;
    m_dstRowStep = stride;
  }
  // A texture type stored like the working form is read straight from memory.
  tKYDIBXCHGPARAMS probe;
  const bool direct = count > 0 && SUCCEEDED(KyDibPrepareXchgParams(texType, texType, 35, &probe, nullptr)) &&
                      !(probe.flags & (KYXCHG_GENERIC | KYXCHG_DEEP));
  TexInfo *tex = Textures(m_work);
  for (LONG i = 0; i < count; ++i) {
    const tKYABUFFERTEXTURE &src = m_param.textures[i];
    TexInfo &t = tex[i];
    const LONG th = src.header.biHeight < 0 ? -src.header.biHeight : src.header.biHeight;
    LONG ts = src.stride;
    if (ts <= 0) ts = ((src.header.biBitCount * src.header.biWidth + 31) & ~31) / 8;
    t.width = src.header.biWidth;
    // A texture whose rows would overlap, or too large for the texel arithmetic, is empty.
    if (ts < (src.header.biBitCount * src.header.biWidth + 7) / 8 || t.width > 65535 || th > 65535)
      t.width = 0;
    t.height = th;
    t.type = texType;
    t.direct = direct;
    t.xchg = &m_xchg[0];
    const BYTE *tp = static_cast<const BYTE *>(src.pixels);
    if (!tp || t.width <= 0 || th <= 0) t.width = t.height = 0;
    if (src.header.biHeight > 0) {
      t.top = tp + static_cast<LONG_PTR>(th - 1) * ts;
      t.rowStep = -ts;
    } else {
      t.top = tp;
      t.rowStep = ts;
    }
  }
  // Textures of one frame share a type but each may have its own colour table: the texture
  // record carries the one of the polygon being resolved (see the textured pixel callback).
  if (count > 0) m_xchg[0].srcColors = texColors[0];
  for (LONG i = 0; i < count; ++i) tex[i].colors = texColors[i];
  float op = m_param.opacity;
  if (!(op > 0.0f)) op = 0.0f;
  if (op > 1.0f) op = 1.0f;
  m_opacity65535 = static_cast<LONG>(op * 65535.0f + 0.5f);
  m_opacity255 = static_cast<LONG>(op * 255.0f + 0.5f);
  m_opacity16384 = static_cast<LONG>(op * 16384.0f + 0.5f);
  m_poolUsed = 0;
  m_poolWrapped = 0;
  m_polyUsed = 0;
  m_ringCount = 0;
  for (int i = 0; i < KY_ABUFFER_RING_SIZE; ++i) m_ring[i].inUse = 0;
  for (int i = 0; i < KY_ABUFFER_MAX_ROWS; ++i) m_rows[i] = nullptr;
  m_inFrame = 1;
  return 1;
}

BOOL A_Buffer::DrawTriangle(KY3DTRIANGLE *tri) {
  if (!tri) return 0;
  KY3DPOLY p;
  memset(&p, 0, sizeof(p));
  p.count = 3;
  for (int i = 0; i < 3; ++i) p.v[i] = tri->v[i];
  p.state = tri->state;
  p.color = tri->color;
  p.texture = tri->texture;
  return DrawComplexPoly(&p, 0.0, 0.0);
}

BOOL A_Buffer::DrawPoly(KY3DPOLY *poly, double dx, double dy) { return DrawComplexPoly(poly, dx, dy); }

// Converts a polygon (moved by dx, dy pixels) into one region per destination row that it
// touches. Returns 0 without drawing for: no frame, a count outside 3..16, an unknown render
// state, a texture index outside the frame's textures, a position that is not finite or
// lies beyond 65536 pixels, a textured vertex whose rhw is not positive, or a full polygon
// store (4000 polygons per frame).
BOOL A_Buffer::DrawComplexPoly(KY3DPOLY *poly, double dx, double dy) {
  if (!m_inFrame || !poly) return 0;
  const LONG n = poly->count;
  if (n < 3 || n > KY3D_MAX_POLY_VERTICES) return 0;
  const LONG state = poly->state;
  if (state != KY3DRS_FLAT && state != KY3DRS_TEXTURED) return 0;
  if (state == KY3DRS_TEXTURED && (poly->texture < 0 || poly->texture >= m_param.textureCount))
    return 0;
  if (m_polyUsed >= m_polyCapacity) return 0;
  double xs[KY3D_MAX_POLY_VERTICES], ys[KY3D_MAX_POLY_VERTICES];
  PolyRec &p = static_cast<PolyRec *>(m_polys)[m_polyUsed];
  LONG minX = 0x7FFFFFFF, maxX = -0x7FFFFFFF, minY = 0x7FFFFFFF, maxY = -0x7FFFFFFF;
  for (LONG i = 0; i < n; ++i) {
    xs[i] = poly->v[i].x + dx;
    ys[i] = poly->v[i].y + dy;
    if (!(fabs(xs[i]) <= 65536.0) || !(fabs(ys[i]) <= 65536.0)) return 0;
    if (state == KY3DRS_TEXTURED && !(poly->v[i].rhw > 0.0f && poly->v[i].rhw < 1e30f)) return 0;
    p.x[i] = static_cast<LONG>(floor(xs[i] * kOne + 0.5));
    p.y[i] = static_cast<LONG>(floor(ys[i] * kOne + 0.5));
    if (p.x[i] < minX) minX = p.x[i];
    if (p.x[i] > maxX) maxX = p.x[i];
    if (p.y[i] < minY) minY = p.y[i];
    if (p.y[i] > maxY) maxY = p.y[i];
  }
  p.count = n;
  p.state = state;
  const float shade = ClampUnit(poly->v[0].shade);
  p.color.blue = static_cast<BYTE>(poly->color.blue * shade + 0.5f);
  p.color.green = static_cast<BYTE>(poly->color.green * shade + 0.5f);
  p.color.red = static_cast<BYTE>(poly->color.red * shade + 0.5f);
  p.color.alpha = poly->color.alpha;
  p.tex = nullptr;
  if (state == KY3DRS_TEXTURED) {
    p.tex = &Textures(m_work)[poly->texture];
    if (p.tex->width <= 0 || p.tex->height <= 0) return 0;
    // The planes come from the fan triangle of largest area (the most stable fit).
    int bi = 1;
    double best = -1.0;
    for (int i = 1; i + 1 < n; ++i) {
      const double a = fabs((xs[i] - xs[0]) * (ys[i + 1] - ys[0]) - (xs[i + 1] - xs[0]) * (ys[i] - ys[0]));
      if (a > best) {
        best = a;
        bi = i;
      }
    }
    p.ox = xs[0];
    p.oy = ys[0];
    double f[4][KY3D_MAX_POLY_VERTICES];
    for (LONG i = 0; i < n; ++i) {
      const double q = poly->v[i].rhw;
      f[0][i] = q;
      f[1][i] = poly->v[i].u * q;
      f[2][i] = poly->v[i].v * q;
      f[3][i] = ClampUnit(poly->v[i].shade) * q;
    }
    for (int k = 0; k < 4; ++k) FitPlane(xs, ys, f[k], 0, bi, bi + 1, p.ox, p.oy, p.plane[k]);
  }
  if (maxX <= 0 || minX >= m_width * kOne || maxY <= 0 || minY >= m_height * kOne) return 1;
  ++m_polyUsed;
  LONG rowFirst = minY >= 0 ? minY / kOne : 0;
  LONG rowLast = (maxY - 1) / kOne;
  if (rowLast >= m_height) rowLast = m_height - 1;
  const KYABPIXELPROC proc = state == KY3DRS_TEXTURED ? TexturedPixel : FlatPixel;
  tSCANEDGE seg[KY_SCANSTEP_MAX_SEGMENTS];
  for (LONG row = rowFirst; row <= rowLast; ++row) {
    const int ns = ClipEdgesToRow(p, row, seg);
    if (ns == 0) continue;
    LONG lo = 0x7FFFFFFF, hi = -0x7FFFFFFF;
    for (int i = 0; i < ns; ++i) {
      const LONG a = seg[i].x0 < seg[i].x1 ? seg[i].x0 : seg[i].x1;
      const LONG b = seg[i].x0 < seg[i].x1 ? seg[i].x1 : seg[i].x0;
      if (a < lo) lo = a;
      if (b > hi) hi = b;
    }
    if (!ClipIntersect(&lo, &hi)) continue;
    tKYABREGION *r = GetIntersectStructure();
    if (!r) return 0;
    r->isect.m_poly = &p;
    r->isect.m_state = state;
    InsertIntersect(r, row, proc, lo, hi);
  }
  return 1;
}

// Convex (1) or turning both ways (4), judged as a quadrilateral: the previous vertex of
// vertex 0 is vertex 3 and the next vertex wraps modulo 4 whatever the count (the shape the
// transitions use; kept on purpose).
LONG A_Buffer::ClassifyPoly(KY3DPOLY *poly) {
  if (!poly) return 1;
  LONG n = poly->count;
  if (n < 1) return 1;
  if (n > KY3D_MAX_POLY_VERTICES) n = KY3D_MAX_POLY_VERTICES;
  int pos = 0, neg = 0;
  for (LONG i = 0; i < n; ++i) {
    const KY3DVERTEX &v = poly->v[i];
    const KY3DVERTEX &prev = poly->v[i == 0 ? 3 : i - 1];
    const KY3DVERTEX &next = poly->v[(i + 1) % 4];
    const float ax = prev.x - v.x, ay = prev.y - v.y;
    const float bx = next.x - v.x, by = next.y - v.y;
    const float z = ax * by - ay * bx;
    if (z > 0.0f) ++pos;
    else if (z < 0.0f) ++neg;
  }
  return (pos && neg) ? 4 : 1;
}

// Coverage mask of the step's edge pieces (see the header): the first piece sets its
// sub-rows, later pieces flip theirs, so pairs of edges bound spans even-odd.
void A_Buffer::GetSubPixelCoverage(SCANLINESTEP *step, SUBPIXELMASK *mask) {
  if (!step || !mask) return;
  LONG count = step->edgeCount;
  if (count > KY_SCANSTEP_MAX_PIECES) count = KY_SCANSTEP_MAX_PIECES;
  for (LONG k = 0; k < count; ++k) {
    const tSCANEDGE &e = step->edges[k];
    LONG x0 = e.x0 < 0 ? 0 : (e.x0 > kOne ? kOne : e.x0);
    LONG y0 = e.y0 < 0 ? 0 : (e.y0 > kOne ? kOne : e.y0);
    LONG x1 = e.x1 < 0 ? 0 : (e.x1 > kOne ? kOne : e.x1);
    LONG y1 = e.y1 < 0 ? 0 : (e.y1 > kOne ? kOne : e.y1);
    if (y1 <= y0) {
      LONG t = x0; x0 = x1; x1 = t;
      t = y0; y0 = y1; y1 = t;
    }
    const LONG r0 = y0 >> 9, r1 = y1 >> 9;
    if (k == 0)
      for (LONG r = 0; r < r0 && r < 32; ++r) mask->row[r] = 0;
    const LONG slope = (r1 - r0 - 1 >= 1) ? (x1 - x0) / (r1 - r0 - 1) : 0;
    LONG x = x0;
    for (LONG r = r0; r < r1 && r < 32; ++r) {
      const LONG col = x >> 9;
      if (col < 32) {
        const DWORD bits = 0xFFFFFFFFu >> col;
        mask->row[r] = k == 0 ? bits : (mask->row[r] ^ bits);
      }
      x += r == r0 ? ((((r0 + 1) * 512 - y0) * slope) >> 14) : slope;
    }
    if (k == 0)
      for (LONG r = r1; r < 32; ++r) mask->row[r] = 0;
  }
}

LONG A_Buffer::CountBits(SUBPIXELMASK *mask) {
  if (!mask || !m_bitCount) return 0;
  LONG c = 0;
  for (int r = 0; r < 32; ++r) c += m_bitCount[mask->row[r] & 0xFFFF] + m_bitCount[mask->row[r] >> 16];
  return c;
}

// Kept as an empty operation on purpose.
void A_Buffer::DrawScanLineFast(LONG) {}

// Kept as an empty operation on purpose.
void A_Buffer::GetSubPixelMaskVal(LONG, LONG, LONG, LONG, SUBPIXELMASK *) {}

void A_Buffer::EndFrame() {
  if (m_inFrame) {
    for (LONG row = 0; row < m_height && row < KY_ABUFFER_MAX_ROWS; ++row)
      if (m_rows[row]) DrawScanLine(row);
  }
  // The frame's quantizer goes with the frame.
  KyDibDestroyColorQuantizer(m_quantizer);
  m_quantizer = nullptr;
  m_inFrame = 0;
}
