// kytool convert: the audio buffer that passes through the conversion and the optional
// processing stages. A stage lives in its own file and registers itself; the command runs
// the active stages in their order on an interleaved float buffer (float32, or float64 for
// sources with more than 24 significant bits).
#pragma once

#include <windows.h>
#include <mmreg.h>
#include <stdint.h>
#include <vector>

#include "kytool.h"

namespace kytool::convert {

struct Audio {
  WAVEFORMATEXTENSIBLE format; // Format.nChannels, nSamplesPerSec and the sample type
  std::vector<uint8_t> data;   // frames x nBlockAlign bytes, interleaved
  LONG frames = 0;
};

// Stage orders: the channel change first, then the sample rate, then gain and fades (whose
// times are in milliseconds of the final rate).
constexpr int kOrderChannels = 100;
constexpr int kOrderRate = 200;
constexpr int kOrderGain = 300;
constexpr int kOrderFade = 400;

struct Stage {
  const char *name;
  const char *usage; // the stage's options (also listed in the command's usage line)
  int order;
  // Takes the stage's options out of args; false (with a message printed) when one is bad.
  bool (*parse)(Args &args);
  bool (*active)();            // whether the options asked for this stage
  bool (*run)(Audio &work);    // false (with a message printed) on failure
};

void RegisterStage(const Stage &s);
const std::vector<Stage> &Stages(); // in order

struct StageRegistrar {
  explicit StageRegistrar(const Stage &s) { RegisterStage(s); }
};

// A format of `type` with the given channels and rate (nBlockAlign and nAvgBytesPerSec set).
WAVEFORMATEXTENSIBLE MakeFormat(LONG type, WORD channels, DWORD rate);
// Converts `in` to `type` through the library's converters (through an intermediate type
// where the library has no direct converter). False with a message when impossible.
bool ConvertTo(const Audio &in, LONG type, Audio &out);

} // namespace kytool::convert
