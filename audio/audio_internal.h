// Private declarations shared by the audio sources: classification helpers and the sample
// access primitives that the converters, mixers and channel operators are built from.
#pragma once

#include <windows.h>
#include <stdint.h>
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

// Calls f(dst channel start, src channel start, source channel index) for every source
// channel i whose map entry names a destination channel (0 <= map[i] < dst channels).
template <class F>
void ForEachMappedChannel(const WAVEFORMATEX *df, void *dst, const WAVEFORMATEX *sf,
                          const void *src, const LONG *map, F f) {
  const LONG dch = df->nChannels, sch = sf->nChannels;
  const LONG db = BytesOf(Classify(df)), sb = BytesOf(Classify(sf));
  for (LONG i = 0; i < sch; ++i) {
    const LONG m = map[i];
    if (m < 0 || m >= dch) continue; // this source channel is not routed
    f(static_cast<uint8_t *>(dst) + m * db, static_cast<const uint8_t *>(src) + i * sb, i);
  }
}

// Advances a cooked envelope by one frame.
inline void AdvanceEnvelope(tKYASRCOOKED *c) {
  c->value += c->step;
  c->step += c->stepChange;
  if (--c->remaining <= 0) ReCookAtSegmentEnd(c);
}

} // namespace ky::audio
