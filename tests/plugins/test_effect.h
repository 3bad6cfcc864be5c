// A small effect object for the keyframe and preset tests: a real COM object whose parameter
// state is a byte string. It offers the effect parameter interface (save, load, blend of two
// states byte by byte) and IPersistStream, and records what the host asked of it.
#pragma once

#include "ky_testutil.h"
#include "ky_keyframe.h"

#include <objbase.h>
#include <cmath>
#include <vector>

namespace kytest {

// {8D4E2F61-3C7A-4B19-A5E0-71C2D9F4B803}
inline const CLSID kTestEffectClsid = {0x8d4e2f61, 0x3c7a, 0x4b19, {0xa5, 0xe0, 0x71, 0xc2, 0xd9, 0xf4, 0xb8, 0x03}};
inline const IID kEffectParamsIid = {0x4a1c7e52, 0x9b3d, 0x4f60, {0x8e, 0x21, 0x5d, 0x7a, 0x0c, 0x93, 0xb6, 0xf4}};

inline std::vector<BYTE> ReadWhole(IStream *s) {
  std::vector<BYTE> out;
  BYTE buf[512];
  ULONG got = 0;
  while (SUCCEEDED(s->Read(buf, sizeof buf, &got)) && got > 0) out.insert(out.end(), buf, buf + got);
  return out;
}

inline void Rewind(IStream *s) {
  LARGE_INTEGER zero{};
  s->Seek(zero, STREAM_SEEK_SET, nullptr);
}

inline std::vector<BYTE> StreamContent(IStream *s) {
  Rewind(s);
  return ReadWhole(s);
}

class TestEffect : public IKyEffectParams, public IPersistStream {
public:
  std::vector<BYTE> state;     // the current parameters
  std::vector<BYTE> loaded;    // what the last LoadParams / Load received
  double lastFraction = -1.0;  // the fraction of the last blend
  int blends = 0, loads = 0;
  CLSID clsid = kTestEffectClsid;
  HRESULT classIdStatus = S_OK; // what GetClassID answers
  LONG refs = 1;

  // IUnknown (through the parameter interface's vtable).
  STDMETHODIMP QueryInterface(REFIID riid, void **ppv) override {
    if (IsEqualIID(riid, IID_IUnknown) || IsEqualIID(riid, kEffectParamsIid)) {
      *ppv = static_cast<IKyEffectParams *>(this);
    } else if (IsEqualIID(riid, IID_IPersistStream) || IsEqualIID(riid, IID_IPersist)) {
      *ppv = static_cast<IPersistStream *>(this);
    } else {
      *ppv = nullptr;
      return E_NOINTERFACE;
    }
    AddRef();
    return S_OK;
  }
  STDMETHODIMP_(ULONG) AddRef() override { return static_cast<ULONG>(InterlockedIncrement(&refs)); }
  STDMETHODIMP_(ULONG) Release() override { return static_cast<ULONG>(InterlockedDecrement(&refs)); }

  // The effect parameter interface.
  STDMETHODIMP GetParamInfo(DWORD *info) override {
    if (info) *info = static_cast<DWORD>(state.size());
    return S_OK;
  }
  STDMETHODIMP SaveParams(IStream *out) override {
    ULONG done = 0;
    return state.empty() ? S_OK : out->Write(state.data(), static_cast<ULONG>(state.size()), &done);
  }
  STDMETHODIMP LoadParams(IStream *in) override {
    loaded = ReadWhole(in);
    ++loads;
    return S_OK;
  }
  // Byte-wise blend a + (b - a) * f, rounded; the longer state's tail is taken from b.
  STDMETHODIMP BlendParams(IStream *out, IStream *a, IStream *b, double f) override {
    ++blends;
    lastFraction = f;
    std::vector<BYTE> x = ReadWhole(a), y = ReadWhole(b);
    std::vector<BYTE> r(y);
    for (size_t i = 0; i < x.size() && i < y.size(); ++i)
      r[i] = static_cast<BYTE>(std::lround(x[i] + (y[i] - x[i]) * f));
    ULONG done = 0;
    return r.empty() ? S_OK : out->Write(r.data(), static_cast<ULONG>(r.size()), &done);
  }

  // IPersistStream.
  STDMETHODIMP GetClassID(CLSID *id) override {
    *id = clsid;
    return classIdStatus;
  }
  STDMETHODIMP IsDirty() override { return S_FALSE; }
  STDMETHODIMP Load(IStream *in) override {
    loaded = ReadWhole(in);
    ++loads;
    return S_OK;
  }
  STDMETHODIMP Save(IStream *out, BOOL) override { return SaveParams(out); }
  STDMETHODIMP GetSizeMax(ULARGE_INTEGER *size) override {
    size->QuadPart = state.size();
    return S_OK;
  }

  IKyEffectParams *Params() { return static_cast<IKyEffectParams *>(this); }
  IUnknown *Unknown() { return static_cast<IKyEffectParams *>(this); }
};

// IPersistStream and IKyEffectParams both declare QueryInterface/AddRef/Release; the final
// overriders above serve both vtables.

inline IStream *NewStream() {
  IStream *s = nullptr;
  CreateStreamOnHGlobal(nullptr, TRUE, &s);
  return s;
}

} // namespace kytest
