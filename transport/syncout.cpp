// MIDI time-code output: full-frame and quarter-frame messages paced by a periodic multimedia
// timer from the transport's position.
#include "ky_internal.h"
#include "ky_syncout.h"

#include <algorithm>

namespace {

// Test seams: where no MIDI port exists the messages go to a sink instead of winmm, and the
// handle's clock can be replaced by one the test advances. Set while no timer runs.
typedef void(WINAPI *MidiSink)(void *ctx, DWORD shortMsg, const BYTE *data, DWORD length);
typedef DWORD(WINAPI *SyncClock)(void *ctx);
MidiSink g_sink;
void *g_sinkCtx;
SyncClock g_clock;
void *g_clockCtx;
BYTE g_sinkPort;  // its address is the port handle while a sink is installed

// ---- the port: winmm, or the sink ----

MMRESULT PortOpen(HMIDIOUT *out, UINT device) {
  if (g_sink) {
    *out = reinterpret_cast<HMIDIOUT>(&g_sinkPort);
    return MMSYSERR_NOERROR;
  }
  return midiOutOpen(out, device, 0, 0, CALLBACK_NULL);
}

void PortShort(HMIDIOUT port, DWORD msg) {
  if (g_sink) g_sink(g_sinkCtx, msg, nullptr, 0);
  else midiOutShortMsg(port, msg);
}

void PortPrepare(HMIDIOUT port, MIDIHDR *hdr) {
  if (g_sink) hdr->dwFlags |= MHDR_PREPARED | MHDR_DONE;
  else midiOutPrepareHeader(port, hdr, sizeof *hdr);
}

void PortUnprepare(HMIDIOUT port, MIDIHDR *hdr) {
  if (g_sink) hdr->dwFlags &= ~MHDR_PREPARED;
  else midiOutUnprepareHeader(port, hdr, sizeof *hdr);
}

void PortLong(HMIDIOUT port, MIDIHDR *hdr) {
  if (g_sink) {
    g_sink(g_sinkCtx, 0, reinterpret_cast<const BYTE *>(hdr->lpData), hdr->dwBufferLength);
    return;
  }
  midiOutLongMsg(port, hdr, sizeof *hdr);
}

void PortClose(HMIDIOUT port) {
  if (g_sink) return;
  midiOutReset(port);
  midiOutClose(port);
}

// ---- time code ----

DWORD Now(HKYSYNCOUT h) {
  return g_clock ? g_clock(g_clockCtx) : KyGetMillisecEx(&h->timer);
}

// Rate bits of the full-frame hours byte; type 5 deliberately announces 24 fps (bits 0).
BYTE FullFrameRateBits(LONG type) {
  switch (type) {
  case 1: return 0x60;
  case 2: return 0x40;
  case 3: return 0x20;
  default: return 0x00;
  }
}

DWORD QuarterFrameData(HKYSYNCOUT h) {
  const LONG n = h->piece;
  if (n < 0 || n > 7) return 0;
  DWORD nibble = 0;
  switch (n) {
  case 0: nibble = h->frames & 0xF; break;
  case 1: nibble = (h->frames >> 4) & 0xF; break;
  case 2: nibble = h->seconds & 0xF; break;
  case 3: nibble = (h->seconds >> 4) & 0xF; break;
  case 4: nibble = h->minutes & 0xF; break;
  case 5: nibble = (h->minutes >> 4) & 0xF; break;
  case 6: nibble = h->hours & 0xF; break;
  case 7: nibble = ((h->hours >> 4) | (FullFrameRateBits(h->rateType) >> 4)) & 0xF; break;
  }
  return static_cast<DWORD>(n) << 4 | nibble;
}

// Advances the time code by k frames (k is at most a second's worth).
void Advance(HKYSYNCOUT h, LONG k) {
  h->frames += k;
  bool newSecond = false;
  if (h->rateType == 2) {
    if (h->frames > 29) {
      h->frames -= 30;
      newSecond = true;
    }
  } else {
    const LONG rate = h->rateType == 3 ? 25 : h->rateType == 4 ? 24 : 30;
    if (h->frames >= rate) {
      h->frames -= rate;
      newSecond = true;
    }
  }
  if (!newSecond) return;
  if (++h->seconds > 59) {
    h->seconds = 0;
    ++h->minutes;
    // Drop-frame: labels 0 and 1 do not exist at the start of minutes not divisible by ten.
    if (h->rateType == 2 && h->minutes % 10 != 0) h->frames += 2;
    if (h->minutes > 59) {
      h->minutes = 0;
      if (++h->hours > 23) h->hours = 0;
    }
  }
}

void SendFullFrame(HKYSYNCOUT h) {
  if (!h->midiOut) return;
  MIDIHDR *hdr = &h->header[0];
  // The previous full-frame message may still be on its way; its buffer is reused.
  for (int i = 0; i < 200 && (hdr->dwFlags & MHDR_INQUEUE); ++i) Sleep(1);
  BYTE *m = h->message[0];
  const BYTE msg[10] = {0xF0, 0x7F, 0x7F, 0x01, 0x01,
                        static_cast<BYTE>(h->hours | FullFrameRateBits(h->rateType)),
                        static_cast<BYTE>(h->minutes), static_cast<BYTE>(h->seconds),
                        static_cast<BYTE>(h->frames), 0xF7};
  std::copy(msg, msg + 10, m);
  hdr->dwBufferLength = 10;
  PortLong(h->midiOut, hdr);
}

// Moves the position on from the clock: free-run always grows, otherwise it grows unless held
// or the last update is older than the gap limit; it never passes the limit or moves back.
void UpdateFromClock(HKYSYNCOUT h) {
  const DWORD now = Now(h);
  const DWORD elapsed = now - h->lastUpdate;
  DWORD candidate = h->position;
  if (h->flags & KYSYNCOUT_FREERUN) {
    h->lastUpdate = now;
    candidate += elapsed;
  } else if (!(h->flags & KYSYNCOUT_HOLD)) {
    h->lastUpdate = now;
    if (!(h->gapLimit != 0 && elapsed >= h->gapLimit)) candidate += elapsed;
  }
  const LONG next = std::min(static_cast<LONG>(candidate), static_cast<LONG>(h->positionLimit));
  if (next > static_cast<LONG>(h->position)) h->position = static_cast<DWORD>(next);
}

// Sends the quarter frames due since the last computation; every eighth piece moves the time
// code on by two frames.
void Pace(HKYSYNCOUT h) {
  const DWORD p = h->position;
  if (p < h->lastQuarterTime || h->rateDen == 0) return;
  const ULONGLONG sum =
      static_cast<ULONGLONG>(p - h->lastQuarterTime) * h->rateNum + h->remainder;
  const ULONGLONG count = sum / h->rateDen;
  h->remainder = static_cast<DWORD>(sum % h->rateDen);
  h->lastQuarterTime = p;
  for (ULONGLONG i = 0; i < count; ++i) {
    if (h->midiOut) PortShort(h->midiOut, 0xF1 | QuarterFrameData(h) << 8);
    // An index set above 7 sends one empty piece and then starts over at 0.
    if (++h->piece >= 8) {
      h->piece = 0;
      Advance(h, 2);
    }
  }
}

// One tick of the stream; overlapping ticks do nothing.
void Tick(HKYSYNCOUT h) {
  if (InterlockedIncrement(&h->reentry) == 1) {
    UpdateFromClock(h);
    Pace(h);
  }
  InterlockedDecrement(&h->reentry);
}

void CALLBACK TimerCallback(UINT, UINT, DWORD_PTR user, DWORD_PTR, DWORD_PTR) {
  auto h = reinterpret_cast<HKYSYNCOUT>(user);
  if (!h->priorityRaised) {
    SetThreadPriority(GetCurrentThread(), THREAD_PRIORITY_TIME_CRITICAL);
    h->priorityRaised = 1;
  }
  ky::Guard<int>(0, [&] {
    Tick(h);
    return 0;
  });
}

void StopTimer(HKYSYNCOUT h) {
  if (h->timerId) {
    timeKillEvent(h->timerId);
    timeEndPeriod(h->resolution);
    // A callback already running finishes before the handle may go away.
    for (int i = 0; i < 1000 && h->reentry > 0; ++i) Sleep(1);
  }
  h->timerId = 0;
  h->priorityRaised = 0;
}

} // namespace

// The companion word of every handle stays 0 because the sync-output companion always
// declines the connection, so every operation below runs the library's own output.

extern "C" HKYSYNCOUT WINAPI syncoutAllocHandle(void) {
  return ky::Guard<HKYSYNCOUT>(nullptr, [] {
    HGLOBAL mem = GlobalAlloc(GMEM_MOVEABLE | GMEM_ZEROINIT, sizeof(tKYSYNCOUT));
    if (!mem) return static_cast<HKYSYNCOUT>(nullptr);
    auto h = static_cast<HKYSYNCOUT>(GlobalLock(mem));
    if (!h) {
      GlobalFree(mem);
      return static_cast<HKYSYNCOUT>(nullptr);
    }
    h->timerBase = ky::TimerBase();
    return h;
  });
}

extern "C" void WINAPI syncoutFreeHandle(HKYSYNCOUT h) {
  ky::Guard<int>(0, [&] {
    if (!h) return 0;
    StopTimer(h);
    HGLOBAL mem = GlobalHandle(h);
    GlobalUnlock(mem);
    GlobalFree(mem);
    return 0;
  });
}

extern "C" MMRESULT WINAPI syncoutOpen(HKYSYNCOUT h, UINT device) {
  return ky::Guard<MMRESULT>(MMSYSERR_ERROR, [&]() -> MMRESULT {
    if (!h) return MMSYSERR_INVALHANDLE;
    if (h->midiOut) return MMSYSERR_NOERROR;
    HMIDIOUT port = nullptr;
    const MMRESULT r = PortOpen(&port, device);
    if (r != MMSYSERR_NOERROR) return r;
    h->midiOut = port;
    for (int i = 0; i < 2; ++i) {
      h->header[i] = MIDIHDR{};
      h->header[i].lpData = reinterpret_cast<LPSTR>(h->message[i]);
      h->header[i].dwBufferLength = sizeof h->message[i];
      PortPrepare(port, &h->header[i]);
    }
    return MMSYSERR_NOERROR;
  });
}

extern "C" MMRESULT WINAPI syncoutClose(HKYSYNCOUT h) {
  return ky::Guard<MMRESULT>(MMSYSERR_NOERROR, [&]() -> MMRESULT {
    if (!h) return MMSYSERR_NOERROR;
    StopTimer(h);
    if (!h->midiOut) return MMSYSERR_NOERROR;
    SendFullFrame(h);
    for (int i = 0; i < 2; ++i) PortUnprepare(h->midiOut, &h->header[i]);
    PortClose(h->midiOut);
    h->midiOut = nullptr;
    return MMSYSERR_NOERROR;
  });
}

extern "C" void WINAPI syncoutSetParam(HKYSYNCOUT h, LONG number, LONG value) {
  if (!h) return;
  switch (number) {
  case KYSYNCOUT_PARAM_FREERUN:
    h->flags = value ? (h->flags | KYSYNCOUT_FREERUN) : (h->flags & ~KYSYNCOUT_FREERUN);
    break;
  case KYSYNCOUT_PARAM_RESOLUTION: h->resolution = static_cast<UINT>(value); break;
  case KYSYNCOUT_PARAM_PERIOD: h->period = static_cast<UINT>(value); break;
  case KYSYNCOUT_PARAM_RATETYPE: h->rateType = value; break;
  case KYSYNCOUT_PARAM_HOURS: h->hours = value; break;
  case KYSYNCOUT_PARAM_MINUTES: h->minutes = value; break;
  case KYSYNCOUT_PARAM_SECONDS: h->seconds = value; break;
  case KYSYNCOUT_PARAM_FRAMES: h->frames = value; break;
  case KYSYNCOUT_PARAM_PIECE: h->piece = value; break;
  case KYSYNCOUT_PARAM_POSLIMIT: h->positionLimit = static_cast<DWORD>(value); break;
  case KYSYNCOUT_PARAM_HOLD:
    h->flags = value ? (h->flags | KYSYNCOUT_HOLD) : (h->flags & ~KYSYNCOUT_HOLD);
    break;
  case KYSYNCOUT_PARAM_GAPLIMIT: h->gapLimit = static_cast<DWORD>(value); break;
  default: break;  // 9 and 13 upward
  }
}

extern "C" LONG WINAPI syncoutStartSmpte(HKYSYNCOUT h, DWORD positionLow, LONG positionHigh,
                                         BOOL trueRate) {
  return ky::Guard<LONG>(-1, [&]() -> LONG {
    if (!h) return -1;
    StopTimer(h);
    const LONGLONG position =
        static_cast<LONGLONG>(static_cast<ULONGLONG>(static_cast<ULONG>(positionHigh)) << 32 |
                              positionLow);
    KyResetMillisecEx(&h->timer);
    h->position = static_cast<DWORD>(position / 10000);
    h->lastUpdate = Now(h);
    switch (h->rateType) {
    case 2: h->rateNum = 2997, h->rateDen = 25000; break;
    case 3: h->rateNum = 1, h->rateDen = 10; break;
    case 4: h->rateNum = 12, h->rateDen = 125; break;
    default:
      if (trueRate) h->rateNum = 3, h->rateDen = 25;
      else h->rateNum = 3000, h->rateDen = 25025;
      break;
    }
    h->lastQuarterTime = h->position;
    h->remainder = 0;
    h->piece = 0;
    h->reentry = 0;
    Tick(h);
    const UINT id = timeSetEvent(h->period, h->resolution, TimerCallback,
                                 reinterpret_cast<DWORD_PTR>(h),
                                 TIME_PERIODIC | TIME_CALLBACK_FUNCTION | TIME_KILL_SYNCHRONOUS);
    if (!id) return -1;
    timeBeginPeriod(h->resolution);
    h->timerId = id;
    return 0;
  });
}

extern "C" LONG WINAPI syncoutStopSmpte(HKYSYNCOUT h) {
  return ky::Guard<LONG>(-1, [&]() -> LONG {
    if (!h) return -1;
    StopTimer(h);
    return 0;
  });
}

extern "C" void WINAPI syncoutUpdatePosition(HKYSYNCOUT h, LONGLONG position, LONGLONG gapLimit) {
  if (!h) return;
  h->position = static_cast<DWORD>(position / 10000);
  h->gapLimit = static_cast<DWORD>(gapLimit / 10000);
  h->lastUpdate = Now(h);
}

extern "C" void WINAPI syncoutSendFFrameMsg(HKYSYNCOUT h) {
  ky::Guard<int>(0, [&] {
    if (h) SendFullFrame(h);
    return 0;
  });
}

// ---- internal seams (tests and the tool's dry run; not declared in include/) ----

extern "C" void WINAPI KyInternal_SetMidiSink(MidiSink sink, void *ctx) {
  g_sink = sink;
  g_sinkCtx = ctx;
}

extern "C" void WINAPI KyInternal_SetSyncoutClock(SyncClock clock, void *ctx) {
  g_clock = clock;
  g_clockCtx = ctx;
}

// Runs one timer tick on the caller's thread.
extern "C" void WINAPI KyInternal_SyncoutTick(HKYSYNCOUT h) {
  if (h) Tick(h);
}
