// Side files: testing whether a ".KYL" file belongs to a media file, re-attaching it under a
// new media name, and removing the cue chunks of a file.
#include <string.h>

#include "ky_error.h"
#include "ky_fmmeta.h"
#include "ky_path.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "meta_io.h"

using namespace ky::meta;

namespace {

constexpr DWORD kKypi = Fourcc("KYPI");
constexpr DWORD kCue = Fourcc("cue ");
constexpr DWORD kAdtl = Fourcc("adtl");
constexpr DWORD kMaxStoredName = 260;

HANDLE OpenReadWrite(const char *path) {
  return CreateFileA(path, GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                     nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr);
}

// Appends a "KYPI" chunk naming `mediaPath`'s file-name part at the end of the RIFF form and
// grows the form's size by it.
HRESULT AppendKypi(HANDLE h, const char *mediaPath) {
  SeekTo(h, 0);
  DWORD formBytes = 0;
  HRESULT hr = riff_ReadFileID(h, &formBytes, nullptr);
  if (FAILED(hr)) return hr;
  SkipForward(h, formBytes);  // the bytes after the form type: to the end of the form
  const char *name = KyGetFileNamePtr(mediaPath);
  DWORD size = (DWORD)strlen(name) + 1;
  hr = riff_WriteChunkHeader(h, kKypi, size);
  if (FAILED(hr)) return hr;
  if (!WriteAll(h, name, size)) return KYERR_FILE_WRITE;
  if (size & 1) {
    BYTE pad = 0;
    if (!WriteAll(h, &pad, 1)) return KYERR_FILE_WRITE;
  }
  riff_UpdateRIFFSize(h, (LONG)(RoundEven(size) + 8));
  return S_OK;
}

}  // namespace

extern "C" {

BOOL KYAPI KyFMMeta_IsMetaFile(const char *mediaPath, const char *sidePath) {
  if (!mediaPath || !sidePath) return FALSE;
  HANDLE h = CreateFileA(sidePath, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_ATTRIBUTE_NORMAL, nullptr);
  if (h == INVALID_HANDLE_VALUE) return FALSE;
  char stored[kMaxStoredName] = {};
  DWORD size = 0;
  BOOL same = FALSE;
  if (SUCCEEDED(riff_FindChunkHeaderInRIFF(h, kKypi, &size, nullptr)) && size > 0) {
    // At most 260 bytes are read; the last byte read is the terminator in any case.
    DWORD n = size < kMaxStoredName ? size : kMaxStoredName;
    DWORD got = 0;
    if (ReadSome(h, stored, n, &got)) {
      stored[n - 1] = 0;
      same = strcmp(stored, KyGetFileNamePtr(mediaPath)) == 0;
    }
  }
  CloseHandle(h);
  return same;
}

HRESULT KYAPI KyFMMeta_ChangeAttachedFilename(const char *sidePath, const char *newMediaPath) {
  if (!sidePath || !newMediaPath) return E_FAIL;
  HANDLE h = OpenReadWrite(sidePath);
  if (h == INVALID_HANDLE_VALUE) return KyErrorHandler_TranslateWin32Error(GetLastError());
  HRESULT hr = riff_DeleteChunk(h, kKypi, nullptr, FALSE);
  if (hr == KYERR_NOT_FOUND) hr = S_OK;  // nothing attached yet
  if (SUCCEEDED(hr)) hr = AppendKypi(h, newMediaPath);
  CloseHandle(h);
  return hr;
}

HRESULT KYAPI KyFMMeta_DeleteMetaChunks(const char *mediaPath) {
  if (!mediaPath) return S_OK;
  HANDLE h = OpenReadWrite(mediaPath);
  if (h == INVALID_HANDLE_VALUE) return S_OK;  // nothing to clean
  HRESULT hr = riff_DeleteChunk(h, kCue, nullptr, FALSE);
  if (hr == KYERR_NOT_FOUND) hr = S_OK;
  if (SUCCEEDED(hr)) hr = riff_DeleteChunk(h, kAdtl, nullptr, TRUE);
  CloseHandle(h);
  return hr;
}

}  // extern "C"
