/* tellarok SMPTE time code and media time.
 *
 * Media time is a signed 64-bit count of 100-nanosecond units. A time code (_smpteval) is
 * hours, minutes, seconds and frames at one of five frame-rate types (KYSMPTE_TYPE_*).
 *
 * Frame counts: types 1 and 5 count 30 frames per second (a day is 2592000 frames), type 3
 * 25 (2160000), type 4 24 (2073600). Type 2 is 29.97 drop-frame: labels run at 30 per
 * second, but frames 0 and 1 of second 0 are skipped in every minute that is not a multiple
 * of ten. Its day is 2589407 frames, one less than a real drop-frame day; every wrap of a
 * type-2 value uses that modulus, so that values stay compatible with those this module
 * has always produced. Media time uses the real rate: 30000/1001 for types 2 and 5.
 *
 * Every function is reentrant and keeps no state: any thread may call it on values it owns.
 * Functions documented as returning a status return S_OK, or E_POINTER when a time-code
 * pointer is null (nothing is changed then). */
#ifndef TELLAROK_KY_TIME_H
#define TELLAROK_KY_TIME_H

#include "ky_base.h"

/* Frame-rate types (_smpteval.type). */
#define KYSMPTE_TYPE_30        1 /* 30 frames per second, non-drop */
#define KYSMPTE_TYPE_2997_DROP 2 /* 29.97 drop-frame */
#define KYSMPTE_TYPE_25        3 /* 25 frames per second */
#define KYSMPTE_TYPE_24        4 /* 24 frames per second */
#define KYSMPTE_TYPE_2997      5 /* 29.97 non-drop (30 labels per second) */

typedef struct _smpteval {
  LONG type;      /* frame-rate type, KYSMPTE_TYPE_* */
  ULONG hours;    /* 0-23 */
  ULONG minutes;  /* 0-59 */
  ULONG seconds;  /* 0-59 */
  ULONG frames;   /* 0 to frames per second - 1 */
} _smpteval;

KY_CHECK_SIZE(_smpteval, 20);
KY_CHECK_OFFSET(_smpteval, type, 0);
KY_CHECK_OFFSET(_smpteval, hours, 4);
KY_CHECK_OFFSET(_smpteval, minutes, 8);
KY_CHECK_OFFSET(_smpteval, seconds, 12);
KY_CHECK_OFFSET(_smpteval, frames, 16);

KY_BEGIN_DECLS
/* Number of frames from 00:00:00:00 to the time code. For type 2 the dropped labels are
 * not counted, and a label that does not exist (frames 0 or 1 at second 0 of a minute not
 * divisible by ten) is read as frame 2. Returns 0 for a type outside 1-5 or a null pointer. */
KY_IMPORT ULONG KYAPI KYSMPTE_SMPTEToFrameCount(const _smpteval *tc);

/* Sets the fields of tc from a frame count, keeping tc->type. The count wraps at the day of
 * the type; a type outside 1-5 is converted as type 2. Status: S_OK, E_POINTER. */
KY_IMPORT HRESULT KYAPI KYSMPTE_FrameCountToSMPTE(_smpteval *tc, ULONG frameCount);

/* a = a + b, wrapped at the day of a's type; the result keeps a's type (b's type is used
 * only to count b's frames). Status: S_OK, E_POINTER. */
KY_IMPORT HRESULT KYAPI KYSMPTE_AddSMPTE(_smpteval *a, const _smpteval *b);

/* a = a - b in frames, wrapped at the day of a's type: a negative difference d becomes
 * day - (|d| mod day). Status: S_OK, E_POINTER. */
KY_IMPORT HRESULT KYAPI KYSMPTE_SubtractSMPTE(_smpteval *a, const _smpteval *b);

/* Compares hours, then minutes, seconds and frames (not the type): 1 when a is later, -1
 * when earlier, 0 when equal. A null pointer sorts before any time code. */
KY_IMPORT LONG KYAPI KYSMPTE_SMPTECompare(const _smpteval *a, const _smpteval *b);

/* Steps tc one frame forward by its fields, wrapping 23:59:59 to 00:00:00. For types 2 and
 * 5 a new minute that is not a multiple of ten starts at frame 2. reserved is ignored.
 * Status: S_OK, E_POINTER. */
KY_IMPORT HRESULT KYAPI KYSMPTE_IncrementByFrame(_smpteval *tc, LONG reserved);

/* Steps tc one frame back by its fields, wrapping 00:00:00 to 23:59:59. Dropped labels are
 * not skipped on the way down: for types 2 and 5, when the minute changes to one that is not
 * a multiple of ten, 2 is added to the frames (29 becomes 31). Normalise through a frame
 * count when valid labels are needed. reserved is ignored. Status: S_OK, E_POINTER. */
KY_IMPORT HRESULT KYAPI KYSMPTE_DeccrementByFrame(_smpteval *tc, LONG reserved);

/* Sets tc (its type is used) from media time in 100-ns units: frame count = media time x
 * rate x 1e-7 + 0.000005, truncated toward zero, then as KYSMPTE_FrameCountToSMPTE. A
 * negative media time counts back from the end of the day. Status: S_OK, E_POINTER. */
KY_IMPORT HRESULT KYAPI KYSMPTE_NanoToSMPTE(LONGLONG mediaTime, _smpteval *tc);

/* Media time of the time code's frame count: count / rate x 1e7 + 0.999, truncated, so any
 * fraction of a 100-ns unit rounds up. Returns 0 for a null pointer. */
KY_IMPORT LONGLONG KYAPI KYSMPTE_SMPTEToNanos(const _smpteval *tc);

/* Parses time-code text into tc, keeping tc->type. Accepted syntax:
 *   [blanks] [[[hh :] mm :] ss SEP] ff [blanks]
 * each field one or two decimal digits, fields read from the right (a single number is
 * frames, two are seconds and frames, and so on; missing fields are 0). SEP, the separator
 * before the frames, is ':', or ';' or '.' as written for drop-frame labels (the separator
 * does not change the type); the other separators are ':'. Blanks are spaces and tabs.
 * Ranges: hours 0-23, minutes and seconds 0-59, frames below the type's frames per second
 * (30 for a type outside 1-5). A type-2 label that does not exist is stored as frame 2.
 * Status: S_OK; E_INVALIDARG for malformed or out-of-range text; E_POINTER for a null
 * argument. On failure tc is left unchanged. */
KY_IMPORT HRESULT KYAPI KYSMPTE_TextToSMPTE(const char *text, _smpteval *tc);
KY_END_DECLS

/* Media time of the fields read as a plain count at the given rate, without drop-frame
 * correction and ignoring the type: ((h x 60 + m) x 60 + s) x rate + frames, divided by the
 * rate, x 1e7 + 0.999, truncated. Returns 0 for a null pointer or a rate that is not a
 * positive finite number; results beyond the 64-bit range saturate.
 * Exported twice, like every export that takes a floating-point rate: C++ clients bind to its
 * C++ decorated name, C clients to the plain stdcall name; both are the same function.
 * Declared after the C block on purpose: in C++ this is the decorated function. */
KY_IMPORT LONGLONG KYAPI KYSMPTE_SmpteLikeToNanos(double rate, const _smpteval *tc);

#endif
