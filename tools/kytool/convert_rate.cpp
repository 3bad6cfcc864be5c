// kytool convert --rate HZ [--method linear|sinc] [--antialias 0|2|4|6]: the sample-rate
// stage of the conversion pipeline. It runs on the float working buffer through one
// resampler instance: the whole file as one block, then a drain for the last frames, so a
// file of N frames becomes ceil(N x new rate / old rate) frames.
//
// --method sinc (the default) is the 25-tap windowed-sinc engine, linear the interpolating
// one; --antialias adds the Butterworth low-pass of that order at the lower Nyquist
// frequency (0, the default, leaves it out).
#include "convert_pipeline.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string>

#include "ky_audio.h"
#include "ky_resample.h"

namespace kytool::convert {
namespace {

LONG g_rate = 0;
WORD g_flags = KYRESAMPLE_SINC;

bool RateParse(Args &args) {
  g_rate = 0;  // each conversion starts from no stage (the demonstration runs several)
  g_flags = KYRESAMPLE_SINC;
  const std::string rate = TakeOption(args, "--rate", "");
  const std::string method = TakeOption(args, "--method", "");
  const std::string aa = TakeOption(args, "--antialias", "");
  if (rate.empty()) {
    if (method.empty() && aa.empty()) return true;
    fprintf(stderr, "kytool: --method and --antialias go with --rate\n");
    return false;
  }
  char *end = nullptr;
  const long hz = strtol(rate.c_str(), &end, 10);
  if (*end || hz < 1 || hz > 1000000) {
    fprintf(stderr, "kytool: --rate wants a sample rate from 1 to 1000000 Hz, not \"%s\"\n",
            rate.c_str());
    return false;
  }
  g_rate = hz;
  WORD m = KYRESAMPLE_SINC;
  if (method == "linear") {
    m = KYRESAMPLE_LINEAR;
  } else if (!method.empty() && method != "sinc") {
    fprintf(stderr, "kytool: --method is linear or sinc, not \"%s\"\n", method.c_str());
    return false;
  }
  WORD order = 0;
  if (aa == "2") order = KYRESAMPLE_AA_ORDER2;
  else if (aa == "4") order = KYRESAMPLE_AA_ORDER4;
  else if (aa == "6") order = KYRESAMPLE_AA_ORDER6;
  else if (!aa.empty() && aa != "0") {
    fprintf(stderr, "kytool: --antialias is 0, 2, 4 or 6, not \"%s\"\n", aa.c_str());
    return false;
  }
  g_flags = static_cast<WORD>(m | order);
  return true;
}

bool RateActive() { return g_rate != 0; }

bool RateRun(Audio &work) {
  const WAVEFORMATEX &f = work.format.Format;
  const LONG type = KyAudio_GetSampleType(&f);
  const LONG from = static_cast<LONG>(f.nSamplesPerSec);
  if (from == g_rate) return true;
  HKYRESAMPLE h = nullptr;
  HRESULT hr = KyAudio_ResampleOpen(&h, type, from, g_rate, f.nChannels, g_flags);
  if (FAILED(hr)) {
    fprintf(stderr, "kytool: cannot convert %ld Hz to %ld Hz (status 0x%08lX)\n", long(from),
            long(g_rate), (unsigned long)hr);
    return false;
  }
  // Room for the block and for the drain, as KyAudio_ResampleEx asks.
  const double ratio = h->ratio;
  const size_t room = size_t(ceil(work.frames * ratio) + 2 + ceil(13 * ratio) + 2);
  Audio out;
  out.format = MakeFormat(type, f.nChannels, DWORD(g_rate));
  const size_t frameBytes = out.format.Format.nBlockAlign;
  out.data.assign(room * frameBytes, 0);
  LONG n = 0;
  // (A down-sampling filter runs over the working buffer in place: it is ours to change.)
  if (work.frames > 0) n = KyAudio_ResampleEx(h, out.data.data(), work.data.data(), work.frames);
  n += KyAudio_ResampleEx(h, out.data.data() + size_t(n) * frameBytes, nullptr, 0);
  KyAudio_ResampleClose(h);
  out.frames = n;
  out.data.resize(size_t(n) * frameBytes);
  work = std::move(out);
  return true;
}

const StageRegistrar kRate({"rate", "[--rate HZ [--method linear|sinc] [--antialias 0|2|4|6]]",
                            kOrderRate, RateParse, RateActive, RateRun});

} // namespace
} // namespace kytool::convert
