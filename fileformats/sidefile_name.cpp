// Side-file names: the media path with its extension replaced by (or followed by) ".KYL".
#include <string.h>

#include "ky_fmmeta.h"
#include "ky_path.h"

extern "C" {

HRESULT KYAPI KyFMMeta_CreateMetaName(const char *mediaPath, char *out, LONG capacity,
                                      BOOL append) {
  if (!mediaPath || !out || capacity < 1) return E_INVALIDARG;
  size_t len = strlen(mediaPath);
  // The length test allows 4 characters more than the capacity rather than leaving room for
  // the 4 that are added: callers size their buffers for it, and the result is never written
  // beyond the capacity (it is cut short there, still terminated).
  if ((LONGLONG)len > (LONGLONG)capacity + 4) return E_INVALIDARG;
  size_t stem = len;
  if (!append) {
    const char *ext = KyGetFileNameExtensionPtr(mediaPath);
    if (ext) stem = (size_t)(ext - mediaPath);
  }
  const char *src = mediaPath;
  size_t room = (size_t)capacity - 1;
  size_t n = 0;
  for (size_t i = 0; i < stem && n < room; ++i) out[n++] = src[i];
  for (const char *e = KYFMMETA_EXTENSION; *e && n < room; ++e) out[n++] = *e;
  out[n] = 0;
  return S_OK;
}

}  // extern "C"
