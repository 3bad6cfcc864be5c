/* tellarok bitmap descriptors, pixel formats and prepared parameter records.
 *
 * Bitmaps are device-independent: a BITMAPINFOHEADER, then its colour table or its three
 * bit-field masks, then (in the same block or elsewhere) bottom-up pixel rows. Every image
 * operation accepts the closed set of pixel types KYPT_RGB1 (16) to KYPT_RGBAFLOAT (32);
 * any other value is unknown (0 is what the classifier returns for an unknown header).
 *
 * Where the pixels are: pixels passed as null are found behind the header - 52 bytes after
 * its start for BI_BITFIELDS (whatever biSize says), biSize + 4 x 2^biBitCount for a BI_RGB
 * header of 1 to 8 bits with biClrUsed 0, else biSize + 4 x biClrUsed. A stride of 0 means
 * ((biBitCount x biWidth + 31) & ~31) / 8. Rectangles passed as null mean the whole bitmap.
 * The prepared records carry a colour-table pointer only when biClrUsed is non-zero: a
 * palettised bitmap whose table is implied (biClrUsed 0) counts as having no palette there.
 *
 * Image coordinates and steps in the records are signed 18.14 fixed point (16384 = 1.0).
 * All functions are thread-safe on distinct data; none shows a message. */
#ifndef TELLAROK_KY_VIDEO_H
#define TELLAROK_KY_VIDEO_H

#include "ky_base.h"

/* ---- pixel types ---- */
typedef LONG KYPIXELTYPE;
#define KYPT_UNKNOWN 0
#define KYPT_RGB1 16       /* BI_RGB 1-bit, palette */
#define KYPT_GRAY1 17      /* "KYGS" 1-bit */
#define KYPT_GRAY2 18      /* "KYGS" 2-bit */
#define KYPT_GRAY4 19      /* "KYGS" 4-bit */
#define KYPT_GRAY8 20      /* "KYGS" 8-bit */
#define KYPT_GRAY16 21     /* "KYGS" 16-bit */
#define KYPT_GRAY32 22     /* "KYGS" 32-bit (unsigned integer levels) */
#define KYPT_RGB4 23       /* BI_RGB 4-bit palette */
#define KYPT_RGB8 24       /* BI_RGB 8-bit palette */
#define KYPT_RGB555 25     /* BI_RGB 16-bit x-5-5-5 */
#define KYPT_RGB565 26     /* BI_BITFIELDS 16-bit 5-6-5 */
#define KYPT_RGB24 27      /* BI_RGB 24-bit */
#define KYPT_RGB32 28      /* BI_RGB 32-bit, fourth byte unused */
#define KYPT_RGBA32 29     /* "KYDB" 32-bit, fourth byte alpha */
#define KYPT_RGB101010 30  /* BI_BITFIELDS 32-bit 2-10-10-10 */
#define KYPT_RGBA64 31     /* "KYDB" 64-bit, four 16-bit channels */
#define KYPT_RGBAFLOAT 32  /* "KYDB" 128-bit, four float channels (0.0 to 1.0) */
#define KYPT_FIRST KYPT_RGB1
#define KYPT_LAST KYPT_RGBAFLOAT

/* Private compression codes, packed like a RIFF FourCC (first character in the low byte). */
#define KY_BI_KYDB 0x4244594Bu /* "KYDB": deep RGBA with a real alpha channel */
#define KY_BI_KYGS 0x5347594Bu /* "KYGS": single-channel grayscale */

/* Channels of a four-channel pixel in memory order. */
typedef enum KYDIBCHANNEL {
  KYDIBCHANNEL_BLUE = 0,
  KYDIBCHANNEL_GREEN = 1,
  KYDIBCHANNEL_RED = 2,
  KYDIBCHANNEL_ALPHA = 3
} KYDIBCHANNEL;

/* One 32-bit pixel in memory order (the order of a 32-bit row and of RGBQUAD). It is also
 * the 8-bit working form of the pixel-exchange routines. */
typedef struct tKYPIXEL32 {
  BYTE blue, green, red, alpha;
} tKYPIXEL32;

/* The 16-bit working form of the pixel-exchange routines: 0 to 65535 per channel. */
typedef struct tKYPIXEL64 {
  WORD blue, green, red, alpha;
} tKYPIXEL64;

KY_CHECK_SIZE(tKYPIXEL32, 4);
KY_CHECK_SIZE(tKYPIXEL64, 8);

/* ---- prepared source/destination records ---- */

/* A source and destination prepared for a copy that may scale (KyDibPrepareGenericParams). */
typedef struct tKYDIBGENERICPARAMS {
  DWORD scaled;           /* 1 when the clipped rectangles differ in size */
  LONG srcX, srcY;        /* source origin, 18.14; 0 after preparation */
  LONG xStep, yStep;      /* source pixels per destination pixel, 18.14 */
  BITMAPINFOHEADER *dstHeader;
  void *dstPixels;
  BYTE *dstFirst;         /* byte of the bottom-left pixel of the destination rectangle */
  LONG dstBitOffset;      /* bit of that pixel inside the byte (sub-byte types) */
  RECT dstRect;           /* top-down pixel coordinates */
  LONG dstWidth, dstHeight;
  LONG dstStride;         /* bytes, positive: walking forward walks up the image */
  RGBQUAD *dstColors;     /* header + biSize when biClrUsed != 0, else null */
  const BITMAPINFOHEADER *srcHeader;
  const void *srcPixels;
  const BYTE *srcFirst;
  LONG srcBitOffset;
  RECT srcRect;
  LONG srcWidth, srcHeight;
  LONG srcStride;
  const RGBQUAD *srcColors;
  HGLOBAL quantizer;      /* for a KYPT_RGB4/KYPT_RGB8 destination, else null */
  LONG clipLeft, clipTop, clipRight, clipBottom; /* how far clipping moved the source in */
  DWORD flags;            /* the caller's operation flags */
  DWORD reserved;
} tKYDIBGENERICPARAMS;

/* A pair prepared for sub-pixel accurate scaling (DibPrepareSubpixelParam). Every
 * rectangle here is in 18.14 fixed point. */
typedef struct tKYDIBSUBPIXELPARAMS {
  BITMAPINFOHEADER *dstHeader;
  BYTE *dstLastRow;       /* pixels + (biHeight - 1) x stride: the top row of the image */
  LONG dstRowStep;        /* -stride: walks down the image */
  RGBQUAD *dstColors;
  RECT dstClipped;        /* destination rectangle clipped to the destination */
  RECT dstGiven;          /* destination rectangle as given */
  const BITMAPINFOHEADER *srcHeader;
  const BYTE *srcLastRow;
  LONG srcRowStep;
  const RGBQUAD *srcColors;
  RECT srcUsed;           /* the part of the clipped source that lands in dstClipped */
  RECT srcClipped;        /* source rectangle clipped to the source */
  LONG xStep, yStep;      /* 18.14; 0 when the clipped destination is under two pixels */
  LONG xScale, yScale;    /* clipped source extent / given destination extent, 2.14 */
  HGLOBAL quantizer;
  DWORD flags;
} tKYDIBSUBPIXELPARAMS;

/* A same-size, same-type pair handed to effect plug-ins (DibPreparePluginParam). */
typedef struct tKYDIBPLUGINPARAMS {
  BITMAPINFOHEADER *dstHeader;
  void *dstPixels;
  BYTE *dstFirst;
  LONG dstBitOffset;
  const RECT *dstRectRef; /* not for reading: storage of the preparing call */
  LONG dstWidth, dstHeight, dstStride;
  const BITMAPINFOHEADER *srcHeader;
  const void *srcPixels;
  const BYTE *srcFirst;
  LONG srcBitOffset;
  const RECT *srcRectRef; /* not for reading */
  LONG srcWidth, srcHeight, srcStride;
  LONG clipLeft, clipTop, clipRight, clipBottom;
  void *context;          /* the caller's, unchanged */
  DWORD reserved;
} tKYDIBPLUGINPARAMS;

/* ---- pixel exchange ----
 *
 * tKYDIBXCHGPARAMS converts rows between any two pixel types through a working form:
 *   - flag 0x20 clear: tKYPIXEL32 (8 bits per channel); set: tKYPIXEL64 (16 bits).
 *   - flag 0x10 set (the generic path): every routine converts into or out of a caller's
 *     working buffer. Clear (the direct path, chosen only when both types are stored exactly
 *     like the working form: KYPT_RGBA32 for 8 bits, KYPT_RGBA64 for 16 bits): readRow may
 *     return the row itself instead of filling the buffer, and writeRow copies only when
 *     given a buffer other than the row.
 * The routines come from per-type tables in four columns: 0 generic 8-bit, 1 generic 16-bit,
 * 2 direct 8-bit, 3 direct 16-bit (column = 0 or 2 by KYXCHG_GENERIC, plus 1 for KYXCHG_DEEP).
 * Reading: every type gives blue, green, red, alpha. Gray types give equal colour channels;
 * types without alpha give opaque alpha; palette types look their index up in srcColors
 * (or, without a table, read the index as a gray level). Writing: gray types store the
 * luminance (77 R + 150 G + 29 B) / 256 (16-bit form: weights 19595, 38470, 7471 / 65536),
 * palette types store the index the dstQuantizer chooses (without one, the gray level),
 * types without alpha drop it (KYPT_RGB32 stores 0 in its fourth byte).
 *
 * A client row loop:
 *   tKYDIBXCHGPARAMS x;
 *   KyDibPrepareXchgParams(dstType, srcType, flags, &x, NULL);
 *   x.srcColors = ...; x.dstColors = ...; x.dstQuantizer = ...;  (from the prepared record)
 *   for each row:
 *     void *w = x.readRow(&x, srcRow, srcBitOffset, buffer, count);   (w: buffer or srcRow)
 *     ... work on count working pixels at w ...
 *     x.writeRow(&x, dstRow, dstBitOffset, w, count);
 * The working buffer holds count pixels of the working form (4 or 8 bytes each). Bit offsets
 * (0 to 7) locate the first pixel of sub-byte types inside its byte; walk rows with the
 * stride and the first-byte pointer of a prepared record. */
struct tKYDIBXCHGPARAMS;

/* Reads count pixels of row into work; returns work, or row itself on the direct path. */
typedef void *(KYAPI *KYXCHGREADPROC)(struct tKYDIBXCHGPARAMS *x, const void *row,
                                      LONG bitOffset, void *work, LONG count);
/* Writes count working pixels into row (a no-op on the direct path when work is row). */
typedef void (KYAPI *KYXCHGWRITEPROC)(struct tKYDIBXCHGPARAMS *x, void *row, LONG bitOffset,
                                      const void *work, LONG count);
/* Reads count pixels at source positions xPos, xPos + xStep, ... (18.14, relative to the
 * row's first pixel), interpolating linearly between pixel i and i + 1 by the fraction; pixel
 * i + 1 is read only when the fraction is not zero, so positions up to (width - 1) x 16384
 * stay inside the row. */
typedef void (KYAPI *KYXCHGSAMPLEPROC)(struct tKYDIBXCHGPARAMS *x, const void *row,
                                       LONG bitOffset, LONG xPos, LONG xStep, void *work,
                                       LONG count);
/* Reads the single pixel at column index into out (one working pixel). */
typedef void (KYAPI *KYXCHGPIXELPROC)(struct tKYDIBXCHGPARAMS *x, const void *row,
                                      LONG bitOffset, LONG index, void *out);
/* Combines count source working pixels into destination working pixels (see
 * KyDibPrepareXchgParams); coverage is one byte per pixel (255 = full) or null. */
typedef void (KYAPI *KYXCHGOPPROC)(struct tKYDIBXCHGPARAMS *x, void *dstWork,
                                   const void *srcWork, const BYTE *coverage, LONG count);

typedef struct tKYDIBXCHGPARAMS {
  DWORD flags;                   /* effective flags */
  KYPIXELTYPE srcType, dstType;
  KYXCHGREADPROC readRow;        /* source row -> working form */
  KYXCHGWRITEPROC writeRow;      /* working form -> destination row */
  KYXCHGSAMPLEPROC readSampled;  /* source row sampled at 18.14 steps */
  KYXCHGREADPROC readBlended;    /* source row blended with the row at srcNextStride by
                                    yFraction */
  KYXCHGPIXELPROC readPixel;     /* one source pixel */
  KYXCHGREADPROC readDstRow;     /* destination row -> working form */
  KYXCHGSAMPLEPROC readSampledOne; /* one-pixel-wide source: that pixel, count times */
  KYXCHGOPPROC opRow;            /* operation: source row onto destination row */
  KYXCHGOPPROC opRowCoverage;    /* the same, weighted by coverage */
  KYXCHGOPPROC opSolid;          /* the operation's colour (operand 2) onto the row */
  KYXCHGOPPROC opSolidCoverage;  /* the same, weighted by coverage */
  KYXCHGSAMPLEPROC readSampledBlended; /* sampled and blended vertically */
  DWORD loop[10];                /* working words of the row loop */
  BYTE *dstRow;                  /* current destination row */
  LONG dstBitOffset;             /* current destination bit offset */
  DWORD loop2[2];
  LONG srcNextStride;            /* bytes to the row blended in; 0 on the last row */
  DWORD loop3;
  LONG yFraction;                /* low 14 bits of the source y position */
  DWORD loop4[2];
  DWORD flagsByte;               /* bits 16 to 23 of the effective flags */
  const RGBQUAD *srcColors;
  const RGBQUAD *dstColors;
  HGLOBAL dstQuantizer;
  DWORD op[7];                   /* operation index, then six operands */
  DWORD reserved[2];
} tKYDIBXCHGPARAMS;

#if !defined(_WIN64)
KY_CHECK_SIZE(tKYDIBGENERICPARAMS, 36 * 4);
KY_CHECK_OFFSET(tKYDIBGENERICPARAMS, quantizer, 29 * 4);
KY_CHECK_SIZE(tKYDIBSUBPIXELPARAMS, 30 * 4);
KY_CHECK_OFFSET(tKYDIBSUBPIXELPARAMS, xStep, 24 * 4);
KY_CHECK_SIZE(tKYDIBPLUGINPARAMS, 22 * 4);
KY_CHECK_OFFSET(tKYDIBPLUGINPARAMS, context, 20 * 4);
KY_CHECK_SIZE(tKYDIBXCHGPARAMS, 47 * 4);
KY_CHECK_OFFSET(tKYDIBXCHGPARAMS, readSampledBlended, 14 * 4);
KY_CHECK_OFFSET(tKYDIBXCHGPARAMS, dstRow, 25 * 4);
KY_CHECK_OFFSET(tKYDIBXCHGPARAMS, srcNextStride, 29 * 4);
KY_CHECK_OFFSET(tKYDIBXCHGPARAMS, yFraction, 31 * 4);
KY_CHECK_OFFSET(tKYDIBXCHGPARAMS, flagsByte, 34 * 4);
KY_CHECK_OFFSET(tKYDIBXCHGPARAMS, op, 38 * 4);
#endif

/* Flags of KyDibPrepareXchgParams (the low nibble selects a preset, see there). */
#define KYXCHG_GENERIC 0x10     /* convert through working buffers */
#define KYXCHG_DEEP 0x20        /* 16-bit working form */
#define KYXCHG_SRCALPHA 0x40    /* operations weight the source by its alpha */
#define KYXCHG_OPACITY 0x80     /* operations apply the opacity of operand 1 */
#define KYXCHG_FILTER 0x100     /* the row loop interpolates (readSampled/readBlended) */

/* Operation indexes of the operation block's first word. */
#define KYXCHGOP_COPY 0
#define KYXCHGOP_ADD 1
#define KYXCHGOP_SUBTRACT 2
#define KYXCHGOP_MULTIPLY 3
#define KYXCHGOP_SCREEN 4
#define KYXCHGOP_DARKEN 5
#define KYXCHGOP_LIGHTEN 6
#define KYXCHGOP_DIFFERENCE 7

KY_BEGIN_DECLS

/* ---- bits and types ---- */
/* Number of set bits. */
KY_IMPORT LONG KYAPI KyCountBits(DWORD value);
/* count consecutive bits set from bit `first`; 0 when count <= 0 (bits past 31 are lost). */
KY_IMPORT DWORD KYAPI KyCreateBitMask(LONG first, LONG count);
/* Pixel type of a header, or 0 when it matches none (or the header is null). A BI_RGB-like
 * classification by bit count alone also applies to foreign compression codes; use
 * KyVideo_IsCompressed to tell those apart. */
KY_IMPORT KYPIXELTYPE KYAPI KyGetPixelType(const BITMAPINFOHEADER *header);
/* 1 when the compression is none of BI_RGB, BI_BITFIELDS, "KYDB", "KYGS", or when the header
 * has no pixel type (null header included); else 0. */
KY_IMPORT LONG KYAPI KyVideo_IsCompressed(const BITMAPINFOHEADER *header);
/* Bits per pixel of a type, and its four channel bit counts (channel 0, 1, 2, extra) into
 * bits (may be null); an unknown type writes zeros and returns 0. */
KY_IMPORT LONG KYAPI KyGetPixelBitsPerChannel(KYPIXELTYPE type, BYTE *bits);
/* Low 32 bits: bits per pixel; high 32 bits: the compression code. Outputs may be null.
 * block (sixteen words) is filled when blockSize >= 64; a smaller block is left alone and the
 * bits part of the result is 0. masks (red, green, blue) are filled for BI_BITFIELDS types and
 * zeroed for the others. Unknown types give 0. */
KY_IMPORT ULONGLONG KYAPI KyPixelTypeToBitAttribs(KYPIXELTYPE type, DWORD *compression,
                                                  DWORD *block, LONG blockSize, DWORD *masks);
/* Byte offset of a channel in a pixel of bytesPerPixel bytes: channel x (bytesPerPixel / 4);
 * 0 for a channel outside 0..3. */
KY_IMPORT LONG KYAPI GetByteOffsetFromChannelEnum(LONG channel, LONG bytesPerPixel);

/* ---- texts ---- */
/* Short name of a compression code: "RGB", "RGB (bitfields)", "RGBA", "Grayscale", or the
 * code's four characters. Bounded by size; text[size - 1] is always 0. Returns 0. */
KY_IMPORT LONG KYAPI KyVideo_GetFormatText(DWORD compression, char *text, LONG size);
/* "<width>x<height>x<bitcount>" of a header, bounded by size. Returns 0. */
KY_IMPORT LONG KYAPI KyVideo_GetAttribsText(const BITMAPINFOHEADER *header, char *text,
                                            LONG size);
/* The same; the two reserved arguments are ignored. */
KY_IMPORT LONG KYAPI KyVideo_GetAttribsTextEx(const BITMAPINFOHEADER *header, DWORD reserved1,
                                              char *text, LONG size, DWORD reserved2);
/* PALETTEENTRY (red, green, blue, flags) <-> RGBQUAD (blue, green, red, 0); the fourth byte
 * is written 0. A count <= 0 does nothing. */
KY_IMPORT void KYAPI KyVideo_PaletteRGBAFromEntry(RGBQUAD *quads, const PALETTEENTRY *entries,
                                                  LONG count);
KY_IMPORT void KYAPI KyVideo_PaletteEntryFromRGBA(PALETTEENTRY *entries, const RGBQUAD *quads,
                                                  LONG count);

/* ---- headers and bitmaps ---- */
/* Writes a 40-byte header for a type and size, followed by the masks (BI_BITFIELDS types) or
 * by count colour-table entries (when colours is given). Without a table and with count 0 a
 * palette type of b bits gets biClrUsed 2^b - 1: one fewer than the implied table. This is
 * deliberate; files and callers depend on it. The image size (stride x height) goes to
 * imageSize when given. E_INVALIDARG for a null header, an unknown type, a negative size, or
 * an image too large for 32 bits. The header needs room for 40 + 4 x count bytes. */
KY_IMPORT HRESULT KYAPI KyVideo_InitBitmapInfo(BITMAPINFOHEADER *header, KYPIXELTYPE type,
                                               LONG width, LONG height, const RGBQUAD *colours,
                                               LONG count, DWORD *imageSize);
/* Allocates header, table or masks, and pixels in one locked, moveable global-memory block;
 * *result receives its pointer (null on failure). Without colours the table that the header
 * counts is all zero. flags bit 0 zeroes the pixels too; bit 31 checks allocation and lock
 * separately. E_INVALIDARG as KyVideo_InitBitmapInfo (count is capped at
 * 256), E_POINTER for a null result, E_OUTOFMEMORY. Free with KyDibFree. */
KY_IMPORT HRESULT KYAPI KyDibAlloc(BITMAPINFOHEADER **result, KYPIXELTYPE type, LONG width,
                                   LONG height, const RGBQUAD *colours, LONG count, DWORD flags);
/* Frees a bitmap of KyDibAlloc (null is accepted). Returns 0. */
KY_IMPORT HRESULT KYAPI KyDibFree(void *bitmap, DWORD flags);

/* ---- rectangles and prepared records ---- */
/* Clips rectangle a to bounds and trims its partner b in proportion: cuts are scaled by
 * b's extent / the bounds' extent (not a's: deliberate, results callers compare against
 * depend on it). A rectangle wholly outside empties both. Returns 0 when both were
 * emptied, else 1. */
KY_IMPORT LONG KYAPI KyDibClipRectPair(RECT *a, const RECT *bounds, RECT *b);
/* Clips a destination/source rectangle pair against both bitmaps (missing rectangles mean
 * the whole bitmap and are never clipped). clipDeltas (may be null) receives how far the
 * source moved inwards: left, top, right, bottom. */
KY_IMPORT void KYAPI KyDibPrepareRects(const BITMAPINFOHEADER *dstHeader, RECT *dstRectOut,
                                       const RECT *dstRectIn, const BITMAPINFOHEADER *srcHeader,
                                       RECT *srcRectOut, const RECT *srcRectIn,
                                       LONG *clipDeltas);
/* Fills a generic record; 1 when ready, 0 (record zeroed) when a type is unknown or a
 * rectangle is empty. Release with KyDibCleanupGenericParams (frees the quantizer). */
KY_IMPORT LONG KYAPI KyDibPrepareGenericParams(tKYDIBGENERICPARAMS *record,
                                               BITMAPINFOHEADER *dstHeader, void *dstPixels,
                                               const RECT *dstRect, LONG dstStride,
                                               const BITMAPINFOHEADER *srcHeader,
                                               const void *srcPixels, const RECT *srcRect,
                                               LONG srcStride, DWORD flags);
KY_IMPORT void KYAPI KyDibCleanupGenericParams(tKYDIBGENERICPARAMS *record);
/* Fills a sub-pixel record (rectangles in 18.14); 1 when ready, 0 (record zeroed) when a
 * type is unknown or less than one pixel remains. Release with DibCleanupSubpixelParam. */
KY_IMPORT LONG KYAPI DibPrepareSubpixelParam(tKYDIBSUBPIXELPARAMS *record,
                                             BITMAPINFOHEADER *dstHeader, void *dstPixels,
                                             const RECT *dstRect, LONG dstStride,
                                             const BITMAPINFOHEADER *srcHeader,
                                             const void *srcPixels, const RECT *srcRect,
                                             LONG srcStride, DWORD flags);
KY_IMPORT void KYAPI DibCleanupSubpixelParam(tKYDIBSUBPIXELPARAMS *record);
/* Fills a plug-in record for a same-type pair of KYPT_RGB32, KYPT_RGBA32 (isFloat 0) or
 * KYPT_RGBAFLOAT (isFloat 1). S_OK with isEmpty 1 when nothing is left after clipping.
 * E_POINTER for a null record or header, E_INVALIDARG for other or different types and for
 * clipped rectangles of different sizes. isFloat and isEmpty may be null. */
KY_IMPORT HRESULT KYAPI DibPreparePluginParam(tKYDIBPLUGINPARAMS *record,
                                              BITMAPINFOHEADER *dstHeader, void *dstPixels,
                                              const RECT *dstRect, LONG dstStride,
                                              const BITMAPINFOHEADER *srcHeader,
                                              const void *srcPixels, const RECT *srcRect,
                                              LONG srcStride, void *context, LONG *isFloat,
                                              LONG *isEmpty);

/* Prepares an exchange record for a destination and source type.
 * Flags: a low nibble of 1 keeps the bits under 0x07FFF1F0 and adds 0x180; 2, 3 and 4 keep
 * them, add 0, 0x20 or 0x30 and add 0x1C0; any other nibble leaves the flags as given. 0x10
 * is added when either type has no direct path (see above). Bits 16 to 23 are copied to
 * flagsByte for the row loops.
 * opBlock (seven words, may be null): the operation index (KYXCHGOP_*) and six operands.
 * Operand 1 is the opacity, 0 to 65536 (1.0), used when KYXCHG_OPACITY is set; operand 2 the
 * colour of opSolid as 0xAARRGGBB. An operation blends result = dst + (op(dst, src) - dst) x
 * weight per colour channel, the weight being coverage x opacity, times the source alpha
 * when KYXCHG_SRCALPHA is set (the alpha channel then becomes src + dst x (1 - weight));
 * without KYXCHG_SRCALPHA the alpha channel is combined like the colours.
 * S_OK; E_INVALIDARG for an unknown type or a null record; E_NOTIMPL for an operation index
 * without routines (the record is then zeroed). The colour tables and the quantizer are the
 * caller's to fill in afterwards. */
KY_IMPORT HRESULT KYAPI KyDibPrepareXchgParams(KYPIXELTYPE dstType, KYPIXELTYPE srcType,
                                               DWORD flags, tKYDIBXCHGPARAMS *record,
                                               const DWORD *opBlock);

/* ---- colour quantizer ----
 * Maps 32-bit colour to the palette of a 1-, 2-, 4- or 8-bit palettised header (nearest
 * entry by squared RGB distance, the lowest index on ties). The palette is biClrUsed
 * entries at header + biSize, or the implied 2^biBitCount when biClrUsed is 0. The handle is
 * a global-memory block; one quantizer may be used from several threads at once. */
KY_IMPORT HGLOBAL KYAPI KyDibCreateColorQuantizer(const BITMAPINFOHEADER *header);
/* Palette index of 0x00RRGGBB; 0 for a null quantizer. */
KY_IMPORT LONG KYAPI KyDibQuantizeColor(HGLOBAL quantizer, DWORD rgb);
/* Maps count colours to palette indexes (for instance one palette onto another). Returns
 * S_OK, E_POINTER for null arguments, E_INVALIDARG for a handle that is not a quantizer. */
KY_IMPORT HRESULT KYAPI KyDibQuantizePalette(HGLOBAL quantizer, const RGBQUAD *colours,
                                             BYTE *indexes, LONG count);
/* Frees a quantizer (null is accepted). */
KY_IMPORT void KYAPI KyDibDestroyColorQuantizer(HGLOBAL quantizer);

/* Keep the subsystem's tables in the module; no other effect. */
KY_IMPORT void KYAPI KyVideoDSP_ForceExternRef(void);
KY_IMPORT LONG KYAPI KyVideoDSPFull_ForceExternRef(void);

KY_END_DECLS

#endif
