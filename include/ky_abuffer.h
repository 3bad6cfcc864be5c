/* tellarok anti-aliased polygon rasteriser.
 *
 * An A-buffer: during a frame every polygon becomes one region record per destination row
 * it touches; EndFrame resolves each row pixel by pixel with an exact 32 x 32 sub-pixel
 * coverage mask wherever a region covers a pixel only in part. Positions are 18.14 fixed
 * point (16384 = one pixel) where they are integers, pixels where they are floats.
 *
 * Calling order: A_Buffer::Init once; per frame BeginFrame, any number of DrawTriangle /
 * DrawPoly, EndFrame; Cleanup at the end (the destructor does not free the pool). An
 * A_Buffer is used by one thread at a time.
 *
 * The records below compile as C; the two classes are C++ only. */
#ifndef TELLAROK_KY_ABUFFER_H
#define TELLAROK_KY_ABUFFER_H

#include "ky_base.h"
#include "ky_video.h"


/* Render states of a polygon. */
typedef enum KY3DRENDERSTATE {
  KY3DRS_FLAT = 2,    /* one colour, times the first vertex's shade */
  KY3DRS_TEXTURED = 3 /* a texture sampled at perspective-correct u, v, times the shade */
} KY3DRENDERSTATE;

/* A vertex: position in destination pixels (x right, y down, pixel centres at .5), depth,
 * reciprocal homogeneous w (1 for a flat polygon), texture coordinates u, v (0..1 across
 * the texture's width and height, v = 0 at the top row) and a shade factor (0..1, scales
 * the colour; values outside are clamped). */
typedef struct KY3DVERTEX {
  float x, y, z, rhw, u, v, shade;
} KY3DVERTEX;
KY_CHECK_SIZE(KY3DVERTEX, 28);

#define KY3D_MAX_POLY_VERTICES 16
#define KY_ABUFFER_MAX_TEXTURES 32
#define KY_ABUFFER_MAX_ROWS 2048
#define KY_ABUFFER_POOL_SIZE 4000
#define KY_ABUFFER_RING_SIZE 256

/* A triangle: three vertices, the render state, the flat colour (alpha 255 for opaque
 * output into an alpha destination) and the texture index for KY3DRS_TEXTURED. */
typedef struct KY3DTRIANGLE {
  KY3DVERTEX v[3];
  LONG state;        /* KY3DRENDERSTATE */
  tKYPIXEL32 color;
  LONG texture;      /* index into the frame's textures */
} KY3DTRIANGLE;
KY_CHECK_SIZE(KY3DTRIANGLE, 96);

/* A polygon of 3 to 16 vertices, convex or not (filled by the even-odd rule); the other
 * fields as in KY3DTRIANGLE. */
typedef struct KY3DPOLY {
  LONG count;
  KY3DVERTEX v[KY3D_MAX_POLY_VERTICES];
  LONG state;
  tKYPIXEL32 color;
  LONG texture;
} KY3DPOLY;
KY_CHECK_SIZE(KY3DPOLY, 464);

/* One texture of a frame: its header, pixels and stride in bytes (0: the DWORD-aligned
 * stride), plus the colour table of a palettised texture or the three masks of a
 * BI_BITFIELDS texture. When that pointer is null they are looked for right before the
 * pixels, where a packed bitmap (KyDibAlloc's layout) keeps them. A texture without pixels
 * cannot be drawn with. */
typedef struct tKYABUFFERTEXTURE {
  BITMAPINFOHEADER header;
  void *pixels;
  LONG stride;
  const RGBQUAD *colors;
} tKYABUFFERTEXTURE;
KY_CHECK_SIZE(tKYABUFFERTEXTURE, 52);

/* Frame parameters (430 32-bit words), copied whole by BeginFrame. The destination may be
 * of any pixel type; its rows are bottom-up (a negative biHeight means top-down) and rows at
 * or beyond 2048 are not drawn. A palettised destination's colour table and a BI_BITFIELDS
 * destination's masks are read right before its pixels (a packed bitmap as KyDibAlloc makes
 * it). opacity (0..1) scales every polygon's weight when it is blended into the
 * destination. */
typedef struct tA_BUFFER_PARAM {
  BITMAPINFOHEADER dstHeader;
  void *dstPixels;
  LONG dstStride;
  tKYABUFFERTEXTURE textures[KY_ABUFFER_MAX_TEXTURES];
  LONG textureCount;
  float opacity;
} tA_BUFFER_PARAM;
KY_CHECK_SIZE(tA_BUFFER_PARAM, 430 * 4);

/* Sub-pixel coverage of one pixel: one word per sub-row from the top; bit 31 is the
 * leftmost sub-column. Full coverage is 1024 set bits. */
typedef struct SUBPIXELMASK {
  DWORD row[32];
} SUBPIXELMASK;
KY_CHECK_SIZE(SUBPIXELMASK, 128);

/* An edge piece inside one pixel: from (x0, y0) to (x1, y1), pixel-local 18.14 (0..16384). */
typedef struct tSCANEDGE {
  LONG x0, y0, x1, y1;
} tSCANEDGE;

#define KY_SCANSTEP_MAX_PIECES 64
#define KY_SCANSTEP_MAX_SEGMENTS KY3D_MAX_POLY_VERTICES

/* Stepping state of one region on its current pixel. The polygon's edges clipped to the
 * row (segments, x in destination 18.14, y row-local 0..16384, running downwards, sorted
 * by their left x) are kept with it; for the current pixel it reports either full coverage
 * or the edge pieces inside the pixel, which combine even-odd into the coverage mask. */
typedef struct SCANLINESTEP {
  LONG pixelX;        /* 0: current pixel column */
  LONG row;           /* 1: destination row */
  LONG full;          /* 2: 1 when the current pixel is covered entirely */
  LONG endX;          /* 3: first column past the region */
  LONG segCount;      /* 4: segments in this row */
  LONG nextSeg;       /* 5: first segment (by left x) not yet reaching the current column */
  DWORD leftParity;   /* 6: bit r set: sub-row r crosses an odd number of segments that lie
                         wholly left of the current column */
  LONG activeCount;   /* 7: segments that overlap the current column */
  float cur[4];       /* 8..11: current values: q, u*q, v*q, shade*q (textured) */
  float dx[4];        /* 12..15: their change per pixel to the right */
  LONG state;         /* 16: render state in use */
  tKYPIXEL32 color;   /* 17: flat colour after shading */
  const void *poly;   /* 18: the polygon */
  LONG reserved[4];   /* 19..22 */
  LONG edgeCount;     /* 23: edge pieces inside the current pixel */
  tSCANEDGE edges[KY_SCANSTEP_MAX_PIECES];
  tSCANEDGE seg[KY_SCANSTEP_MAX_SEGMENTS];
  LONG segMinX[KY_SCANSTEP_MAX_SEGMENTS];
  LONG segMaxX[KY_SCANSTEP_MAX_SEGMENTS];
  BYTE active[KY_SCANSTEP_MAX_SEGMENTS]; /* indices of the overlapping segments */
} SCANLINESTEP;
KY_CHECK_OFFSET(SCANLINESTEP, edgeCount, 23 * 4);

struct tACTIVEREGIONLIST;
typedef struct tACTIVEREGIONLIST tACTIVEREGIONLIST;

/* Pixel callback of a region: writes the region's colour at its current pixel (the step
 * in the active entry says where) into *pixel. */
typedef void(KYAPI *KYABPIXELPROC)(tACTIVEREGIONLIST *entry, tKYPIXEL32 *pixel,
                                   tA_BUFFER_PARAM *param);

#ifdef __cplusplus
class A_Buffer;

/* One region's stepping state (24 words): which polygon, which row, its x limits. */
class CScanlineIntersect {
public:
  void PreStep(SCANLINESTEP *step, LONG row, LONG state);
  void Step(SCANLINESTEP *step, LONG coverage, LONG state);
  void ClipToPixelBoundries(SCANLINESTEP *step);
  void SetCurVal(SCANLINESTEP *step, double x, LONG state);
  void SetCurVal2(SCANLINESTEP *step, LONG state);

  const void *m_poly;     /* polygon record in the frame's polygon store */
  LONG m_row;             /* row list holding this record, -1 when in none */
  LONG m_xMin, m_xMax;    /* x limits in the row, 18.14, clipped to the destination */
  KYABPIXELPROC m_proc;   /* pixel callback */
  LONG m_state;           /* render state */
  LONG m_width;           /* destination width in pixels */
  LONG m_reserved[17];
};
#endif

/* A region record of the pool: stepping state, start x in its row, link, finished word. */
typedef struct tKYABREGION {
#ifdef __cplusplus
  CScanlineIntersect isect;
#else
  LONG isect[24];
#endif
  LONG startX;
  struct tKYABREGION *next;
  LONG finished;
} tKYABREGION;
KY_CHECK_SIZE(tKYABREGION, 27 * 4);

/* One slot of the resolve's ring of active regions. */
struct tACTIVEREGIONLIST {
  SCANLINESTEP step;
  SUBPIXELMASK mask;
  tKYABREGION *region;
  KYABPIXELPROC proc;
  struct tACTIVEREGIONLIST *next;
  LONG inUse;
};

#ifdef __cplusplus
/* The frame, its row lists and the resolve. Methods return 1/0 where they return BOOL. */
class A_Buffer {
public:
  A_Buffer();
  ~A_Buffer();
  A_Buffer &operator=(const A_Buffer &other);

  BOOL Init();
  void Cleanup();
  BOOL BeginFrame(tA_BUFFER_PARAM *param);
  BOOL DrawTriangle(KY3DTRIANGLE *tri);
  BOOL DrawPoly(KY3DPOLY *poly, double dx, double dy);
  BOOL DrawComplexPoly(KY3DPOLY *poly, double dx, double dy);
  void EndFrame();
  LONG ClassifyPoly(KY3DPOLY *poly);
  void GetSubPixelCoverage(SCANLINESTEP *step, SUBPIXELMASK *mask);
  LONG CountBits(SUBPIXELMASK *mask);
  void BuildSubPixelMaskTable();
  BOOL PreAllocateListItems();
  void FreeListItems();
  tKYABREGION *GetIntersectStructure();
  BOOL ClipIntersect(LONG *xMin, LONG *xMax);
  BOOL InsertIntersect(tKYABREGION *region, LONG row, KYABPIXELPROC proc, LONG xMin, LONG xMax);
  void DrawScanLine(LONG row);
  void DrawScanLineFast(LONG row);
  void GetSubPixelMaskVal(LONG a, LONG b, LONG c, LONG d, SUBPIXELMASK *mask);

  /* Tables: bit counts of 16-bit values, and coverage weights with their size right after
   * them (so a coverage of exactly 1024 reads 1024). */
  BYTE *m_bitCount;
  LONG m_weight[1024];
  LONG m_weightSize;

  /* Region pool: one global-memory block of m_poolCapacity records. */
  tKYABREGION *m_pool;
  LONG m_poolCapacity;
  LONG m_poolUsed;
  LONG m_poolWrapped;
  tKYABREGION *m_rows[KY_ABUFFER_MAX_ROWS];

  /* Work block: the active ring and the polygon store. */
  void *m_work;
  tACTIVEREGIONLIST *m_ring;
  LONG m_ringCount;
  void *m_polys;
  LONG m_polyCapacity;
  LONG m_polyUsed;

  /* Frame. */
  tA_BUFFER_PARAM m_param;
  LONG m_inFrame;
  LONG m_dstType, m_texType;
  LONG m_width, m_height;
  BYTE *m_dstTopRow;  /* first byte of the top row */
  LONG m_dstRowStep;  /* bytes from a row to the one below it */
  LONG m_opacity65535, m_opacity255, m_opacity16384;
  /* Pixel exchange (flags 35): [0] texture type to destination type, [1] destination type
   * to itself; and the quantizer of a 4-bit or 8-bit palettised destination. */
  tKYDIBXCHGPARAMS m_xchg[2];
  HGLOBAL m_quantizer;
  const RGBQUAD *m_dstColors;
  tKYPIXEL32 *m_rowChunk; /* working-form pixels of the row being resolved */
};
#endif

#endif
