// Describing an AIFF file as a wave format, and the WAVE/AIFF probe by file name.
#include <stdlib.h>

#include "ky_audio.h"
#include "ky_iff.h"
#include "ky_riff.h"
#include "ky_status.h"
#include "meta_io.h"

using namespace ky::meta;

extern "C" {

HRESULT KYAPI iff_GetAIFFWfx(HANDLE hFile, WAVEFORMATEX *wfx, DWORD *frames, DWORD *dataOffset) {
  WAVEFORMATEX local = {};
  if (!wfx) wfx = &local;
  DWORD formSize = 0;
  if (!iff_IsAIFFFile(hFile, &formSize)) return KYERR_FILE_CORRUPT;

  DWORD start = 0;
  riff_SaveLocation(hFile, &start);
  LONG left = (LONG)formSize;
  DWORD size = 0;
  HRESULT hr = iff_FindChunkHeader(hFile, KYIFF_COMM, &size, &left);
  if (FAILED(hr)) return hr;

  BYTE comm[18];
  if (!ReadExact(hFile, comm, sizeof comm)) return KYERR_FILE_READ;
  WORD channels, bits, rate[5];
  DWORD commFrames;
  memcpy(&channels, comm, 2);
  memcpy(&commFrames, comm + 2, 4);
  memcpy(&bits, comm + 6, 2);
  memcpy(rate, comm + 8, 10);
  iff_ByteSwap16(&channels, 1);
  iff_ByteSwap32(&commFrames, 1);
  iff_ByteSwap16(&bits, 1);
  iff_ByteSwap16(rate, 5);

  // Order matters: the average rate comes from the block alignment before a zero alignment
  // (samples narrower than a byte) is raised to 1, so it may stay 0.
  wfx->nSamplesPerSec = aiff_ConvertRate(rate);
  wfx->wBitsPerSample = bits;
  wfx->nChannels = channels;
  wfx->wFormatTag = bits == 8 ? KYWAVE_FORMAT_AIFF8 : KYWAVE_FORMAT_AIFF;
  wfx->nBlockAlign = (WORD)((bits / 8) * channels);
  wfx->nAvgBytesPerSec = wfx->nBlockAlign * wfx->nSamplesPerSec;
  if (wfx->nBlockAlign == 0) wfx->nBlockAlign = 1;

  riff_RestoreLocation(hFile, start);
  left = (LONG)formSize;
  hr = iff_FindChunkHeader(hFile, KYIFF_SSND, &size, &left);
  if (FAILED(hr)) return hr;
  DWORD sampleBytes = size - 8;
  DWORD ssnd[2];
  if (!ReadExact(hFile, ssnd, 8)) return KYERR_FILE_READ;
  iff_ByteSwap32(ssnd, 2);
  // A damaged SSND (smaller than its own fields or its offset) counts as empty.
  if (size < 8) sampleBytes = 0;
  if (ssnd[0]) sampleBytes = ssnd[0] < sampleBytes ? sampleBytes - ssnd[0] : 0;
  if (frames) {
    DWORD n = sampleBytes / wfx->nBlockAlign;
    *frames = n < commFrames ? n : commFrames;
  }
  if (dataOffset) *dataOffset = Tell(hFile) + ssnd[0];
  return S_OK;
}

WAVEFORMATEX *KYAPI KyGetFileWfx(const char *path, ULONGLONG *frames, ULONGLONG *dataOffset) {
  if (!path) return nullptr;
  HANDLE h = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                         FILE_FLAG_WRITE_THROUGH, nullptr);
  if (h == INVALID_HANDLE_VALUE) return nullptr;

  WAVEFORMATEX *wfx = nullptr;
  SeekTo(h, 0);
  DWORD riffSize = 0, form = 0;
  if (SUCCEEDED(riff_ReadFileID(h, &riffSize, &form)) && form == Fourcc("WAVE")) {
    LONG left = (LONG)riffSize;
    DWORD size = 0;
    if (SUCCEEDED(riff_FindChunkHeader(h, Fourcc("fmt "), &size, &left))) {
      // At least a whole PCM record, so that the fields below exist even in a short chunk.
      wfx = static_cast<WAVEFORMATEX *>(calloc(size > 18 ? size : 18, 1));
      if (!wfx || FAILED(riff_ReadData(h, wfx, size))) {
        free(wfx);
        CloseHandle(h);
        return nullptr;
      }
      KyAudio_FixBadWfx(wfx);
    }
  }

  if (wfx) {
    WORD tag = wfx->wFormatTag;
    bool ok = (tag == WAVE_FORMAT_PCM || tag == 3 /* IEEE float */ ||
               (tag >= KYWAVE_FORMAT_PRIVATE && tag <= KYWAVE_FORMAT_AIFF)) &&
              wfx->nBlockAlign == (WORD)((wfx->wBitsPerSample / 8) * wfx->nChannels);
    DWORD size = 0;
    if (ok) {
      SeekTo(h, 0);
      LONG left = 0;
      DWORD rs = 0;
      ok = SUCCEEDED(riff_ReadFileID(h, &rs, nullptr));
      left = (LONG)rs;
      ok = ok && SUCCEEDED(riff_FindChunkHeader(h, Fourcc("data"), &size, &left));
      // Samples narrower than a byte give an alignment of 0 that the test above lets through;
      // such data cannot be counted in frames, so the file is refused.
      ok = ok && wfx->nBlockAlign != 0;
    }
    if (!ok) {
      free(wfx);
      CloseHandle(h);
      return nullptr;
    }
    if (dataOffset) *dataOffset = Tell(h);
    if (frames) *frames = size / wfx->nBlockAlign;
  } else {
    wfx = static_cast<WAVEFORMATEX *>(calloc(1, 18));
    if (!wfx) {
      CloseHandle(h);
      return nullptr;
    }
    DWORD n = 0, off = 0;
    HRESULT hr = iff_GetAIFFWfx(h, wfx, &n, &off);
    if (frames) *frames = n;
    if (dataOffset) *dataOffset = off;
    if (FAILED(hr)) {
      free(wfx);
      wfx = nullptr;
    }
  }
  CloseHandle(h);
  return wfx;
}

}  // extern "C"
