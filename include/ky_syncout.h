/* tellarok MIDI time-code output and the timer service. */
#ifndef TELLAROK_KY_SYNCOUT_H
#define TELLAROK_KY_SYNCOUT_H

#include "ky_base.h"
#include <mmsystem.h>

/* ---- Timer service ------------------------------------------------------------------
 * Millisecond time from the performance counter that the module starts when it loads.
 * A timer record keeps its own reference point; a record that was zero-filled and never
 * reset measures from the moment the module loaded (the service's base). */
typedef struct tKYTIMER {
  LONGLONG reference; /* performance-counter value of the record's zero; 0 = the base */
} tKYTIMER;

KY_CHECK_SIZE(tKYTIMER, 8);

KY_BEGIN_DECLS
/* Sets the record's reference to now. A null record is ignored. */
KY_IMPORT void KYAPI KyResetMillisecEx(tKYTIMER *t);
/* Milliseconds since the record's reference (since the module loaded for a null or
 * zero-filled record), truncated; wraps after 49.7 days like GetTickCount. */
KY_IMPORT DWORD KYAPI KyGetMillisecEx(const tKYTIMER *t);
/* Milliseconds since the previous KyDeltaMillisecEx on the record (or since its reset), and
 * moves the reference forward by exactly that many whole milliseconds, so repeated calls
 * never lose the fractions. A null record answers KyGetMillisecEx(NULL) and keeps nothing. */
KY_IMPORT DWORD KYAPI KyDeltaMillisecEx(tKYTIMER *t);
KY_END_DECLS

/* ---- MIDI time-code output ----------------------------------------------------------
 * A sync-output handle sends MIDI Time Code for the transport: full-frame messages when asked
 * and when the port closes, and quarter-frame messages paced by a periodic multimedia timer
 * from the position the caller keeps up to date with syncoutUpdatePosition.
 *
 * Rate types are those of the time-code functions (1 = 30, 2 = 29.97 drop-frame, 3 = 25,
 * 4 = 24, 5 = 29.97 non-drop). Type 5 is announced with the rate bits of 24 frames per second
 * while its frames count to 30: receivers that trust the bits see it as 24 fps. This is how
 * the output has always behaved and is kept for the equipment set up around it.
 *
 * Threads: the timer callback runs on the multimedia timer's thread. The fields are plain
 * 32-bit words written without locks; syncoutUpdatePosition and syncoutSetParam may be
 * called while the timer runs. Opening, closing, starting, stopping and freeing belong to
 * one controlling thread. */
typedef struct tKYSYNCOUT {
  DWORD companion;        /* sync-output companion's handle: always 0 (the companion declines) */
  HMIDIOUT midiOut;       /* MIDI output port, NULL while closed */
  tKYTIMER timer;         /* timer record: the handle's milliseconds */
  LONGLONG timerBase;     /* copy of the timer service's base when the handle was made */
  DWORD rateNum;          /* quarter frames per millisecond = rateNum / rateDen */
  DWORD rateDen;
  DWORD lastQuarterTime;  /* position (ms) of the last quarter-frame computation */
  DWORD remainder;        /* remainder of that computation, in 1/rateDen quarter frames */
  DWORD flags;            /* KYSYNCOUT_FREERUN, KYSYNCOUT_HOLD */
  UINT resolution;        /* multimedia timer resolution, ms */
  UINT period;            /* multimedia timer period, ms */
  UINT timerId;           /* multimedia timer identifier, 0 when stopped */
  LONG reentry;           /* re-entry counter of the timer callback */
  LONG rateType;          /* time code being sent */
  LONG hours;
  LONG minutes;
  LONG seconds;
  LONG frames;
  LONG piece;             /* quarter-frame piece index 0..7 */
  DWORD lastUpdate;       /* handle milliseconds of the last position update */
  DWORD position;         /* transport position, ms */
  DWORD gapLimit;         /* ms; an update older than this stops the position (0 = none) */
  DWORD positionLimit;    /* ms; the position never passes it (signed comparison) */
  LONG priorityRaised;    /* the timer thread runs at time-critical priority */
  MIDIHDR header[2];      /* header[0] carries the full-frame message */
  BYTE message[2][10];    /* the headers' buffers */
} tKYSYNCOUT;

#define KYSYNCOUT_FREERUN 0x1
#define KYSYNCOUT_HOLD    0x2

/* syncoutSetParam numbers (9 and 13 upward are ignored). */
#define KYSYNCOUT_PARAM_FREERUN     0
#define KYSYNCOUT_PARAM_RESOLUTION  1
#define KYSYNCOUT_PARAM_PERIOD      2
#define KYSYNCOUT_PARAM_RATETYPE    3
#define KYSYNCOUT_PARAM_HOURS       4
#define KYSYNCOUT_PARAM_MINUTES     5
#define KYSYNCOUT_PARAM_SECONDS     6
#define KYSYNCOUT_PARAM_FRAMES      7
#define KYSYNCOUT_PARAM_PIECE       8
#define KYSYNCOUT_PARAM_POSLIMIT    10
#define KYSYNCOUT_PARAM_HOLD        11
#define KYSYNCOUT_PARAM_GAPLIMIT    12

KY_CHECK_OFFSET(tKYSYNCOUT, midiOut, 4);
KY_CHECK_OFFSET(tKYSYNCOUT, timer, 8);
KY_CHECK_OFFSET(tKYSYNCOUT, rateNum, 24);
KY_CHECK_OFFSET(tKYSYNCOUT, flags, 40);
KY_CHECK_OFFSET(tKYSYNCOUT, reentry, 56);
KY_CHECK_OFFSET(tKYSYNCOUT, rateType, 60);
KY_CHECK_OFFSET(tKYSYNCOUT, piece, 80);
KY_CHECK_OFFSET(tKYSYNCOUT, positionLimit, 96);
KY_CHECK_OFFSET(tKYSYNCOUT, header, 104);
KY_CHECK_OFFSET(tKYSYNCOUT, message, 232);
KY_CHECK_SIZE(tKYSYNCOUT, 256);

typedef tKYSYNCOUT *HKYSYNCOUT;

KY_BEGIN_DECLS
/* A new zero-filled handle in locked global memory, or NULL. Its timer record measures from
 * the module's start until syncoutStartSmpte resets it.
 * The position limit starts at 0, which holds the position where it is: set parameter 10
 * before starting (0x7FFFFFFF for no limit). Free it with syncoutFreeHandle. */
KY_IMPORT HKYSYNCOUT KYAPI syncoutAllocHandle(void);
/* Stops the timer if it runs and frees the handle; the port is not closed (close it first).
 * NULL is ignored. */
KY_IMPORT void KYAPI syncoutFreeHandle(HKYSYNCOUT h);
/* Opens MIDI output device `device` (midiOutOpen, no callback) and prepares both headers with
 * their 10-byte buffers. Returns the MMRESULT of midiOutOpen; 0 without action when the port
 * is already open; MMSYSERR_INVALHANDLE for a NULL handle. */
KY_IMPORT MMRESULT KYAPI syncoutOpen(HKYSYNCOUT h, UINT device);
/* Stops the timer; when the port is open, sends the full-frame message of the current time
 * code, unprepares both headers, resets and closes the port. Returns 0 (also for NULL). */
KY_IMPORT MMRESULT KYAPI syncoutClose(HKYSYNCOUT h);
/* Sets one parameter (KYSYNCOUT_PARAM_*); other numbers and a NULL handle are ignored. */
KY_IMPORT void KYAPI syncoutSetParam(HKYSYNCOUT h, LONG number, LONG value);
/* Starts the quarter-frame stream from `position` (100-ns units, the low and high halves):
 * resets the handle's timer record, sets the position (ms) and the rate ratio of the rate type
 * (types 1 and 5: 3/25 quarter frames per ms when trueRate is non-zero, else 3000/25025, the
 * thirty frames of video speed), restarts piece index and remainder, and starts a periodic
 * multimedia timer with the handle's period and resolution. A timer that already runs is
 * stopped first. Set the period (parameter 2) and resolution (parameter 1) before: a period
 * of 0 starts no timer. Returns 0 when the timer started, -1 otherwise or for NULL. */
KY_IMPORT LONG KYAPI syncoutStartSmpte(HKYSYNCOUT h, DWORD positionLow, LONG positionHigh,
                                       BOOL trueRate);
/* Kills the timer (and waits for a callback in progress), ends its timer period, and clears
 * the timer identifier and the priority flag. Returns 0, or -1 for NULL. */
KY_IMPORT LONG KYAPI syncoutStopSmpte(HKYSYNCOUT h);
/* Stores position / 10000 and gapLimit / 10000 as milliseconds and now as the last update
 * time. NULL is ignored. */
KY_IMPORT void KYAPI syncoutUpdatePosition(HKYSYNCOUT h, LONGLONG position, LONGLONG gapLimit);
/* Sends F0 7F 7F 01 01 hh mm ss ff F7 for the current time code when the port is open (hh
 * carries the rate bits 0x60, 0x40, 0x20 or 0x00). NULL is ignored. */
KY_IMPORT void KYAPI syncoutSendFFrameMsg(HKYSYNCOUT h);
KY_END_DECLS

#endif
