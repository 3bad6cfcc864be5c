// PLACEHOLDER until the settings store lands: just enough for the frame to link.
#include "ky_internal.h"
extern "C" HRESULT WINAPI KyMetric_Open(HKYMETRIC *out, const char *, DWORD, const char *) { *out = nullptr; return E_FAIL; }
extern "C" HRESULT WINAPI KyMetric_Close(HKYMETRIC) { return S_OK; }
