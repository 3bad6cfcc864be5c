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

namespace ky::audio {

// Envelopes (envelope.cpp).
void ReCook(tKYASRCOOKED *c, LONGLONG position);
void ReCookAtSegmentEnd(tKYASRCOOKED *c); // when `remaining` has run out
double ScaleOfType(KYSAMPLETYPE t);       // the level scale of a cooked envelope

// Advances a cooked envelope by one frame.
inline void AdvanceEnvelope(tKYASRCOOKED *c) {
  c->value += c->step;
  c->step += c->stepChange;
  if (--c->remaining <= 0) ReCookAtSegmentEnd(c);
}

} // namespace ky::audio
