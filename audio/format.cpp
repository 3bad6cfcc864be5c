// Sample-type classification of wave formats and the size questions about sample types.
#include "ky_audio.h"
#include "audio_internal.h"

#include <string.h>

namespace ky::audio {

namespace {

struct TypeInfo {
  KYSAMPLETYPE type;
  LONG bits;
  LONG bytes;
  LONG tag;
};

constexpr TypeInfo kTypes[] = {
    {KYSAMPLE_U8, 8, 1, WAVE_FORMAT_PCM},
    {KYSAMPLE_S16, 16, 2, WAVE_FORMAT_PCM},
    {KYSAMPLE_S24, 24, 3, WAVE_FORMAT_PCM},
    {KYSAMPLE_S32, 32, 4, WAVE_FORMAT_PCM},
    {KYSAMPLE_F32, 32, 4, WAVE_FORMAT_IEEE_FLOAT},
    {KYSAMPLE_F64, 64, 8, WAVE_FORMAT_IEEE_FLOAT},
    {KYSAMPLE_S24IN32, 32, 4, KYWAVE_FORMAT_UNPACKED},
    {KYSAMPLE_S8, 8, 1, KYWAVE_FORMAT_SIGNED},
    {KYSAMPLE_S16BE, 16, 2, KYWAVE_FORMAT_BIGENDIAN},
    {KYSAMPLE_S24BE, 24, 3, KYWAVE_FORMAT_BIGENDIAN},
    {KYSAMPLE_S32BE, 32, 4, KYWAVE_FORMAT_BIGENDIAN},
};

const TypeInfo *FindType(KYSAMPLETYPE t) {
  for (const TypeInfo &i : kTypes)
    if (i.type == t) return &i;
  return nullptr;
}

// {00000001-0000-0010-8000-00AA00389B71}, the PCM sub-format of the extensible header.
constexpr GUID kPcmSubFormat = {0x00000001, 0x0000, 0x0010,
                                {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};

} // namespace

bool IsPcmSubFormat(const WAVEFORMATEX *f) {
  const auto *x = reinterpret_cast<const WAVEFORMATEXTENSIBLE *>(f);
  return memcmp(&x->SubFormat, &kPcmSubFormat, sizeof(GUID)) == 0;
}

KYSAMPLETYPE Classify(const WAVEFORMATEX *f) {
  if (!f) return KYSAMPLE_UNKNOWN;
  const WORD bits = f->wBitsPerSample;
  switch (f->wFormatTag) {
  case WAVE_FORMAT_PCM:
    switch (bits) {
    case 8: return KYSAMPLE_U8;
    case 16: return KYSAMPLE_S16;
    case 24: return KYSAMPLE_S24;
    case 32: return KYSAMPLE_S32;
    }
    return KYSAMPLE_UNKNOWN;
  case KYWAVE_FORMAT_SIGNED:
    // Only the 8-bit size differs from PCM: wider PCM is signed anyway.
    switch (bits) {
    case 8: return KYSAMPLE_S8;
    case 16: return KYSAMPLE_S16;
    case 24: return KYSAMPLE_S24;
    case 32: return KYSAMPLE_S32;
    }
    return KYSAMPLE_UNKNOWN;
  case WAVE_FORMAT_IEEE_FLOAT:
    if (bits == 32) return KYSAMPLE_F32;
    if (bits == 64) return KYSAMPLE_F64;
    return KYSAMPLE_UNKNOWN;
  case KYWAVE_FORMAT_UNPACKED:
    return bits == 24 || bits == 32 ? KYSAMPLE_S24IN32 : KYSAMPLE_UNKNOWN;
  case KYWAVE_FORMAT_BIGENDIAN:
    switch (bits) {
    case 8: return KYSAMPLE_U8; // a single byte has no order
    case 16: return KYSAMPLE_S16BE;
    case 24: return KYSAMPLE_S24BE;
    case 32: return KYSAMPLE_S32BE;
    }
    return KYSAMPLE_UNKNOWN;
  case WAVE_FORMAT_EXTENSIBLE: {
    if (!IsPcmSubFormat(f)) return KYSAMPLE_UNKNOWN;
    const auto *x = reinterpret_cast<const WAVEFORMATEXTENSIBLE *>(f);
    switch (bits) {
    case 8: return KYSAMPLE_U8;
    case 16: return KYSAMPLE_S16;
    case 24: return KYSAMPLE_S24;
    case 32: {
      const WORD valid = x->Samples.wValidBitsPerSample;
      return valid == 24 || valid == 32 ? KYSAMPLE_S32 : KYSAMPLE_UNKNOWN;
    }
    }
    return KYSAMPLE_UNKNOWN;
  }
  default:
    return KYSAMPLE_UNKNOWN;
  }
}

LONG BytesOf(KYSAMPLETYPE t) {
  const TypeInfo *i = FindType(t);
  return i ? i->bytes : 0;
}

} // namespace ky::audio

using namespace ky::audio;

extern "C" KYSAMPLETYPE WINAPI KyAudio_GetSampleType(const WAVEFORMATEX *format) {
  return Classify(format);
}

extern "C" LONG WINAPI KyAudio_BitsFromSampleType(KYSAMPLETYPE type) {
  const TypeInfo *i = FindType(type);
  return i ? i->bits : 0;
}

extern "C" LONG WINAPI KyAudio_BytesFromSampleType(KYSAMPLETYPE type) { return BytesOf(type); }

extern "C" LONG WINAPI KyAudio_FormatTagFromSampleType(KYSAMPLETYPE type) {
  const TypeInfo *i = FindType(type);
  return i ? i->tag : 0;
}

extern "C" double WINAPI KyAudio_GetNormalizeFactor(LONG bits) {
  switch (bits) {
  case 8: return 128.0;
  case 16: return 32768.0;
  case 24: return 8388608.0;
  case 32: return 2147483648.0;
  default: return 1.0;
  }
}

extern "C" BOOL WINAPI KyAudio_FixBadWfx(WAVEFORMATEX *format) {
  if (!format || format->wFormatTag != WAVE_FORMAT_PCM) return FALSE;
  BOOL changed = FALSE;
  // Some writers store the 20 significant bits of a 3-byte container as the sample size.
  if (format->wBitsPerSample == 20) {
    format->wBitsPerSample = 24;
    changed = TRUE;
  }
  // nAvgBytesPerSec is deliberately left alone: readers that trust it keep their answer.
  const WORD align = static_cast<WORD>((format->wBitsPerSample / 8) * format->nChannels);
  if (format->nBlockAlign != align) {
    format->nBlockAlign = align;
    changed = TRUE;
  }
  return changed;
}

extern "C" BOOL WINAPI KyAudio_IsEqualFormat(const WAVEFORMATEX *a, const WAVEFORMATEX *b) {
  if (!a || !b) return FALSE;
  return a->nChannels == b->nChannels && a->nSamplesPerSec == b->nSamplesPerSec &&
         a->wBitsPerSample == b->wBitsPerSample && a->wFormatTag == b->wFormatTag;
}
