// Attack-sustain-release gain envelopes: cooking a description into per-frame steps for
// one sample type, re-cooking at a frame position, and the advance the envelope mixers use.
#include "audio_internal.h"

#include <math.h>

namespace ky::audio {

namespace {

constexpr LONGLONG kEndless = 0x7FFFFFFFFFFFFFFFLL;

// Frames of a 100-ns duration at `rate`, rounded half up and kept inside [0, most].
LONGLONG FramesOf(LONGLONG time, DWORD rate, LONGLONG most) {
  const double f = double(time) * 1e-7 * double(rate) + 0.5;
  if (!(f > 0.0)) return 0;               // negative durations and NaN: nothing
  if (f >= double(most)) return most;     // out of range for the counter
  return LONGLONG(f);
}

// One segment from level a to level b over L frames, entered at offset t (0 <= t < L).
void CookSegment(tKYASRCOOKED *c, double a, double b, LONG curve, LONGLONG length,
                 LONGLONG offset) {
  const double L = double(length);
  double d = (b - a) / L, base = a, s = 1.0, t = double(offset);
  if (curve < 0) {
    // Mirror the segment so that the same quadratic starts steep and ends flat.
    t = L - t;
    base = b;
    d = -d;
    s = -1.0;
  }
  double k;
  if (curve > 1 || curve < -1) {
    k = (t + s) * (t + s) - t * t;
    t = t * t;
    d = d / L;
    c->stepChange = 2.0 * d;
  } else {
    k = s;
    c->stepChange = 0.0;
  }
  c->remaining = length - offset;
  c->value = base + d * t;
  c->step = d * k;
}

} // namespace

void ReCook(tKYASRCOOKED *c, LONGLONG position) {
  c->position = position;
  LONGLONG t = position < 0 ? 0 : position;
  const LONGLONG attack = c->attackFrames, release = c->releaseFrames;
  const LONGLONG sustain = c->sustainFrames < 0 ? 0 : c->sustainFrames;
  if (t < attack) {
    CookSegment(c, c->startLevel, c->sustainLevel, c->attackCurve, attack, t);
    return;
  }
  t -= attack;
  if (t < sustain) {
    c->remaining = sustain - t;
    c->value = c->sustainLevel;
    c->step = c->stepChange = 0.0;
    return;
  }
  t -= sustain;
  if (t >= release) {
    // Past the release the end level holds forever: the remaining count never runs out.
    c->remaining = kEndless;
    c->value = c->endLevel;
    c->step = c->stepChange = 0.0;
    return;
  }
  CookSegment(c, c->sustainLevel, c->endLevel, c->releaseCurve, release, t);
}

// The frame at which the segment entered by the last re-cook ends: the first segment
// boundary after the re-cook position.
void ReCookAtSegmentEnd(tKYASRCOOKED *c) {
  const LONGLONG p = c->position < 0 ? 0 : c->position;
  const LONGLONG b1 = c->attackFrames;
  const LONGLONG b2 = b1 + (c->sustainFrames < 0 ? 0 : c->sustainFrames);
  const LONGLONG b3 = b2 + c->releaseFrames;
  if (p < b1)
    ReCook(c, b1);
  else if (p < b2)
    ReCook(c, b2);
  else if (p < b3)
    ReCook(c, b3);
  else
    ReCook(c, p); // already in the endless tail
}

double ScaleOfType(KYSAMPLETYPE t) {
  switch (t) {
  case KYSAMPLE_U8: return 1.0 / 128.0;
  case KYSAMPLE_S16: return 1.0 / 32768.0;
  case KYSAMPLE_S24: return 1.0 / 8388608.0;
  case KYSAMPLE_S32: return 1.0 / 2147483648.0;
  default: return 1.0; // the mixers scale the remaining integer types themselves
  }
}

} // namespace ky::audio

using namespace ky::audio;

extern "C" HRESULT WINAPI KyAudio_ASRCook(const WAVEFORMATEX *format, const tKYASR *asr,
                                          tKYASRCOOKED *cooked, LONGLONG position,
                                          LONGLONG totalLength, double gain) {
  if (!format || !asr || !cooked) return E_POINTER;
  const DWORD rate = format->nSamplesPerSec;
  LONGLONG attack = FramesOf(asr->attackTime, rate, 0x7FFFFFFF);
  LONGLONG release = FramesOf(asr->releaseTime, rate, 0x7FFFFFFF);
  const LONGLONG total = FramesOf(totalLength, rate, kEndless / 4);
  LONGLONG sustain = total - (attack + release);
  if (sustain < 0) {
    // Too short for both ramps: split the whole length, the odd frame to the attack.
    sustain = 0;
    release = total / 2;
    attack = total - release;
  }
  cooked->attackCurve = asr->attackCurve;
  cooked->releaseCurve = asr->releaseCurve;
  cooked->attackFrames = DWORD(attack);
  cooked->releaseFrames = DWORD(release);
  cooked->sustainFrames = sustain;
  const double scale = gain * ScaleOfType(Classify(format));
  cooked->startLevel = double(asr->startLevel) * scale;
  cooked->sustainLevel = double(asr->sustainLevel) * scale;
  cooked->endLevel = double(asr->endLevel) * scale;
  ReCook(cooked, position);
  return S_OK;
}

extern "C" HRESULT WINAPI KyAudio_ASRReCook(tKYASRCOOKED *cooked, LONGLONG position) {
  if (!cooked) return E_POINTER;
  ReCook(cooked, position);
  return S_OK;
}
