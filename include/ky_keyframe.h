/* tellarok keyframes and parameter interpolation.
 *
 * An effect applied to a clip keeps keyframes: snapshots of the effect's parameter state at
 * points in time, in a time-ordered item list. The host never interprets a snapshot: at a
 * keyframe it hands the stored bytes back unchanged, between two keyframes it shapes the time
 * fraction by the earlier keyframe's curve and asks the effect to blend the two snapshots
 * through its parameter interface (IKyEffectParams below). */
#ifndef TELLAROK_KY_KEYFRAME_H
#define TELLAROK_KY_KEYFRAME_H

#include "ky_base.h"
#include "ky_list.h"
#include <objbase.h>

/* Curve codes: how the fraction is shaped from a keyframe to the next one. Any other value
 * behaves as linear; KYCURVE_INHERIT given at insertion copies the curve of the keyframe
 * before the new one (linear when there is none). */
#define KYCURVE_LINEAR   0
#define KYCURVE_HOLD     1
#define KYCURVE_EASEIN   2  /* slow start: f*f */
#define KYCURVE_EASEOUT  3  /* slow end: 1-(1-f)^2 */
#define KYCURVE_INHERIT  5

/* Item-list create options of a keyframe list: inline records, no owner check. */
#define KYKEYFRAME_LIST_OPTIONS 0x40000004u

/* One keyframe (an item of the keyframe list), 32 bytes. blob is a locked movable global
 * block of blobSize bytes owned by the list (freed by KyVideoKeyframe_DeleteAll). */
typedef struct tKYKEYFRAME {
  LONGLONG time;    /* position in the clip's time units */
  DWORD blobSize;   /* bytes of saved parameter state */
  void *blob;       /* locked movable global block */
  LONG curve;       /* KYCURVE_* */
  DWORD reserved1;  /* 0 */
  LONG userValue;   /* as given at insertion */
  DWORD reserved2;  /* 0 */
} tKYKEYFRAME;

KY_CHECK_SIZE(tKYKEYFRAME, 32);
KY_CHECK_OFFSET(tKYKEYFRAME, time, 0);
KY_CHECK_OFFSET(tKYKEYFRAME, blobSize, 8);
KY_CHECK_OFFSET(tKYKEYFRAME, blob, 12);
KY_CHECK_OFFSET(tKYKEYFRAME, curve, 16);
KY_CHECK_OFFSET(tKYKEYFRAME, userValue, 24);

/* The effect's parameter interface. Its vtable, in slot order: the three IUnknown methods,
 * GetParamInfo (the effect's own; the host never calls it), SaveParams (slot 5: write the
 * current parameters to a stream), LoadParams (slot 6: take the parameters from a stream and
 * render with them) and BlendParams (slot 7: write to out the parameters a fraction f of the
 * way from the state in a to the state in b; both input streams are rewound). */
#undef INTERFACE
#define INTERFACE IKyEffectParams
DECLARE_INTERFACE_(IKyEffectParams, IUnknown) {
  STDMETHOD(QueryInterface)(THIS_ REFIID riid, void **ppv) PURE;
  STDMETHOD_(ULONG, AddRef)(THIS) PURE;
  STDMETHOD_(ULONG, Release)(THIS) PURE;
  STDMETHOD(GetParamInfo)(THIS_ DWORD *info) PURE;
  STDMETHOD(SaveParams)(THIS_ IStream *out) PURE;
  STDMETHOD(LoadParams)(THIS_ IStream *in) PURE;
  STDMETHOD(BlendParams)(THIS_ IStream *out, IStream *a, IStream *b, double f) PURE;
};
#undef INTERFACE

/* {4A1C7E52-9B3D-4F60-8E21-5D7A0C93B6F4} */
DEFINE_GUID(IID_IKyEffectParams, 0x4a1c7e52, 0x9b3d, 0x4f60, 0x8e, 0x21, 0x5d, 0x7a, 0x0c, 0x93,
            0xb6, 0xf4);

/* The part of a filter instance the keyframe functions use. The caller owns the record and
 * the interface reference; keyframes is created on the first insertion and freed by
 * KyVideoKeyframe_DeleteAll. */
typedef struct tKYVIDEOFILTER {
  IKyEffectParams *params;  /* may be null: then only stored blobs are handed out */
  HKYLIST keyframes;        /* tKYKEYFRAME items sorted by time; null until the first insert */
  LONGLONG currentTime;     /* last time given to KyVideoKeyframe_SetTransformParam */
} tKYVIDEOFILTER;

KY_CHECK_SIZE(tKYVIDEOFILTER, 16);
KY_CHECK_OFFSET(tKYVIDEOFILTER, keyframes, 4);
KY_CHECK_OFFSET(tKYVIDEOFILTER, currentTime, 8);

/* A filter-cache entry: the cache is an item list whose entries (inline records of an array
 * list, or the records its slots point to) begin with their 32-bit cookie. */
typedef struct tKYFILTERCACHEENTRY {
  DWORD cookie;
} tKYFILTERCACHEENTRY;

/* "No second time" for KyVideoKeyframe_Find. */
#define KYKEYFRAME_NO_WINDOW ((LONGLONG)-1)

KY_FUNC(LONG) KyVideoKeyframe_Insert(tKYVIDEOFILTER *filter, LONGLONG time, LONG curve,
                                     LONG userValue, IStream *source, const void *sourceBytes,
                                     LONG blobSize, LONG *outIndex);
KY_FUNC(LONG) KyVideoKeyframe_InsertSmart(tKYVIDEOFILTER *filter, LONGLONG time);
/* window == KYKEYFRAME_NO_WINDOW (or any negative value): the first keyframe exactly at time.
 * window >= 0: the keyframe nearest to time with |keyframe time - time| <= window, the
 * earliest one when two are equally near. -1 when none; *outRecord (if given) gets the
 * record's address or null. */
KY_FUNC(LONG) KyVideoKeyframe_Find(tKYVIDEOFILTER *filter, tKYKEYFRAME **outRecord, LONGLONG time,
                                   LONGLONG window);
KY_FUNC(LONG) KyVideoKeyframe_FindNeighbors(tKYVIDEOFILTER *filter, LONG *outPrevious,
                                            LONG *outNext, LONGLONG time);
KY_FUNC(HRESULT) KyVideoKeyframe_GetValueAt(tKYVIDEOFILTER *filter, IStream *out, LONGLONG time);
KY_FUNC(void) KyVideoKeyframe_SetTransformParam(tKYVIDEOFILTER *filter, LONGLONG time);
/* Frees every keyframe's block and the keyframe list, leaving filter->keyframes null. */
KY_FUNC(HRESULT) KyVideoKeyframe_DeleteAll(tKYVIDEOFILTER *filter);
KY_FUNC(DWORD) KyVideoFilterCache_CreateNewCookie(HKYLIST cache);

#endif
