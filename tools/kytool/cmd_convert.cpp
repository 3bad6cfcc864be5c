// kytool convert: converts a WAVE file to another sample type through the library's
// converters, with optional stages on the way (channel count, sample rate, gain, fades).
//
//   read IN -> [no stage asked for] -> convert straight to the target type -> write OUT
//           -> [stages asked for]   -> convert to a float working buffer
//                                   -> channels (100) -> rate (200) -> gain (300)
//                                   -> fade (400) -> convert to the target type -> write OUT
//
// The straight path is exact for every widening conversion. The stages are registered in
// their own files (the rate stage in convert_rate.cpp); this file has the channel, gain and
// fade stages.
#include "convert_pipeline.h"
#include "wave_io.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <algorithm>
#include <string>

#include "ky_audio.h"

namespace kytool::convert {

std::vector<Stage> &StageList() {
  static std::vector<Stage> list;
  return list;
}

void RegisterStage(const Stage &s) {
  auto &l = StageList();
  l.push_back(s);
  std::stable_sort(l.begin(), l.end(), [](const Stage &a, const Stage &b) { return a.order < b.order; });
}

const std::vector<Stage> &Stages() { return StageList(); }

WAVEFORMATEXTENSIBLE MakeFormat(LONG type, WORD channels, DWORD rate) {
  WAVEFORMATEXTENSIBLE x;
  memset(&x, 0, sizeof x);
  x.Format.wFormatTag = WORD(KyAudio_FormatTagFromSampleType(type));
  x.Format.wBitsPerSample = WORD(KyAudio_BitsFromSampleType(type));
  x.Format.nChannels = channels;
  x.Format.nSamplesPerSec = rate;
  x.Format.nBlockAlign = WORD(KyAudio_BytesFromSampleType(type) * channels);
  x.Format.nAvgBytesPerSec = rate * x.Format.nBlockAlign;
  return x;
}

namespace {

bool CopyStep(const Audio &in, LONG type, Audio &out) {
  out.format = MakeFormat(type, in.format.Format.nChannels, in.format.Format.nSamplesPerSec);
  out.frames = in.frames;
  out.data.assign(size_t(in.frames) * out.format.Format.nBlockAlign, 0);
  const HRESULT hr = KyAudio_Copy(&out.format.Format, out.data.data(), &in.format.Format,
                                  in.data.data(), in.frames, 0x3F800000);
  return hr == S_OK;
}

} // namespace

bool ConvertTo(const Audio &in, LONG type, Audio &out) {
  const LONG from = KyAudio_GetSampleType(&in.format.Format);
  if (type == KYSAMPLE_S32BE) {
    // The library has no converter into 32-bit big-endian: convert to 32-bit and swap.
    if (!ConvertTo(in, KYSAMPLE_S32, out)) return false;
    for (size_t i = 0; i + 4 <= out.data.size(); i += 4) {
      std::swap(out.data[i], out.data[i + 3]);
      std::swap(out.data[i + 1], out.data[i + 2]);
    }
    out.format = MakeFormat(type, in.format.Format.nChannels, in.format.Format.nSamplesPerSec);
    return true;
  }
  if (KyAudio_GetCopyFunction2(type, from)) return CopyStep(in, type, out);
  // No direct converter: go through the widest type that both sides reach.
  for (LONG via : {KYSAMPLE_S32, KYSAMPLE_F64, KYSAMPLE_S24, KYSAMPLE_F32, KYSAMPLE_S16}) {
    if (KyAudio_GetCopyFunction2(via, from) && KyAudio_GetCopyFunction2(type, via)) {
      Audio mid;
      return CopyStep(in, via, mid) && CopyStep(mid, type, out);
    }
  }
  fprintf(stderr, "kytool: no conversion from sample type %ld to %ld\n", long(from), long(type));
  return false;
}

namespace {

struct TypeName {
  const char *name;
  LONG type;
};
const TypeName kTypeNames[] = {
    {"u8", KYSAMPLE_U8},       {"s8", KYSAMPLE_S8},       {"s16", KYSAMPLE_S16},
    {"s24", KYSAMPLE_S24},     {"s32", KYSAMPLE_S32},     {"f32", KYSAMPLE_F32},
    {"f64", KYSAMPLE_F64},     {"s24in32", KYSAMPLE_S24IN32}, {"s16be", KYSAMPLE_S16BE},
    {"s24be", KYSAMPLE_S24BE}, {"s32be", KYSAMPLE_S32BE},
};

LONG ParseTypeName(const std::string &s) {
  for (const TypeName &t : kTypeNames)
    if (_stricmp(s.c_str(), t.name) == 0) return t.type;
  return KYSAMPLE_UNKNOWN;
}

const char *NameOfType(LONG type) {
  for (const TypeName &t : kTypeNames)
    if (t.type == type) return t.name;
  return "?";
}

bool ParseNumber(const std::string &text, const char *option, double lo, double hi, double *out) {
  char *end = nullptr;
  const double v = strtod(text.c_str(), &end);
  if (text.empty() || *end || !(v >= lo && v <= hi)) {
    fprintf(stderr, "kytool: %s wants a number from %g to %g, not \"%s\"\n", option, lo, hi,
            text.c_str());
    return false;
  }
  *out = v;
  return true;
}

// ---- channels: mono fold-down and mono expansion ----
int g_channels = 0;

bool ChannelsParse(Args &args) {
  g_channels = 0;
  const std::string v = TakeOption(args, "--channels", "");
  if (v.empty()) return true;
  double n;
  if (!ParseNumber(v, "--channels", 1, 2, &n) || n != floor(n)) return false;
  g_channels = int(n);
  return true;
}
bool ChannelsActive() { return g_channels != 0; }

bool ChannelsRun(Audio &work) {
  const WAVEFORMATEX &f = work.format.Format;
  if (f.nChannels == g_channels) return true;
  const LONG type = KyAudio_GetSampleType(&f);
  Audio out;
  out.format = MakeFormat(type, WORD(g_channels), f.nSamplesPerSec);
  out.frames = work.frames;
  out.data.assign(size_t(work.frames) * out.format.Format.nBlockAlign, 0);
  HRESULT hr;
  if (g_channels == 1 && type == KYSAMPLE_F64) {
    // Folding down has no float64 loop: mix every channel into the mono buffer instead,
    // which sums the same way.
    std::vector<LONG> map(f.nChannels, 0);
    std::vector<double> gains(f.nChannels, 1.0);
    hr = KyAudio_MixChannels(&out.format.Format, out.data.data(), &f, work.data.data(),
                             work.frames, gains.data(), map.data());
  } else {
    hr = KyAudio_ChannelChange(out.data.data(), g_channels, work.data.data(), &f, work.frames);
  }
  if (hr != S_OK) {
    fprintf(stderr, "kytool: cannot change %u channels to %d (status 0x%08lX)\n",
            unsigned(f.nChannels), g_channels, (unsigned long)hr);
    return false;
  }
  work = std::move(out);
  return true;
}

// ---- gain in decibels ----
double g_gainDb = 0.0;
bool g_gain = false;

bool GainParse(Args &args) {
  g_gain = false;
  g_gainDb = 0.0;
  const std::string v = TakeOption(args, "--gain", "");
  if (v.empty()) return true;
  g_gain = true;
  return ParseNumber(v, "--gain", -200, 200, &g_gainDb);
}
bool GainActive() { return g_gain; }

bool GainRun(Audio &work) {
  const WAVEFORMATEX &f = work.format.Format;
  std::vector<double> gains(f.nChannels, pow(10.0, g_gainDb / 20.0));
  const HRESULT hr = KyAudio_SetGain(work.data.data(), &f, work.frames, gains.data());
  if (hr != S_OK) fprintf(stderr, "kytool: gain failed (status 0x%08lX)\n", (unsigned long)hr);
  return hr == S_OK;
}

// ---- fade in and out: a straight attack from silence and release to silence ----
double g_fadeInMs = 0.0, g_fadeOutMs = 0.0;

bool FadeParse(Args &args) {
  g_fadeInMs = g_fadeOutMs = 0.0;
  const std::string in = TakeOption(args, "--fade-in", "");
  const std::string out = TakeOption(args, "--fade-out", "");
  if (!in.empty() && !ParseNumber(in, "--fade-in", 0, 1e9, &g_fadeInMs)) return false;
  if (!out.empty() && !ParseNumber(out, "--fade-out", 0, 1e9, &g_fadeOutMs)) return false;
  return true;
}
bool FadeActive() { return g_fadeInMs > 0 || g_fadeOutMs > 0; }

bool FadeRun(Audio &work) {
  const WAVEFORMATEX &f = work.format.Format;
  tKYASR asr = {};
  asr.startLevel = 0.0f;
  asr.attackTime = LONGLONG(g_fadeInMs * 1e4 + 0.5);
  asr.sustainLevel = 1.0f;
  asr.releaseTime = LONGLONG(g_fadeOutMs * 1e4 + 0.5);
  asr.endLevel = 0.0f;
  // The whole file is the envelope's length, so the release ends on the last frame.
  const LONGLONG total = LONGLONG(double(work.frames) * 1e7 / f.nSamplesPerSec + 0.5);
  tKYASRCOOKED cooked;
  HRESULT hr = KyAudio_ASRCook(&f, &asr, &cooked, 0, total, 1.0);
  std::vector<uint8_t> out(work.data.size(), 0);
  if (hr == S_OK)
    hr = KyAudio_MixEx(&f, out.data(), &f, work.data.data(), work.frames, &cooked);
  if (hr != S_OK) {
    fprintf(stderr, "kytool: fade failed (status 0x%08lX)\n", (unsigned long)hr);
    return false;
  }
  work.data.swap(out);
  return true;
}

const StageRegistrar kChannels({"channels", "[--channels 1|2]", kOrderChannels, ChannelsParse,
                                ChannelsActive, ChannelsRun});
const StageRegistrar kGain({"gain", "[--gain DB]", kOrderGain, GainParse, GainActive, GainRun});
const StageRegistrar kFade({"fade", "[--fade-in MS] [--fade-out MS]", kOrderFade, FadeParse,
                            FadeActive, FadeRun});

std::string Describe(const Audio &a) {
  char attribs[160] = "", tag[64] = "";
  KyAudio_GetAttribsText(&a.format.Format, attribs, sizeof attribs);
  KyAudio_GetTagText(a.format.Format.wFormatTag, tag, sizeof tag);
  char line[320];
  snprintf(line, sizeof line, "%s %s, %s, %ld frames", tag,
           NameOfType(KyAudio_GetSampleType(&a.format.Format)), attribs, long(a.frames));
  return line;
}

int Convert(const Args &in) {
  Args args = in;
  const std::string to = TakeOption(args, "--to", "");
  for (const Stage &s : Stages())
    if (!s.parse(args)) return 2;
  if (args.size() != 2) {
    fprintf(stderr, "kytool: convert wants IN.wav OUT.wav [--to TYPE]\n");
    return 2;
  }
  // Without --to the output keeps the input's sample type.
  LONG target = to.empty() ? KYSAMPLE_UNKNOWN : ParseTypeName(to);
  if (!to.empty() && target == KYSAMPLE_UNKNOWN) {
    fprintf(stderr, "kytool: unknown sample type \"%s\" (u8 s8 s16 s24 s32 f32 f64 s24in32 "
                    "s16be s24be s32be)\n", to.c_str());
    return 2;
  }
  Audio src, dst;
  if (!ReadWave(args[0], src)) return 1;
  printf("in:  %s\n", Describe(src).c_str());
  if (to.empty()) target = KyAudio_GetSampleType(&src.format.Format);

  bool anyStage = false;
  for (const Stage &s : Stages()) anyStage = anyStage || s.active();
  if (!anyStage) {
    if (!ConvertTo(src, target, dst)) return 1;
  } else {
    // Stages work on float: float32 keeps every sample of up to 24 bits exactly.
    const LONG from = KyAudio_GetSampleType(&src.format.Format);
    const bool wide = from == KYSAMPLE_S32 || from == KYSAMPLE_S32BE || from == KYSAMPLE_F64;
    Audio work;
    if (!ConvertTo(src, wide ? KYSAMPLE_F64 : KYSAMPLE_F32, work)) return 1;
    for (const Stage &s : Stages()) {
      if (!s.active()) continue;
      if (!s.run(work)) return 1;
    }
    if (!ConvertTo(work, target, dst)) return 1;
  }
  if (!WriteWave(args[1], dst)) return 1;
  printf("out: %s\n", Describe(dst).c_str());
  return 0;
}

int Demo(const Args &) {
  const std::string in = SamplePath("tone_s16_stereo.wav");
  char tmp[MAX_PATH];
  GetTempPathA(MAX_PATH, tmp);
  const std::string f32 = std::string(tmp) + "kytool_convert_f32.wav";
  const std::string s24 = std::string(tmp) + "kytool_convert_s24_mono.wav";
  const std::string r48 = std::string(tmp) + "kytool_convert_48k.wav";
  int rc = Convert({in, f32, "--to", "f32"});
  rc |= Convert({f32, s24, "--to", "s24", "--channels", "1", "--gain", "-6", "--fade-in", "20",
                 "--fade-out", "50"});
  rc |= Convert({in, r48, "--rate", "48000", "--method", "sinc"});
  DeleteFileA(f32.c_str());
  DeleteFileA(s24.c_str());
  DeleteFileA(r48.c_str());
  return rc;
}

} // namespace

} // namespace kytool::convert

// Each stage's options belong in this usage line.
KYTOOL_COMMAND("convert",
               "IN.wav OUT.wav [--to TYPE] [--channels 1|2] [--rate HZ [--method linear|sinc] "
               "[--antialias 0|2|4|6]] [--gain DB] [--fade-in MS --fade-out MS]",
               "convert a WAVE file between sample types, with channel, rate, gain and fade stages",
               kytool::convert::Convert, kytool::convert::Demo, 50);
