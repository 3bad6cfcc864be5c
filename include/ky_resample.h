/* tellarok sample-rate conversion and the IIR filter designer.
 *
 * The resampler converts interleaved sample buffers between two rates, block after block,
 * carrying its phase and history from one block to the next so that the output does not
 * depend on how the source is cut into blocks. Float data (KYSAMPLE_F32, KYSAMPLE_F64) may
 * use a 25-tap windowed-sinc kernel (method 3); every type may use linear interpolation
 * (methods 0 to 2). Float data may also pass an anti-alias low-pass (Butterworth, order 2, 4
 * or 6) at the lower of the two Nyquist frequencies: over the source block before
 * down-sampling, over the output after up-sampling.
 *
 * Latency and the end of a stream: the sinc engine looks 12 source frames ahead and the
 * linear engine one frame, so a block yields the output instants whose neighbourhood it
 * completes. Calling KyAudio_ResampleEx with a null source ("drain") ends the stream: the
 * missing frames past the end are taken as silence (sinc) or as the last frame held (linear),
 * and the remaining output instants up to the end of the source are written. A stream of N
 * frames converted this way yields ceil(N x ratio) frames in all. Reset before reusing an
 * instance after a drain.
 *
 * Results are HRESULTs: S_OK, E_POINTER for a missing handle or out pointer, E_INVALIDARG for
 * a bad rate, ratio, channel count (1..32) or sample type, E_OUTOFMEMORY when an allocation
 * fails. An instance is used by one thread at a time; different instances are independent.
 */
#ifndef TELLAROK_KY_RESAMPLE_H
#define TELLAROK_KY_RESAMPLE_H

#include "ky_base.h"
#include "ky_audio.h"

/* ---------------------------------------------------------------------------------------
 * IIR filters: Butterworth low- and high-pass cascades of order 1 to 6, run as second-order
 * sections in transposed direct form II in double precision. */

#define KYIIR_LOWPASS  0
#define KYIIR_HIGHPASS 1
/* tKYIIRDESIGN.flags: refresh the coefficients only; each record keeps its running history
 * (for changing a filter in the middle of a stream without a click). */
#define KYIIR_KEEPHISTORY 0x00000001
#define KYIIR_MAXORDER 6
#define KYIIR_MAXSECTIONS 3

typedef struct tKYIIRDESIGN {
  LONG kind;      /* KYIIR_LOWPASS or KYIIR_HIGHPASS */
  LONG channels;  /* state records to fill, 1..32 (one per interleaved channel) */
  LONG order;     /* 1..6; odd orders add one first-order section */
  LONG reserved;  /* ignored */
  double cutoff;  /* -3 dB frequency as a fraction of the sample rate, 0 < cutoff < 0.5 */
  double gain;    /* linear pass-band gain; 0 means 1 */
  LONG flags;     /* 0 or KYIIR_KEEPHISTORY */
  LONG reserved2; /* ignored */
} tKYIIRDESIGN;
KY_CHECK_SIZE(tKYIIRDESIGN, 40);
KY_CHECK_OFFSET(tKYIIRDESIGN, cutoff, 16);
KY_CHECK_OFFSET(tKYIIRDESIGN, flags, 32);

/* The filter of one channel: its coefficients and its running history. A zeroed record is
 * a pass-through filter (no sections). */
typedef struct tKYIIRSTATE {
  LONG sections;                        /* second-order sections in use, 0..3 */
  LONG order;                           /* order of the design, 0 for none */
  double coef[KYIIR_MAXSECTIONS][5];    /* b0, b1, b2, a1, a2 of each section (a0 = 1) */
  double history[KYIIR_MAXSECTIONS][2]; /* the two delay values of each section */
} tKYIIRSTATE;
KY_CHECK_SIZE(tKYIIRSTATE, 176);
KY_CHECK_OFFSET(tKYIIRSTATE, coef, 8);
KY_CHECK_OFFSET(tKYIIRSTATE, history, 128);

/* ---------------------------------------------------------------------------------------
 * The resampler instance. Allocated by KyAudio_ResampleOpen/OpenEx (zero-initialised global
 * memory), freed by KyAudio_ResampleClose. Callers may read every field; the ones marked
 * "engine" are the converter's private running state. */

#define KYRESAMPLE_MAXCHANNELS 32
#define KYRESAMPLE_RINGSIZE 25  /* taps of the sinc kernel: 12 on each side of the centre */
#define KYRESAMPLE_SINCTABLE 1000

/* Open flags (16 bits). */
#define KYRESAMPLE_METHODMASK   0x000F /* 0, 1, 2 linear interpolation; 3 windowed sinc */
#define KYRESAMPLE_LINEAR       0x0002
#define KYRESAMPLE_SINC         0x0003
#define KYRESAMPLE_AAMASK       0x00F0 /* anti-alias low-pass, float data with method 2 or 3 */
#define KYRESAMPLE_AA_ORDER2    0x0010
#define KYRESAMPLE_AA_ORDER4    0x0020
#define KYRESAMPLE_AA_ORDER6    0x0030
#define KYRESAMPLE_USERMASK     0x0F00 /* kept as given for the caller */
#define KYRESAMPLE_COUNTADJUST  0x1000 /* source position counts one frame less per block
                                          when up-sampling */
#define KYRESAMPLE_FILTERAFTER  0x2000 /* stored in filterAfter for the caller; the
                                          filter's place follows the ratio alone */

typedef struct tKYRESAMPLEINSTANCE {
  KYSAMPLETYPE sampleType;  /* type of both buffers */
  LONG channels;            /* 1..32 */
  LONG srcRate;             /* Hz; 1 after KyAudio_ResampleOpenEx */
  LONG dstRate;             /* Hz; 1 after KyAudio_ResampleOpenEx */
  double ratio;             /* destination rate / source rate */
  double phaseOffset;       /* added when mapping positions; starts at 0 */
  double inverseRatio;      /* 1 / ratio */
  double prevValue;         /* the previous-sample record of KyAudio_ResampleStuffPrevSample, */
  DWORD prevParam1;         /* kept for the caller: the engines do not read it */
  DWORD prevParam2;
  tKYIIRSTATE filter[KYRESAMPLE_MAXCHANNELS]; /* anti-alias filter of each channel */
  LONG filterAfter;         /* KYRESAMPLE_FILTERAFTER given */
  LONG reserved0;
  LONGLONG srcPos;          /* frames consumed since the last reset */
  LONGLONG dstPos;          /* frames produced since the last reset */
  LONGLONG srcOffset;       /* added to srcPos when it is read */
  LONGLONG dstOffset;       /* added to dstPos when it is read */
  LONG userFlags;           /* open flags & KYRESAMPLE_USERMASK */
  LONG antiAlias;           /* open flags & KYRESAMPLE_AAMASK */
  LONG method;              /* open flags & KYRESAMPLE_METHODMASK (see KyAudio_ResampleOpen) */
  LONG countAdjust;         /* KYRESAMPLE_COUNTADJUST given */
  double **history;         /* sinc: one ring of 25 doubles per channel */
  LONG priming;             /* sinc: the first 13 source frames are still being loaded */
  double tableStep;         /* sinc: 1000/13 table entries per frame of distance */
  LONG ringIndex;           /* sinc: slot of the newest frame in every ring */
  LONG primedCount;         /* sinc: frames loaded while priming */
  LONG *ringSuccessor;      /* sinc: 27 entries, entry k = (k - 1 + 25) mod 25 */
  LONG pendingFrames;       /* engine: source frames to load before the next output */
  double phase;             /* engine: fractional source position of the next output, 0..1 */
  LONG linearIndex;         /* engine: linear, frame before the next output, relative to the
                               next block (-1 = lastFrame) */
  LONG lastFrameValid;      /* engine: linear, lastFrame holds the previous block's end */
  LONG drainedFrames;       /* engine: frames of silence loaded since the last source frame */
  LONG consumed;            /* engine: source frames used by the last block */
  double lastFrame[KYRESAMPLE_MAXCHANNELS]; /* engine: linear, last frame of the last block */
  /* engine: for instances opened with two rates the phase is kept exactly, as the fraction
     phaseNum / phaseDen (phaseDen = dstRate / gcd), and advances by phaseStepWhole frames
     plus phaseStepNum / phaseDen per output; phaseDen 0 = a phase in double precision
     (a ratio that is no fraction). */
  DWORD phaseNum;
  DWORD phaseDen;
  DWORD phaseStepNum;
  DWORD phaseStepWhole;
  double *kernelCache;      /* engine: sinc, the 25 kernel values of every phase, when few */
  DWORD kernelCacheDen;     /* engine: phaseDen the cache was built for */
} tKYRESAMPLEINSTANCE;
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, ratio, 16);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, prevValue, 40);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, filter, 56);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, filterAfter, 5688);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, srcPos, 5696);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, userFlags, 5728);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, history, 5744);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, tableStep, 5752);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, ringSuccessor, 5768);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, phase, 5776);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, lastFrame, 5800);
KY_CHECK_OFFSET(tKYRESAMPLEINSTANCE, phaseNum, 6056);
KY_CHECK_SIZE(tKYRESAMPLEINSTANCE, 6080);

typedef tKYRESAMPLEINSTANCE *HKYRESAMPLE;

KY_BEGIN_DECLS

/* Designs the filter and writes it into design->channels records of `states`, with zero
 * history (or, with KYIIR_KEEPHISTORY, the coefficients only). E_POINTER for null,
 * E_INVALIDARG for a kind, order, channel count or cutoff outside the ranges above (the
 * records are then left alone). */
KY_IMPORT HRESULT KYAPI KyIIR_Design(const tKYIIRDESIGN *design, tKYIIRSTATE *states);
/* Filters `frames` interleaved frames of `channels` channels in place, channel c through
 * states[c]; the history carries over to the next call. Types KYSAMPLE_F32 and KYSAMPLE_F64
 * only (E_INVALIDARG otherwise); E_POINTER for null pointers with frames to do. */
KY_IMPORT HRESULT KYAPI KyIIR_Process(tKYIIRSTATE *states, KYSAMPLETYPE type, void *data,
                                     LONG channels, LONG frames);

/* Opens a converter for `channels` interleaved channels of `type` from srcRate to dstRate
 * Hz (the ratio between 1/65536 and 65536). flags: method, anti-alias order and the other
 * KYRESAMPLE_* bits. For types other than float, method 3 and any anti-alias order turn
 * into method 2 without filter. The phase of a conversion between two rates is kept as an
 * exact fraction, so it never drifts. The handle is cleared first and set on success;
 * free it with KyAudio_ResampleClose. */
KY_IMPORT HRESULT KYAPI KyAudio_ResampleOpen(HKYRESAMPLE *out, KYSAMPLETYPE type, LONG srcRate,
                                            LONG dstRate, LONG channels, WORD flags);
/* As KyAudio_ResampleOpen with a ratio (destination / source) instead of two rates; both
 * rate fields read 1. A ratio that is a fraction of terms up to 2^20 in double precision
 * (such as 48000.0 / 44100) keeps an exact phase as two rates do; any other ratio advances
 * the phase in double precision. */
KY_IMPORT HRESULT KYAPI KyAudio_ResampleOpenEx(HKYRESAMPLE *out, KYSAMPLETYPE type,
                                              LONG channels, double ratio, DWORD flags);
/* Changes type (0 keeps), rates (<= 0 keeps; for ResetEx a ratio <= 0 keeps) and channel
 * count (<= 0 keeps). A rate change zeroes the positions. With keepState and the same
 * channel count the conversion carries on where it was (the filter gets the new
 * coefficients and keeps its history); otherwise the stream starts afresh. E_OUTOFMEMORY
 * when the rings of a new channel count cannot be allocated: the instance is then
 * unchanged. */
KY_IMPORT HRESULT KYAPI KyAudio_ResampleReset(HKYRESAMPLE h, KYSAMPLETYPE type, LONG srcRate,
                                             LONG dstRate, LONG channels, BOOL keepState);
KY_IMPORT HRESULT KYAPI KyAudio_ResampleResetEx(HKYRESAMPLE h, KYSAMPLETYPE type, double ratio,
                                               LONG channels, BOOL keepState);
/* Frees the instance and everything it owns. Null is accepted. */
KY_IMPORT HRESULT KYAPI KyAudio_ResampleClose(HKYRESAMPLE h);
/* Converts one block of srcFrames frames and returns the frames written to dst. dst must
 * hold ceil(srcFrames x ratio) + 2 frames (ceil(13 x ratio) + 2 for a drain: src null).
 * When down-sampling with the anti-alias filter, the filter runs over the
 * source block in place (the caller's data changes, which saves a copy of every block).
 * A method above 3 writes nothing and returns srcFrames. 0 for a null handle or
 * destination, an empty block, or (methods 0 to 3) when dst and src are the same memory. */
KY_IMPORT LONG KYAPI KyAudio_ResampleEx(HKYRESAMPLE h, void *dst, void *src, LONG srcFrames);
/* The sinc engine on its own: at most dstFrames frames from srcFrames source frames, with
 * the instance's rings, phase and filter. Returns the frames written; 0 for types other than
 * KYSAMPLE_F32 and KYSAMPLE_F64, for an instance not opened with method 3, or for more
 * channels than the instance has. A null src drains. Source frames left over when dst
 * fills are not used. */
KY_IMPORT LONG KYAPI KyAudio_Resample_Sinc(KYSAMPLETYPE type, LONG channels, void *dst,
                                          LONG dstFrames, void *src, LONG srcFrames,
                                          HKYRESAMPLE h);
/* One-shot conversion of srcFrames frames into exactly dstFrames frames: the destination
 * rate is truncate(dstFrames / srcFrames x rate), linear interpolation with the order-4
 * anti-alias filter (open flags 0x222); destination frames past the converted end hold the
 * last frame. The source is not modified. Always returns 0 (nothing is done for null
 * pointers, zero counts or an unsupported format). */
KY_IMPORT HRESULT KYAPI KyAudio_Resample(const WAVEFORMATEX *format, void *dst, LONG dstFrames,
                                        const void *src, LONG srcFrames);
/* Stateless nearest-frame conversion without filtering: destination frame k copies source
 * frame floor((k + 1/2) x srcFrames / dstFrames). E_POINTER for null pointers, E_FAIL for
 * an unsupported format; 0 counts do nothing. */
KY_IMPORT HRESULT KYAPI KyAudio_ResampleStupid(const WAVEFORMATEX *format, void *dst,
                                              LONG dstFrames, const void *src, LONG srcFrames);
/* Position mappings (0 for a null handle). SrcFromDst: x = dst x inverse ratio + phase
 * offset, raised to the next integer when non-integral and not negative, plus 1 when the
 * inverse ratio is below 1. DstFromSrc: truncate(src x ratio - phase offset). */
KY_IMPORT LONGLONG KYAPI KyAudio_ResampleGetSrcFromDst(HKYRESAMPLE h, LONGLONG dstFrame);
KY_IMPORT LONGLONG KYAPI KyAudio_ResampleGetDstFromSrc(HKYRESAMPLE h, LONGLONG srcFrame);
/* Positions plus offsets. */
KY_IMPORT LONGLONG KYAPI KyAudio_ResampleGetSrcPos(HKYRESAMPLE h);
KY_IMPORT LONGLONG KYAPI KyAudio_ResampleGetDstPos(HKYRESAMPLE h);
KY_IMPORT void KYAPI KyAudio_ResampleSetSrcPos(HKYRESAMPLE h, LONGLONG pos);
KY_IMPORT void KYAPI KyAudio_ResampleSetDstPos(HKYRESAMPLE h, LONGLONG pos);
KY_IMPORT void KYAPI KyAudio_ResampleSetSrcOffset(HKYRESAMPLE h, LONGLONG offset);
KY_IMPORT void KYAPI KyAudio_ResampleSetDstOffset(HKYRESAMPLE h, LONGLONG offset);
/* Stores the previous-sample record (prevValue, prevParam1, prevParam2) for the caller. */
KY_IMPORT void KYAPI KyAudio_ResampleStuffPrevSample(HKYRESAMPLE h, double value, DWORD param1,
                                                    DWORD param2);

KY_END_DECLS

#endif
