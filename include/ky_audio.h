/* tellarok audio sample formats, conversion, mixing, channel operations and gain envelopes.
 *
 * Every audio buffer is interleaved: a frame holds one sample of each channel. A format is
 * described by the platform's WAVEFORMATEX (WAVEFORMATEXTENSIBLE for tag 0xFFFE) and
 * classified into one KYSAMPLETYPE. Per-pair work is table-driven: a KyAudio_Get...Function
 * export returns the routine for a (destination, source) pair once, so the per-buffer loops
 * contain no type switch; the matching one-shot export looks the routine up and runs it.
 * Destination arguments always come before source arguments.
 *
 * Results: 0 for success, E_NOTIMPL when no routine exists for a pair of types, E_FAIL for
 * an unsupported format or argument (a negative frame count included), E_POINTER for a
 * missing buffer, gain array or envelope when there is work to do. A null format counts as
 * an unsupported one (type 0).
 *
 * Float to integer conversion truncates toward zero and clamps to the type's range; nothing
 * dithers. All functions are reentrant; buffers may be shared only as each function says. */
#ifndef TELLAROK_KY_AUDIO_H
#define TELLAROK_KY_AUDIO_H

#include "ky_base.h"
#include <mmreg.h>

/* The library's private format tags. */
#define KYWAVE_FORMAT_UNPACKED  0xFE00 /* 24-bit sample right-aligned in a 32-bit word */
#define KYWAVE_FORMAT_SIGNED    0xFE01 /* 8-bit signed PCM (wider sizes are plain PCM) */
#define KYWAVE_FORMAT_BIGENDIAN 0xFE02 /* big-endian PCM (8-bit is unsigned as in PCM) */

/* Sample types. The values are stored and passed by callers and never change. */
typedef LONG KYSAMPLETYPE;
#define KYSAMPLE_UNKNOWN  0
#define KYSAMPLE_U8       16 /* 8-bit unsigned PCM, silence 0x80 */
#define KYSAMPLE_S16      17 /* 16-bit signed little-endian */
#define KYSAMPLE_S24      18 /* 24-bit signed little-endian, packed in 3 bytes */
#define KYSAMPLE_S32      19 /* 32-bit signed little-endian */
#define KYSAMPLE_F32      32 /* 32-bit IEEE float, full scale +-1.0 */
#define KYSAMPLE_F64      33 /* 64-bit IEEE float, full scale +-1.0 */
#define KYSAMPLE_S24IN32  48 /* 24-bit signed value sign-extended in a 32-bit word */
#define KYSAMPLE_S8       49 /* 8-bit signed PCM, silence 0 */
#define KYSAMPLE_S16BE    64 /* 16-bit signed big-endian */
#define KYSAMPLE_S24BE    65 /* 24-bit signed big-endian, 3 bytes */
#define KYSAMPLE_S32BE    66 /* 32-bit signed big-endian */

/* Gain envelope as the caller describes it (attack - sustain - release). Times are in
 * 100-nanosecond units; levels are linear gains. Curve codes: 0 and +-1 straight lines,
 * above 1 a quadratic curve that starts flat and ends steep, below -1 one that starts steep
 * and ends flat. */
typedef struct tKYASR {
  DWORD reserved;      /* not read */
  float startLevel;    /* gain at the start of the attack */
  LONGLONG attackTime;
  LONGLONG releaseTime;
  LONG attackCurve;
  float sustainLevel;  /* gain between attack and release */
  LONG releaseCurve;
  float endLevel;      /* gain after the release, forever */
} tKYASR;
KY_CHECK_SIZE(tKYASR, 40);
KY_CHECK_OFFSET(tKYASR, attackTime, 8);
KY_CHECK_OFFSET(tKYASR, attackCurve, 24);
KY_CHECK_OFFSET(tKYASR, endLevel, 36);

/* The envelope cooked into per-frame steps for one sample type (written by KyAudio_ASRCook,
 * advanced by the KyAudio_MixEx mixers). Levels are pre-multiplied by the gain and by the
 * source type's full-scale factor, so value times a raw source sample is a float sample. */
typedef struct tKYASRCOOKED {
  LONG attackCurve;
  LONG releaseCurve;
  DWORD attackFrames;   /* 0..0x7FFFFFFF */
  DWORD releaseFrames;  /* 0..0x7FFFFFFF */
  LONGLONG sustainFrames;
  LONGLONG position;    /* frame position of the last re-cook */
  double startLevel;
  double sustainLevel;
  double endLevel;
  LONGLONG remaining;   /* frames left in the current segment */
  double value;         /* current gain */
  double step;          /* added to value after each frame */
  double stepChange;    /* added to step after each frame (0 on straight lines) */
} tKYASRCOOKED;
KY_CHECK_SIZE(tKYASRCOOKED, 88);
KY_CHECK_OFFSET(tKYASRCOOKED, sustainFrames, 16);
KY_CHECK_OFFSET(tKYASRCOOKED, startLevel, 32);
KY_CHECK_OFFSET(tKYASRCOOKED, remaining, 56);
KY_CHECK_OFFSET(tKYASRCOOKED, stepChange, 80);

/* Per-pair routines (all stdcall). `samples` counts samples (frames x channels). */
/* Converter: widening walks backwards and narrowing forwards, so dst may equal src. */
typedef void (KYAPI *KYAUDIOCOPYFUNC)(void *dst, const void *src, LONG samples, float gain);
/* Mixer: dst += gain x src; gains holds one double per channel. dst == src does nothing. */
typedef void (KYAPI *KYAUDIOMIXFUNC)(void *dst, const void *src, LONG samples, LONG channels,
                                     const double *gains);
/* Envelope mixer: dst += envelope gain x src, the gain advancing once per frame. */
typedef void (KYAPI *KYAUDIOMIXEXFUNC)(void *dst, const void *src, LONG samples,
                                       LONG channels, tKYASRCOOKED *envelope);
/* Channel router: converts one channel; dst and src point at the first sample of that
 * channel and the strides are the channel counts of the two buffers. */
typedef void (KYAPI *KYAUDIOROUTEFUNC)(void *dst, LONG dstChannels, const void *src,
                                       LONG srcChannels, LONG frames);
/* Channel mixer: mixes one channel with one gain, strides as for the router. */
typedef void (KYAPI *KYAUDIOMIXCHANNELFUNC)(void *dst, LONG dstChannels, const void *src,
                                            LONG srcChannels, LONG frames, double gain);
/* Peak scanner: the largest absolute sample of each channel into peaks[channel]. Integer
 * types give it in the type's own units (an 8-bit unsigned sample counts from 0x80, so the
 * most is 128; the most negative 32-bit sample gives 0x80000000); float types give the
 * magnitude's float bit pattern. */
typedef void (KYAPI *KYAUDIOPEAKSFUNC)(const void *data, LONG channels, LONG frames,
                                       DWORD *peaks);

KY_BEGIN_DECLS
/* ---- classification and sizes ---- */
/* The sample type of a format (0 for anything unsupported, null included). */
KY_IMPORT KYSAMPLETYPE KYAPI KyAudio_GetSampleType(const WAVEFORMATEX *format);
/* Bits, bytes per sample and the format tag of a type; 0 for a value not listed above. */
KY_IMPORT LONG KYAPI KyAudio_BitsFromSampleType(KYSAMPLETYPE type);
KY_IMPORT LONG KYAPI KyAudio_BytesFromSampleType(KYSAMPLETYPE type);
KY_IMPORT LONG KYAPI KyAudio_FormatTagFromSampleType(KYSAMPLETYPE type);
/* 2^(bits-1) for 8, 16, 24 and 32 bits; 1.0 for anything else. */
KY_IMPORT double KYAPI KyAudio_GetNormalizeFactor(LONG bits);
/* Repairs a PCM (tag 1) header: 20 bits per sample become 24, and nBlockAlign becomes
 * bits/8 x nChannels. TRUE when a field changed; FALSE otherwise, for other tags and for
 * null. nAvgBytesPerSec is deliberately left alone. */
KY_IMPORT BOOL KYAPI KyAudio_FixBadWfx(WAVEFORMATEX *format);
/* TRUE when channels, rate, bits and tag are equal (nBlockAlign and the extensible
 * SubFormat are not compared). Null never equals anything. */
KY_IMPORT BOOL KYAPI KyAudio_IsEqualFormat(const WAVEFORMATEX *a, const WAVEFORMATEX *b);

/* ---- conversion ---- */
/* The converter for a pair of types or formats, or null when the pair has none. Some pairs
 * have processor-specific loops, chosen by KyGetCPUSupport (level 0-1 always the plain loop;
 * the packed 24-bit <-> float32 pairs use byte shuffles when the feature bits report SSSE3);
 * every loop gives the same bits. */
KY_IMPORT KYAUDIOCOPYFUNC KYAPI KyAudio_GetCopyFunction2(KYSAMPLETYPE dstType,
                                                         KYSAMPLETYPE srcType);
KY_IMPORT KYAUDIOCOPYFUNC KYAPI KyAudio_GetCopyFunction(const WAVEFORMATEX *dstFormat,
                                                        const WAVEFORMATEX *srcFormat);
/* Converts frames x the source's channel count samples; gainBits is a float's bit pattern
 * (0x3F800000 is 1.0). 0 frames returns 0 at once; no converter: E_NOTIMPL. */
KY_IMPORT HRESULT KYAPI KyAudio_Copy(const WAVEFORMATEX *dstFormat, void *dst,
                                     const WAVEFORMATEX *srcFormat, const void *src,
                                     LONG frames, DWORD gainBits);

/* ---- mixing (types 16 to 49; big-endian types have no mixers) ---- */
/* Mixers add gain x source to the destination, sample by sample. Into floating-point
 * destinations the gain cycles through the per-channel array; 16-bit into 16-bit uses
 * gains[0] for every channel (deliberately), truncating and clamping the scaled source
 * before the addition and clamping the sum. The two formats must have the same channel
 * count (E_FAIL otherwise). */
KY_IMPORT KYAUDIOMIXFUNC KYAPI KyAudio_GetMixFunction(const WAVEFORMATEX *dstFormat,
                                                      const WAVEFORMATEX *srcFormat);
KY_IMPORT HRESULT KYAPI KyAudio_Mix(const WAVEFORMATEX *dstFormat, void *dst,
                                    const WAVEFORMATEX *srcFormat, const void *src,
                                    LONG frames, const double *gains);
/* As Mix with the per-frame gain of a cooked envelope (cooked for the source's format),
 * which advances by the frames mixed. */
KY_IMPORT KYAUDIOMIXEXFUNC KYAPI KyAudio_GetMixExFunction(const WAVEFORMATEX *dstFormat,
                                                          const WAVEFORMATEX *srcFormat);
KY_IMPORT HRESULT KYAPI KyAudio_MixEx(const WAVEFORMATEX *dstFormat, void *dst,
                                      const WAVEFORMATEX *srcFormat, const void *src,
                                      LONG frames, tKYASRCOOKED *envelope);
/* Mixes source channel i into destination channel map[i] with gains[i] (the gain of the
 * source channel); entries outside 0..dst channels-1 skip that channel. A null map or
 * equal channel counts mix channel for channel as KyAudio_Mix does. */
KY_IMPORT KYAUDIOMIXCHANNELFUNC KYAPI KyAudio_GetMixChannelsFunction(
    const WAVEFORMATEX *dstFormat, const WAVEFORMATEX *srcFormat);
KY_IMPORT HRESULT KYAPI KyAudio_MixChannels(const WAVEFORMATEX *dstFormat, void *dst,
                                            const WAVEFORMATEX *srcFormat, const void *src,
                                            LONG frames, const double *gains,
                                            const LONG *map);

/* ---- channel operations ---- */
/* Converts source channel i into destination channel map[i] (entries outside the
 * destination's channels skip the channel; unnamed destination channels are untouched).
 * A null map or equal channel counts make it KyAudio_Copy at unity gain. */
KY_IMPORT KYAUDIOROUTEFUNC KYAPI KyAudio_GetCopyChannelsFunction(const WAVEFORMATEX *dstFormat,
                                                                 const WAVEFORMATEX *srcFormat);
KY_IMPORT HRESULT KYAPI KyAudio_CopyChannels(const WAVEFORMATEX *dstFormat, void *dst,
                                             const WAVEFORMATEX *srcFormat, const void *src,
                                             LONG frames, const LONG *map);
/* Changes the channel count at the source's type: equal counts copy; a mono destination
 * sums every channel (types 16, 17, 18 and 32 only; the sum is not divided, so a fold-down
 * is louder than its parts); a mono source is written to every destination channel (may be
 * done in place). Other changes: E_FAIL. */
KY_IMPORT HRESULT KYAPI KyAudio_ChannelChange(void *dst, LONG dstChannels, const void *src,
                                              const WAVEFORMATEX *srcFormat, LONG frames);
/* Copies channel `channel` into a mono buffer of the same type (E_FAIL for a bad index). */
KY_IMPORT HRESULT KYAPI KyAudio_ExtractChannel(void *dst, LONG channel, const void *src,
                                               const WAVEFORMATEX *srcFormat, LONG frames);
/* Folds all channels into a mono buffer of the same type, as KyAudio_ChannelChange does. */
KY_IMPORT HRESULT KYAPI KyAudio_MonoChannel(void *dst, const void *src,
                                            const WAVEFORMATEX *srcFormat, LONG frames);
/* Writes silence over nBlockAlign x frames bytes: 0x80 for 8-bit PCM, big-endian and
 * extensible, 0 otherwise. E_FAIL for tags other than 1, 3, 0xFE00-0xFE02 and 0xFFFE; an
 * extensible format that is not PCM returns 0 without writing (deliberately). */
KY_IMPORT HRESULT KYAPI KyAudio_FillSilence(const WAVEFORMATEX *format, void *data, LONG frames);
/* Silences one channel; E_FAIL for an index outside the format's channels. */
KY_IMPORT HRESULT KYAPI KyAudio_FillSilenceChannel(const WAVEFORMATEX *format, void *data,
                                                   LONG channel, LONG frames);
/* Multiplies float samples by gains[channel] (float32 products formed in double). Types
 * other than 32 and 33: E_FAIL; frames < 1: 0. */
KY_IMPORT HRESULT KYAPI KyAudio_SetGain(void *data, const WAVEFORMATEX *format, LONG frames,
                                        const double *gains);
/* Linear cross-fade from src into dst over frames, float32 only and always over two
 * interleaved channels whatever the format says (deliberately stereo): the source starts
 * at full weight, the destination at 0. Float64 returns 0 doing nothing; others E_FAIL. */
KY_IMPORT HRESULT KYAPI KyAudio_DoFlushFade(void *dst, const void *src,
                                            const WAVEFORMATEX *format, LONG frames);
/* Peak scanners (types 16 to 49); see KYAUDIOPEAKSFUNC for the result. No scanner for the
 * type: null / E_NOTIMPL. peaks receives one value per channel. */
KY_IMPORT KYAUDIOPEAKSFUNC KYAPI KyAudio_GetFindPeaksFunction(const WAVEFORMATEX *format);
KY_IMPORT HRESULT KYAPI KyAudio_FindPeaks(const WAVEFORMATEX *format, const void *data,
                                          LONG frames, DWORD *peaks);
/* Reverses the order of the frames (channels keep their order); dst may equal src,
 * otherwise the buffers must not overlap. Any supported type; E_FAIL for type 0. */
KY_IMPORT HRESULT KYAPI KyAudio_Reverse(const WAVEFORMATEX *format, void *dst,
                                        const void *src, LONG frames);

/* ---- texts ---- */
/* Name of a format tag ("PCM", "PCM (float)", ... or the Audio Compression Manager's name);
 * "Unknown" and E_FAIL when nobody knows it. Null buffer: 0 without writing. The text is
 * cut to `size` characters and always terminated. */
KY_IMPORT HRESULT KYAPI KyAudio_GetTagText(DWORD tag, char *buffer, LONG size);
/* Description of a format, e.g. "44,100 Hz, 16-bit, Stereo"; as KyAudio_GetTagText. */
KY_IMPORT HRESULT KYAPI KyAudio_GetAttribsText(const WAVEFORMATEX *format, char *buffer,
                                               LONG size);

/* ---- envelopes ---- */
/* Cooks `asr` for `format` (its rate and type): attack and release lengths in frames from
 * their times, the total length (100-ns units) giving the sustain; when attack + release
 * exceed the total, the total is split equally (the odd frame to the attack). Levels are
 * multiplied by `gain` and the type's full-scale factor. Then re-cooks at `position`
 * (frames). Any format is accepted: a type without a full-scale factor (float, the
 * unpacked and 8-bit signed types) leaves the levels at the gain alone, and the mixers
 * scale such sources themselves. E_POINTER for a null argument. */
KY_IMPORT HRESULT KYAPI KyAudio_ASRCook(const WAVEFORMATEX *format, const tKYASR *asr,
                                        tKYASRCOOKED *cooked, LONGLONG position,
                                        LONGLONG totalLength, double gain);
/* Sets value, step and remaining for frame `position`; past the release the end level
 * holds with an endless remaining count. E_POINTER for null. */
KY_IMPORT HRESULT KYAPI KyAudio_ASRReCook(tKYASRCOOKED *cooked, LONGLONG position);
KY_END_DECLS

#endif
