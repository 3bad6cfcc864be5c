// The timer service: millisecond time from the performance counter. The module frame starts
// it at attach (the counter's frequency is read once, the base taken when start-up is done)
// and releases it at detach. Timer records (tKYTIMER) measure from their own reference.
#include "ky_internal.h"
#include "ky_syncout.h"

namespace ky {

namespace {
LARGE_INTEGER g_frequency;
LARGE_INTEGER g_base;

LONGLONG Counter() {
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return now.QuadPart;
}

LONGLONG ReferenceOf(const tKYTIMER *t) {
  return (t && t->reference) ? t->reference : g_base.QuadPart;
}

DWORD TicksToMs(LONGLONG ticks) {
  if (ticks < 0) return 0;  // a reference taken on another processor a moment later
  return static_cast<DWORD>(ticks / g_frequency.QuadPart * 1000 +
                            ticks % g_frequency.QuadPart * 1000 / g_frequency.QuadPart);
}
} // namespace

void TimerStartup() {
  if (!QueryPerformanceFrequency(&g_frequency) || g_frequency.QuadPart <= 0)
    g_frequency.QuadPart = 1000;
}

void TimerFinishStartup() { g_base.QuadPart = Counter(); }

void TimerRelease() {}

LONGLONG TimerBase() { return g_base.QuadPart; }

// Milliseconds since the service started.
DWORD TimerNow() { return TicksToMs(Counter() - g_base.QuadPart); }

} // namespace ky

extern "C" void WINAPI KyResetMillisecEx(tKYTIMER *t) {
  if (!t) return;
  t->reference = ky::Counter();
}

extern "C" DWORD WINAPI KyGetMillisecEx(const tKYTIMER *t) {
  return ky::TicksToMs(ky::Counter() - ky::ReferenceOf(t));
}

extern "C" DWORD WINAPI KyDeltaMillisecEx(tKYTIMER *t) {
  if (!t) return KyGetMillisecEx(nullptr);
  const LONGLONG ref = ky::ReferenceOf(t);
  const DWORD ms = ky::TicksToMs(ky::Counter() - ref);
  // Move the reference by exactly the whole milliseconds reported; the fraction stays.
  const LONGLONG f = ky::g_frequency.QuadPart;
  t->reference = ref + static_cast<LONGLONG>(ms) / 1000 * f + static_cast<LONGLONG>(ms) % 1000 * f / 1000;
  return ms;
}
