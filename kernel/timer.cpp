// The timer service: millisecond time from the performance counter. The module frame starts
// it at attach (the counter's frequency is read once) and releases it at detach.
#include "ky_internal.h"

namespace ky {

namespace {
LARGE_INTEGER g_frequency;
LARGE_INTEGER g_base;
} // namespace

void TimerStartup() {
  if (!QueryPerformanceFrequency(&g_frequency) || g_frequency.QuadPart <= 0)
    g_frequency.QuadPart = 1000;
}

void TimerFinishStartup() { QueryPerformanceCounter(&g_base); }

void TimerRelease() {}

// Milliseconds since the service started.
DWORD TimerNow() {
  LARGE_INTEGER now;
  QueryPerformanceCounter(&now);
  return static_cast<DWORD>((now.QuadPart - g_base.QuadPart) * 1000 / g_frequency.QuadPart);
}

} // namespace ky
