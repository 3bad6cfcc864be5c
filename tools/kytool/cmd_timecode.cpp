// kytool timecode / kytool mtc: time code, frame counts and media time, and the MIDI Time
// Code the library would send for a run of the transport.
#include "kytool.h"

#include <stdio.h>
#include <stdlib.h>
#include <string>
#include <vector>

#include "ky_syncout.h"
#include "ky_time.h"

namespace {

const char *RateName(LONG type) {
  switch (type) {
  case 1: return "30 fps";
  case 2: return "29.97 fps drop-frame";
  case 3: return "25 fps";
  case 4: return "24 fps";
  case 5: return "29.97 fps non-drop";
  default: return "unknown";
  }
}

std::string Text(const _smpteval &tc) {
  char buf[32];
  snprintf(buf, sizeof buf, "%02lu:%02lu:%02lu%c%02lu", (unsigned long)tc.hours,
           (unsigned long)tc.minutes, (unsigned long)tc.seconds, tc.type == 2 ? ';' : ':',
           (unsigned long)tc.frames);
  return buf;
}

bool ParseType(kytool::Args &args, LONG *type) {
  *type = atol(kytool::TakeOption(args, "--type", "1").c_str());
  if (*type < 1 || *type > 5) {
    fprintf(stderr, "kytool: --type must be 1 (30), 2 (29.97 drop), 3 (25), 4 (24) or 5 (29.97)\n");
    return false;
  }
  return true;
}

void Show(const _smpteval &tc) {
  const LONGLONG media = KYSMPTE_SMPTEToNanos(&tc);
  printf("type %ld (%s): %s = frame %lu = media time %lld (%.7f s)\n", (long)tc.type,
         RateName(tc.type), Text(tc).c_str(), (unsigned long)KYSMPTE_SMPTEToFrameCount(&tc),
         (long long)media, media / 1e7);
}

int Timecode(const kytool::Args &in) {
  kytool::Args args = in;
  LONG type;
  if (!ParseType(args, &type)) return 2;
  const std::string frames = kytool::TakeOption(args, "--frames", "");
  const std::string media = kytool::TakeOption(args, "--media", "");
  _smpteval tc = {type, 0, 0, 0, 0};
  if (!frames.empty() && args.empty() && media.empty()) {
    KYSMPTE_FrameCountToSMPTE(&tc, strtoul(frames.c_str(), nullptr, 10));
  } else if (!media.empty() && args.empty() && frames.empty()) {
    KYSMPTE_NanoToSMPTE(_strtoi64(media.c_str(), nullptr, 10), &tc);
  } else if (args.size() == 1 && frames.empty() && media.empty()) {
    HRESULT hr = KYSMPTE_TextToSMPTE(args[0].c_str(), &tc);
    if (FAILED(hr)) {
      fprintf(stderr, "kytool: \"%s\" is not a time code of type %ld (0x%08lX)\n",
              args[0].c_str(), (long)type, (unsigned long)hr);
      return 1;
    }
  } else {
    fprintf(stderr, "usage: kytool timecode [--type T] (HH:MM:SS:FF | --frames N | --media N)\n");
    return 2;
  }
  Show(tc);
  return 0;
}

int TimecodeDemo(const kytool::Args &) {
  int rc = Timecode({"--type", "2", "01:00:00;00"});
  rc |= Timecode({"--type", "2", "--frames", "1800"});
  rc |= Timecode({"--type", "3", "--media", "36000000000"});
  return rc;
}

// ---- mtc: a dry run of the sync output through the library's MIDI sink ----

typedef void(WINAPI *MidiSink)(void *, DWORD, const BYTE *, DWORD);
typedef DWORD(WINAPI *SyncClock)(void *);

struct DryRun {
  HKYSYNCOUT h = nullptr;
  DWORD now = 0;
  std::string line;  // the quarter frames of the current group of eight
  std::string group; // the time code the group describes
};

void WINAPI PrintMessage(void *ctx, DWORD shortMsg, const BYTE *data, DWORD length) {
  auto *run = static_cast<DryRun *>(ctx);
  if (data) {
    std::string bytes;
    char b[4];
    for (DWORD i = 0; i < length; ++i) {
      snprintf(b, sizeof b, "%s%02X", i ? " " : "", data[i]);
      bytes += b;
    }
    printf("full frame   %s\n", bytes.c_str());
    return;
  }
  char b[8];
  snprintf(b, sizeof b, " F1 %02lX", (unsigned long)(shortMsg >> 8 & 0xFF));
  run->line += b;
}

DWORD WINAPI DryClock(void *ctx) { return static_cast<DryRun *>(ctx)->now; }

template <class F>
F Seam(const char *name) {
  HMODULE m = GetModuleHandleA("tellarok.dll");
  return m ? reinterpret_cast<F>(reinterpret_cast<void *>(GetProcAddress(m, name))) : nullptr;
}

int Mtc(const kytool::Args &in) {
  kytool::Args args = in;
  LONG type;
  if (!ParseType(args, &type)) return 2;
  const std::string from = kytool::TakeOption(args, "--from", "00:00:00:00");
  const double seconds = atof(kytool::TakeOption(args, "--seconds", "1").c_str());
  const bool videoRate = kytool::TakeFlag(args, "--video-rate");
  _smpteval tc = {type, 0, 0, 0, 0};
  if (!args.empty() || FAILED(KYSMPTE_TextToSMPTE(from.c_str(), &tc)) || seconds < 0 ||
      seconds > 3600) {
    fprintf(stderr, "usage: kytool mtc [--type T] [--from HH:MM:SS:FF] [--seconds S (0-3600)]"
                    " [--video-rate]\n");
    return 2;
  }
  auto setSink = Seam<void(WINAPI *)(MidiSink, void *)>("KyInternal_SetMidiSink");
  auto setClock = Seam<void(WINAPI *)(SyncClock, void *)>("KyInternal_SetSyncoutClock");
  auto tick = Seam<void(WINAPI *)(HKYSYNCOUT)>("KyInternal_SyncoutTick");
  if (!setSink || !setClock || !tick) {
    fprintf(stderr, "kytool: this tellarok.dll has no MIDI sink for a dry run\n");
    return 1;
  }
  DryRun run;
  setSink(PrintMessage, &run);
  setClock(DryClock, &run);
  run.h = syncoutAllocHandle();
  int rc = 1;
  if (run.h && syncoutOpen(run.h, 0) == 0) {
    const LONG params[][2] = {{KYSYNCOUT_PARAM_RATETYPE, type},
                              {KYSYNCOUT_PARAM_HOURS, (LONG)tc.hours},
                              {KYSYNCOUT_PARAM_MINUTES, (LONG)tc.minutes},
                              {KYSYNCOUT_PARAM_SECONDS, (LONG)tc.seconds},
                              {KYSYNCOUT_PARAM_FRAMES, (LONG)tc.frames},
                              {KYSYNCOUT_PARAM_PERIOD, 60000},  // the dry run ticks by itself
                              {KYSYNCOUT_PARAM_RESOLUTION, 10},
                              {KYSYNCOUT_PARAM_POSLIMIT, 0x7FFFFFFF},
                              {KYSYNCOUT_PARAM_FREERUN, 1}};
    for (const auto &p : params) syncoutSetParam(run.h, p[0], p[1]);
    printf("MIDI Time Code, type %ld (%s%s), from %s for %g s\n", (long)type, RateName(type),
           type == 1 || type == 5 ? (videoRate ? ", at video speed" : ", at true rate") : "",
           Text(tc).c_str(), seconds);
    syncoutSendFFrameMsg(run.h);
    if (syncoutStartSmpte(run.h, 0, 0, !videoRate) == 0) {
      const DWORD end = static_cast<DWORD>(seconds * 1000 + 0.5);
      // One millisecond per tick: the stream is the same for any tick size, and each group
      // of eight pieces gets its own line with the time code it describes.
      for (DWORD t = 1; t <= end; ++t) {
        if (run.h->piece == 0 && run.line.empty()) {
          _smpteval now = {type, (ULONG)run.h->hours, (ULONG)run.h->minutes,
                           (ULONG)run.h->seconds, (ULONG)run.h->frames};
          run.group = Text(now);
        }
        run.now = t;
        tick(run.h);
        if (run.h->piece == 0 && !run.line.empty()) {
          printf("%s %s\n", run.group.c_str(), run.line.c_str());
          run.line.clear();
        }
      }
      if (!run.line.empty()) printf("%s %s\n", run.group.c_str(), run.line.c_str());
      _smpteval last = {type, (ULONG)run.h->hours, (ULONG)run.h->minutes,
                        (ULONG)run.h->seconds, (ULONG)run.h->frames};
      printf("stopped at %s; closing the port sends:\n", Text(last).c_str());
      rc = 0;
    } else {
      fprintf(stderr, "kytool: the multimedia timer did not start\n");
    }
    syncoutClose(run.h);
  }
  syncoutFreeHandle(run.h);
  setClock(nullptr, nullptr);
  setSink(nullptr, nullptr);
  return rc;
}

int MtcDemo(const kytool::Args &) {
  return Mtc({"--type", "2", "--from", "00:00:59;27", "--seconds", "0.2"});
}

} // namespace

KYTOOL_COMMAND("timecode", "[--type T] (HH:MM:SS:FF | --frames N | --media N)",
               "convert between time-code text, frame counts and media time (100 ns)",
               Timecode, TimecodeDemo, 40);
KYTOOL_COMMAND("mtc", "[--type T] [--from HH:MM:SS:FF] [--seconds S] [--video-rate]",
               "print the MIDI Time Code bytes sent for a run from a position", Mtc, MtcDemo, 41);
