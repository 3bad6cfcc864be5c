// Private declarations shared by the audio sources: classification helpers and the sample
// access primitives that the converters, mixers and channel operators are built from.
#pragma once

#include <windows.h>
#include "ky_audio.h"

namespace ky::audio {

KYSAMPLETYPE Classify(const WAVEFORMATEX *f); // 0 for null or unsupported
bool IsPcmSubFormat(const WAVEFORMATEX *f);   // tag 0xFFFE header with the PCM sub-format
LONG BytesOf(KYSAMPLETYPE t);                 // bytes per sample, 0 for unknown types

} // namespace ky::audio
