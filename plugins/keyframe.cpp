// Keyframes of an effect's parameters: a time-ordered list of parameter snapshots, the
// neighbours of a time, and the parameter state for any time (a stored snapshot, or a blend
// the effect itself computes from the two snapshots around the time).
#include "ky_keyframe.h"
#include "ky_list.h"

#include <windows.h>
#include <objbase.h>

namespace {

tKYKEYFRAME *At(HKYLIST list, LONG i) {
  return reinterpret_cast<tKYKEYFRAME *>(list->items + static_cast<size_t>(i) * list->slotSize);
}

LONG Count(const tKYVIDEOFILTER *f) { return f && f->keyframes ? f->keyframes->count : 0; }

// Index of the first keyframe later than time (count when none is later).
LONG FirstLater(const tKYVIDEOFILTER *f, LONGLONG time) {
  LONG n = Count(f), i = 0;
  while (i < n && At(f->keyframes, i)->time <= time) ++i;
  return i;
}

LONG FindExact(const tKYVIDEOFILTER *f, LONGLONG time) {
  for (LONG i = 0, n = Count(f); i < n; ++i) {
    LONGLONG t = At(f->keyframes, i)->time;
    if (t == time) return i;
    if (t > time) break;
  }
  return -1;
}

void FreeBlob(void *blob) {
  if (!blob) return;
  HGLOBAL h = GlobalHandle(blob);
  if (!h) return;
  GlobalUnlock(h);
  GlobalFree(h);
}

HRESULT WriteAll(IStream *s, const void *p, ULONG size) {
  ULONG done = 0;
  HRESULT hr = s->Write(p, size, &done);
  if (FAILED(hr)) return hr;
  return done == size ? S_OK : STG_E_MEDIUMFULL;
}

HRESULT Rewind(IStream *s) {
  LARGE_INTEGER zero{};
  return s->Seek(zero, STREAM_SEEK_SET, nullptr);
}

HRESULT MemoryStreamWith(const tKYKEYFRAME *k, IStream **out) {
  *out = nullptr;
  IStream *s = nullptr;
  HRESULT hr = CreateStreamOnHGlobal(nullptr, TRUE, &s);
  if (FAILED(hr)) return hr;
  hr = WriteAll(s, k->blob, k->blobSize);
  if (SUCCEEDED(hr)) hr = Rewind(s);
  if (FAILED(hr)) {
    s->Release();
    return hr;
  }
  *out = s;
  return S_OK;
}

// The earlier keyframe's curve applied to the linear fraction.
double Shape(LONG curve, double f) {
  switch (curve) {
  case KYCURVE_HOLD: return f < 1.0 ? 0.0 : 1.0;
  case KYCURVE_EASEIN: return f * f;
  case KYCURVE_EASEOUT: return 1.0 - (1.0 - f) * (1.0 - f);
  default: return f;
  }
}

HRESULT ValueAt(tKYVIDEOFILTER *f, IStream *out, LONGLONG time) {
  LONG exact = FindExact(f, time);
  if (exact >= 0) {
    const tKYKEYFRAME *k = At(f->keyframes, exact);
    return WriteAll(out, k->blob, k->blobSize);
  }
  LONG n = Count(f);
  if (n == 0) return f->params ? f->params->SaveParams(out) : E_POINTER;
  LONG next = FirstLater(f, time);
  if (next == 0) {
    const tKYKEYFRAME *k = At(f->keyframes, 0);
    return WriteAll(out, k->blob, k->blobSize);
  }
  if (next == n) {
    const tKYKEYFRAME *k = At(f->keyframes, n - 1);
    return WriteAll(out, k->blob, k->blobSize);
  }
  const tKYKEYFRAME *k0 = At(f->keyframes, next - 1);
  const tKYKEYFRAME *k1 = At(f->keyframes, next);
  if (!f->params) return E_POINTER;
  IStream *a = nullptr, *b = nullptr;
  HRESULT hr = MemoryStreamWith(k0, &a);
  if (FAILED(hr)) return hr;
  hr = MemoryStreamWith(k1, &b);
  if (FAILED(hr)) {
    a->Release();
    return hr;
  }
  LONGLONG span = k1->time - k0->time;
  double frac = span == 0 ? 0.0 : static_cast<double>(time - k0->time) / static_cast<double>(span);
  hr = f->params->BlendParams(out, a, b, Shape(k0->curve, frac));
  a->Release();
  b->Release();
  return hr;
}

// A fresh memory stream holding the value at time, rewound; its size in *size.
HRESULT ValueStream(tKYVIDEOFILTER *f, LONGLONG time, IStream **out, ULONGLONG *size) {
  *out = nullptr;
  IStream *s = nullptr;
  HRESULT hr = CreateStreamOnHGlobal(nullptr, TRUE, &s);
  if (FAILED(hr)) return hr;
  hr = ValueAt(f, s, time);
  LARGE_INTEGER zero{};
  ULARGE_INTEGER end{};
  if (SUCCEEDED(hr)) hr = s->Seek(zero, STREAM_SEEK_END, &end);
  if (SUCCEEDED(hr)) hr = Rewind(s);
  if (FAILED(hr)) {
    s->Release();
    return hr;
  }
  if (size) *size = end.QuadPart;
  *out = s;
  return S_OK;
}

} // namespace

extern "C" LONG KYAPI KyVideoKeyframe_Insert(tKYVIDEOFILTER *filter, LONGLONG time, LONG curve,
                                             LONG userValue, IStream *source,
                                             const void *sourceBytes, LONG blobSize,
                                             LONG *outIndex) {
  try {
    if (outIndex) *outIndex = -1;
    if (!filter) return E_POINTER;
    if (blobSize < 0) return E_INVALIDARG;
    if (blobSize > 0 && !source && !sourceBytes) return E_POINTER;
    if (!filter->keyframes) {
      HRESULT hr = KyList_CreateExZ(&filter->keyframes, sizeof(tKYKEYFRAME), 0, 0,
                                    KYKEYFRAME_LIST_OPTIONS, 0, 0, 0);
      if (FAILED(hr)) return hr;
    }
    // GlobalAlloc(GMEM_MOVEABLE, 0) gives a discarded block that cannot be locked, so an
    // empty state still gets one byte.
    HGLOBAL h = GlobalAlloc(GMEM_MOVEABLE, blobSize > 0 ? static_cast<SIZE_T>(blobSize) : 1);
    void *blob = h ? GlobalLock(h) : nullptr;
    if (!blob) {
      if (h) GlobalFree(h);
      return E_OUTOFMEMORY;
    }
    if (blobSize > 0) {
      if (source) {
        ULONG got = 0;
        HRESULT hr = source->Read(blob, static_cast<ULONG>(blobSize), &got);
        if (FAILED(hr) || got != static_cast<ULONG>(blobSize)) {
          FreeBlob(blob);
          return FAILED(hr) ? hr : STG_E_READFAULT;
        }
      } else {
        CopyMemory(blob, sourceBytes, static_cast<SIZE_T>(blobSize));
      }
    }
    LONG index = FirstLater(filter, time);
    tKYKEYFRAME rec{};
    rec.time = time;
    rec.blobSize = static_cast<DWORD>(blobSize);
    rec.blob = blob;
    rec.curve = curve == KYCURVE_INHERIT
                    ? (index > 0 ? At(filter->keyframes, index - 1)->curve : KYCURVE_LINEAR)
                    : curve;
    rec.userValue = userValue;
    HRESULT hr = KyList_InsertList(filter->keyframes, index, &rec, 1);
    if (FAILED(hr)) {
      FreeBlob(blob);
      return hr;
    }
    if (outIndex) *outIndex = index;
    return blobSize;
  } catch (...) {
    return E_FAIL;
  }
}

extern "C" LONG KYAPI KyVideoKeyframe_Find(tKYVIDEOFILTER *filter, tKYKEYFRAME **outRecord,
                                           LONGLONG time, LONGLONG window) {
  if (outRecord) *outRecord = nullptr;
  if (!filter) return -1;
  LONG found = -1;
  if (window < 0) {
    found = FindExact(filter, time);
  } else {
    ULONGLONG best = 0;
    for (LONG i = 0, n = Count(filter); i < n; ++i) {
      LONGLONG t = At(filter->keyframes, i)->time;
      ULONGLONG d = t >= time ? static_cast<ULONGLONG>(t) - static_cast<ULONGLONG>(time)
                              : static_cast<ULONGLONG>(time) - static_cast<ULONGLONG>(t);
      if (d <= static_cast<ULONGLONG>(window) && (found < 0 || d < best)) {
        found = i;
        best = d;
      }
    }
  }
  if (found >= 0 && outRecord) *outRecord = At(filter->keyframes, found);
  return found;
}

extern "C" LONG KYAPI KyVideoKeyframe_FindNeighbors(tKYVIDEOFILTER *filter, LONG *outPrevious,
                                                    LONG *outNext, LONGLONG time) {
  LONG n = Count(filter);
  LONG next = FirstLater(filter, time);
  LONG prev = next - 1;
  if (next == n) next = -1;
  if (n == 0) prev = -1;
  if (outPrevious) *outPrevious = prev;
  if (outNext) *outNext = next;
  return 0;
}

extern "C" HRESULT KYAPI KyVideoKeyframe_GetValueAt(tKYVIDEOFILTER *filter, IStream *out,
                                                    LONGLONG time) {
  try {
    if (!filter || !out) return E_POINTER;
    return ValueAt(filter, out, time);
  } catch (...) {
    return E_FAIL;
  }
}

extern "C" LONG KYAPI KyVideoKeyframe_InsertSmart(tKYVIDEOFILTER *filter, LONGLONG time) {
  try {
    if (!filter || !filter->params || FindExact(filter, time) >= 0) return -1;
    IStream *s = nullptr;
    ULONGLONG size = 0;
    if (FAILED(ValueStream(filter, time, &s, &size))) return -1;
    LONG index = -1;
    LONG r = size > 0x7fffffffull
                 ? E_OUTOFMEMORY
                 : KyVideoKeyframe_Insert(filter, time, KYCURVE_INHERIT, 0, s, nullptr,
                                          static_cast<LONG>(size), &index);
    s->Release();
    return r < 0 ? -1 : index;
  } catch (...) {
    return -1;
  }
}

extern "C" void KYAPI KyVideoKeyframe_SetTransformParam(tKYVIDEOFILTER *filter, LONGLONG time) {
  try {
    if (!filter || !filter->params) return;
    filter->currentTime = time;
    IStream *s = nullptr;
    if (FAILED(ValueStream(filter, time, &s, nullptr))) return;
    filter->params->LoadParams(s);
    s->Release();
  } catch (...) {
  }
}

extern "C" HRESULT KYAPI KyVideoKeyframe_DeleteAll(tKYVIDEOFILTER *filter) {
  if (!filter) return E_POINTER;
  if (!filter->keyframes) return S_OK;
  for (LONG i = 0, n = Count(filter); i < n; ++i) FreeBlob(At(filter->keyframes, i)->blob);
  HRESULT hr = KyList_Destroy(filter->keyframes);
  filter->keyframes = nullptr;
  return hr;
}

// 1 + the largest of 16 and every cookie in the cache, so 0 to 16 are never issued.
extern "C" DWORD KYAPI KyVideoFilterCache_CreateNewCookie(HKYLIST cache) {
  DWORD largest = 16;
  if (cache && KyList_IsList(cache, KYLIST_HEADER_SIZE)) {
    bool inline_ = (KyList_GetCreateOptions(cache) & KYLIST_ARRAY) != 0;
    for (LONG i = 0; i < cache->count; ++i) {
      BYTE *slot = cache->items + static_cast<size_t>(i) * cache->slotSize;
      const tKYFILTERCACHEENTRY *e =
          inline_ ? reinterpret_cast<const tKYFILTERCACHEENTRY *>(slot)
                  : *reinterpret_cast<const tKYFILTERCACHEENTRY *const *>(slot);
      if (e && e->cookie > largest) largest = e->cookie;
    }
  }
  return largest + 1;
}
