// Texts of wave formats: the name of a format tag and a one-line description of a format.
// The library's own tags are named from the language string table; every other tag and
// format is asked of the Audio Compression Manager.
#include "audio_internal.h"
#include "ky_internal.h"
#include "ky_kernel.h"
#include "ky_text.h"

#include <mmsystem.h>
#include <msacm.h>

namespace ky::audio {

namespace {

constexpr UINT kStrPcm = 4000;        // "PCM"
constexpr UINT kStrFloat = 4001;      // "PCM (float)"
constexpr UINT kStrUnpacked = 4002;   // "PCM (unpacked)"
constexpr UINT kStrSigned = 4003;     // "PCM (signed)"
constexpr UINT kStrBigEndian = 4004;  // "PCM (big endian)"
constexpr UINT kStrUnknown = 4006;    // "Unknown"
constexpr UINT kStrMono = 4007;       // "Mono"
constexpr UINT kStrStereo = 4008;     // "Stereo"
constexpr UINT kStrChannels = 4009;   // "%d Channels"
constexpr UINT kStrAttribs = 4010;    // "$d Hz$, %d-bit$, %s"
constexpr UINT kStrAttribsFloat = 4011; // "$d Hz$, %d-bit (float)$, %s"

// The English texts, used should the string table not answer.
const char *Fallback(UINT id) {
  switch (id) {
  case kStrPcm: return "PCM";
  case kStrFloat: return "PCM (float)";
  case kStrUnpacked: return "PCM (unpacked)";
  case kStrSigned: return "PCM (signed)";
  case kStrBigEndian: return "PCM (big endian)";
  case kStrMono: return "Mono";
  case kStrStereo: return "Stereo";
  case kStrChannels: return "%d Channels";
  case kStrAttribs: return "$d Hz$, %d-bit$, %s";
  case kStrAttribsFloat: return "$d Hz$, %d-bit (float)$, %s";
  default: return "Unknown";
  }
}

void GetString(UINT id, char *buffer, LONG size) {
  if (KyGetString2(id, buffer, size) <= 0) ky::CopyText(buffer, size, Fallback(id));
}

UINT TagStringId(DWORD tag) {
  switch (tag) {
  case WAVE_FORMAT_PCM: return kStrPcm;
  case WAVE_FORMAT_IEEE_FLOAT: return kStrFloat;
  case KYWAVE_FORMAT_UNPACKED: return kStrUnpacked;
  case KYWAVE_FORMAT_SIGNED: return kStrSigned;
  case KYWAVE_FORMAT_BIGENDIAN: return kStrBigEndian;
  default: return 0;
  }
}

HRESULT UnknownText(char *buffer, LONG size) {
  GetString(kStrUnknown, buffer, size);
  return E_FAIL;
}

} // namespace

} // namespace ky::audio

using namespace ky::audio;

extern "C" HRESULT WINAPI KyAudio_GetTagText(DWORD tag, char *buffer, LONG size) {
  if (!buffer) return S_OK;
  if (size <= 0) return E_INVALIDARG; // no room even for the terminator
  return ky::GuardHr([&]() -> HRESULT {
    if (UINT id = TagStringId(tag)) {
      GetString(id, buffer, size);
      return S_OK;
    }
    ACMFORMATTAGDETAILSA d = {};
    d.cbStruct = sizeof d;
    d.dwFormatTag = tag;
    if (acmFormatTagDetailsA(nullptr, &d, ACM_FORMATTAGDETAILSF_FORMATTAG) != MMSYSERR_NOERROR ||
        !d.szFormatTag[0])
      return UnknownText(buffer, size);
    ky::CopyText(buffer, size, d.szFormatTag);
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KyAudio_GetAttribsText(const WAVEFORMATEX *format, char *buffer,
                                                 LONG size) {
  if (!buffer) return S_OK;
  if (size <= 0) return E_INVALIDARG;
  if (!format) return UnknownText(buffer, size);
  return ky::GuardHr([&]() -> HRESULT {
    const WORD tag = format->wFormatTag;
    const bool own = TagStringId(tag) != 0;
    if (own && format->nBlockAlign == (format->wBitsPerSample / 8) * format->nChannels) {
      char channels[64], pattern[128];
      if (format->nChannels == 1) {
        GetString(kStrMono, channels, sizeof channels);
      } else if (format->nChannels == 2) {
        GetString(kStrStereo, channels, sizeof channels);
      } else {
        GetString(kStrChannels, pattern, sizeof pattern);
        KyPrintF(channels, sizeof channels, pattern, int(format->nChannels));
      }
      GetString(tag == WAVE_FORMAT_IEEE_FLOAT ? kStrAttribsFloat : kStrAttribs, pattern,
                sizeof pattern);
      KyPrintF(buffer, size, pattern, int(format->nSamplesPerSec), int(format->wBitsPerSample),
               channels);
      return S_OK;
    }
    ACMFORMATDETAILSA d = {};
    d.cbStruct = sizeof d;
    d.dwFormatTag = tag;
    d.pwfx = const_cast<WAVEFORMATEX *>(format);
    // Plain PCM and float headers may be the 16-byte form without cbSize.
    d.cbwfx = tag == WAVE_FORMAT_PCM || tag == WAVE_FORMAT_IEEE_FLOAT ? 16 : format->cbSize + 18;
    if (acmFormatDetailsA(nullptr, &d, ACM_FORMATDETAILSF_FORMAT) != MMSYSERR_NOERROR ||
        !d.szFormat[0])
      return UnknownText(buffer, size);
    ky::CopyText(buffer, size, d.szFormat);
    return S_OK;
  });
}
