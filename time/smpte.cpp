// SMPTE time code: frame counts, arithmetic, stepping, media time and text.
#include "ky_internal.h"
#include "ky_time.h"
#include <climits>
#include <cmath>

namespace {

constexpr ULONG kDay30 = 2592000;
constexpr ULONG kDay25 = 2160000;
constexpr ULONG kDay24 = 2073600;
// One frame short of a real drop-frame day (2589408); kept because every stored type-2
// value has been wrapped with it.
constexpr ULONG kDayDrop = 2589407;
constexpr ULONG kDropFramesPerHour = 108000;
constexpr ULONG kDropFramesPerMinute = 1800;
constexpr double kRate2997 = 29.97002997002997;

// Labels counted per second: 25 and 24 for their types, 30 for every other type.
ULONG FramesPerSecond(LONG type) {
  return type == KYSMPTE_TYPE_25 ? 25 : type == KYSMPTE_TYPE_24 ? 24 : 30;
}

// Frames of a day; a type outside 1-5 wraps like drop-frame.
ULONG DayFrames(LONG type) {
  switch (type) {
  case KYSMPTE_TYPE_30:
  case KYSMPTE_TYPE_2997: return kDay30;
  case KYSMPTE_TYPE_25: return kDay25;
  case KYSMPTE_TYPE_24: return kDay24;
  default: return kDayDrop;
  }
}

// Rate of real time, used between frame counts and media time.
double RealRate(LONG type) {
  switch (type) {
  case KYSMPTE_TYPE_2997_DROP:
  case KYSMPTE_TYPE_2997: return kRate2997;
  case KYSMPTE_TYPE_25: return 25.0;
  case KYSMPTE_TYPE_24: return 24.0;
  default: return 30.0;
  }
}

bool ConvertsAsDropFrame(LONG type) {
  return type != KYSMPTE_TYPE_30 && type != KYSMPTE_TYPE_2997 && type != KYSMPTE_TYPE_25 &&
         type != KYSMPTE_TYPE_24;
}

// Frames 0 and 1 of second 0 do not exist in a drop-frame minute that is not a tenth one.
bool IsMissingDropLabel(ULONG minutes, ULONG seconds, ULONG frames) {
  return frames < 2 && seconds == 0 && minutes % 10 != 0;
}

// Labels dropped before label count v (30 labels per second).
ULONG DroppedBefore(ULONG v) {
  ULONG dropped = (v / kDropFramesPerHour) * 108;
  ULONG m = (v % kDropFramesPerHour) / kDropFramesPerMinute;
  if (m != 0) dropped += 2 * (m - m / 10);
  return dropped;
}

ULONG FrameCount(const _smpteval &tc) {
  if (tc.type < KYSMPTE_TYPE_30 || tc.type > KYSMPTE_TYPE_2997) return 0;
  ULONG fps = FramesPerSecond(tc.type);
  ULONG frames = tc.frames;
  ULONG dropped = 0;
  if (tc.type == KYSMPTE_TYPE_2997_DROP) {
    if (IsMissingDropLabel(tc.minutes, tc.seconds, frames)) frames = 2;
    dropped = tc.hours * 108;
    if (tc.minutes != 0) dropped += 2 * (tc.minutes - tc.minutes / 10);
  }
  return ((tc.hours * 60 + tc.minutes) * 60 + tc.seconds) * fps + frames - dropped;
}

void SetFromFrameCount(_smpteval &tc, ULONG count) {
  ULONG day = DayFrames(tc.type);
  ULONG fps = FramesPerSecond(tc.type);
  bool drop = ConvertsAsDropFrame(tc.type);
  ULONG v = count % day;
  if (drop) {
    // The label count is the frame count plus the labels dropped before it; the dropped
    // count depends on the label count, so repeat until it settles (it only grows).
    ULONG base = v, dropped = 0;
    for (;;) {
      ULONG next = DroppedBefore(v);
      v = base + next;
      if (next == dropped) break;
      dropped = next;
    }
    v %= day;
  }
  ULONG perMinute = fps * 60, perHour = perMinute * 60;
  tc.hours = v / perHour;
  v %= perHour;
  tc.minutes = v / perMinute;
  v %= perMinute;
  tc.seconds = v / fps;
  tc.frames = v % fps;
  // Only a real drop-frame value moves off a missing label; other types converted as drop
  // frame keep the label the wrap gives them.
  if (tc.type == KYSMPTE_TYPE_2997_DROP && IsMissingDropLabel(tc.minutes, tc.seconds, tc.frames))
    tc.frames = 2;
}

// Frame count d reduced into the day: negative values count back from its end, so a whole
// number of days back gives the day itself (which the conversion wraps to 0).
ULONG WrapIntoDay(LONGLONG d, ULONG day) {
  if (d >= 0) return static_cast<ULONG>(d % day);
  return day - static_cast<ULONG>((-d) % day);
}

// Media time from a double, truncated toward zero; out-of-range values saturate.
LONGLONG TruncateMediaTime(double t) {
  if (std::isnan(t)) return 0;
  if (t >= 9223372036854775807.0) return LLONG_MAX;
  if (t <= -9223372036854775808.0) return LLONG_MIN;
  return static_cast<LONGLONG>(t);
}

LONGLONG CountToMediaTime(double frames, double rate) {
  return TruncateMediaTime(frames / rate * 1e7 + 0.999);
}

bool IsBlank(char c) { return c == ' ' || c == '\t'; }
bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// Reads "[[[hh:]mm:]ss<sep>]ff" surrounded by blanks into tc; false leaves tc untouched.
bool ParseTimecode(const char *p, _smpteval &tc) {
  ULONG field[4];
  char sep[4] = {};
  int n = 0;
  while (IsBlank(*p)) ++p;
  for (;;) {
    if (n == 4 || !IsDigit(*p)) return false;
    ULONG value = static_cast<ULONG>(*p++ - '0');
    if (IsDigit(*p)) value = value * 10 + static_cast<ULONG>(*p++ - '0');
    if (IsDigit(*p)) return false;
    field[n++] = value;
    if (*p != ':' && *p != ';' && *p != '.') break;
    sep[n - 1] = *p++;
  }
  while (IsBlank(*p)) ++p;
  if (*p) return false;
  // Only the separator before the frames may be a drop-frame one.
  for (int i = 0; i < n - 2; ++i)
    if (sep[i] != ':') return false;

  ULONG value[4] = {0, 0, 0, 0}; // hours, minutes, seconds, frames
  for (int i = 0; i < n; ++i) value[4 - n + i] = field[i];
  if (value[0] > 23 || value[1] > 59 || value[2] > 59 || value[3] >= FramesPerSecond(tc.type))
    return false;
  tc.hours = value[0];
  tc.minutes = value[1];
  tc.seconds = value[2];
  tc.frames = value[3];
  if (tc.type == KYSMPTE_TYPE_2997_DROP && IsMissingDropLabel(tc.minutes, tc.seconds, tc.frames))
    tc.frames = 2;
  return true;
}

} // namespace

extern "C" ULONG WINAPI KYSMPTE_SMPTEToFrameCount(const _smpteval *tc) {
  return ky::Guard<ULONG>(0, [&] { return tc ? FrameCount(*tc) : 0; });
}

extern "C" HRESULT WINAPI KYSMPTE_FrameCountToSMPTE(_smpteval *tc, ULONG frameCount) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!tc) return E_POINTER;
    SetFromFrameCount(*tc, frameCount);
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KYSMPTE_AddSMPTE(_smpteval *a, const _smpteval *b) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!a || !b) return E_POINTER;
    ULONGLONG sum = static_cast<ULONGLONG>(FrameCount(*a)) + FrameCount(*b);
    SetFromFrameCount(*a, static_cast<ULONG>(sum % DayFrames(a->type)));
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KYSMPTE_SubtractSMPTE(_smpteval *a, const _smpteval *b) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!a || !b) return E_POINTER;
    LONGLONG d = static_cast<LONGLONG>(FrameCount(*a)) - FrameCount(*b);
    SetFromFrameCount(*a, WrapIntoDay(d, DayFrames(a->type)));
    return S_OK;
  });
}

extern "C" LONG WINAPI KYSMPTE_SMPTECompare(const _smpteval *a, const _smpteval *b) {
  return ky::Guard<LONG>(0, [&]() -> LONG {
    if (!a || !b) return a ? 1 : b ? -1 : 0;
    const ULONG fa[4] = {a->hours, a->minutes, a->seconds, a->frames};
    const ULONG fb[4] = {b->hours, b->minutes, b->seconds, b->frames};
    for (int i = 0; i < 4; ++i)
      if (fa[i] != fb[i]) return fa[i] > fb[i] ? 1 : -1;
    return 0;
  });
}

extern "C" HRESULT WINAPI KYSMPTE_IncrementByFrame(_smpteval *tc, LONG /*reserved*/) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!tc) return E_POINTER;
    if (++tc->frames < FramesPerSecond(tc->type)) return S_OK;
    tc->frames = 0;
    if (++tc->seconds < 60) return S_OK;
    tc->seconds = 0;
    ++tc->minutes;
    // Type 5 skips the drop-frame labels as well: values stepped this way have always
    // carried that gap.
    if ((tc->type == KYSMPTE_TYPE_2997_DROP || tc->type == KYSMPTE_TYPE_2997) &&
        tc->minutes % 10 != 0)
      tc->frames += 2;
    if (tc->minutes < 60) return S_OK;
    tc->minutes = 0;
    tc->hours = tc->hours % 32 + 1;
    if (tc->hours > 23) tc->hours = 0;
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KYSMPTE_DeccrementByFrame(_smpteval *tc, LONG /*reserved*/) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!tc) return E_POINTER;
    if (tc->frames-- != 0) return S_OK;
    tc->frames = FramesPerSecond(tc->type) - 1;
    if (tc->seconds-- != 0) return S_OK;
    tc->seconds = 59;
    if (tc->minutes-- == 0) {
      tc->minutes = 59;
      LONG hours = static_cast<LONG>(tc->hours % 32) - 1;
      tc->hours = hours < 0 ? 23 : static_cast<ULONG>(hours);
    }
    // No skipping on the way down: the frames move up by the two dropped labels instead.
    if ((tc->type == KYSMPTE_TYPE_2997_DROP || tc->type == KYSMPTE_TYPE_2997) &&
        tc->minutes % 10 != 0)
      tc->frames += 2;
    return S_OK;
  });
}

extern "C" HRESULT WINAPI KYSMPTE_NanoToSMPTE(LONGLONG mediaTime, _smpteval *tc) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!tc) return E_POINTER;
    double frames = static_cast<double>(mediaTime) * RealRate(tc->type) * 1e-7 + 0.000005;
    SetFromFrameCount(*tc, WrapIntoDay(static_cast<LONGLONG>(frames), DayFrames(tc->type)));
    return S_OK;
  });
}

extern "C" LONGLONG WINAPI KYSMPTE_SMPTEToNanos(const _smpteval *tc) {
  return ky::Guard<LONGLONG>(0, [&]() -> LONGLONG {
    if (!tc) return 0;
    return CountToMediaTime(static_cast<double>(FrameCount(*tc)), RealRate(tc->type));
  });
}

LONGLONG WINAPI KYSMPTE_SmpteLikeToNanos(double rate, const _smpteval *tc) {
  return ky::Guard<LONGLONG>(0, [&]() -> LONGLONG {
    if (!tc || !std::isfinite(rate) || rate <= 0) return 0;
    double t = (static_cast<double>(tc->hours) * 60 + tc->minutes) * 60 + tc->seconds;
    return CountToMediaTime(t * rate + tc->frames, rate);
  });
}

// The same function under its plain stdcall name for C clients (the C++ one above keeps its
// decorated export): the assembler label gives it the symbol of a C stdcall function.
extern "C" LONGLONG WINAPI KYSMPTE_SmpteLikeToNanosPlain(double rate, const _smpteval *tc)
    __asm__("_KYSMPTE_SmpteLikeToNanos@12");
extern "C" LONGLONG WINAPI KYSMPTE_SmpteLikeToNanosPlain(double rate, const _smpteval *tc) {
  return KYSMPTE_SmpteLikeToNanos(rate, tc);
}

extern "C" HRESULT WINAPI KYSMPTE_TextToSMPTE(const char *text, _smpteval *tc) {
  return ky::GuardHr([&]() -> HRESULT {
    if (!text || !tc) return E_POINTER;
    return ParseTimecode(text, *tc) ? S_OK : E_INVALIDARG;
  });
}
