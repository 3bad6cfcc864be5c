// kytool's minimal WAVE reader and writer: one "fmt " and one "data" chunk.
#pragma once

#include <string>
#include "convert_pipeline.h"

namespace kytool::convert {

// Reads a WAVE file: the format (an extensible float header is read as tag 3; a PCM header
// with a 20-bit sample size is repaired by KyAudio_FixBadWfx) and the whole data chunk.
// False with a message printed on failure.
bool ReadWave(const std::string &path, Audio &out);
// Writes a WAVE file: RIFF header, "fmt " (16 bytes for PCM, 18 for the other tags) and
// "data", padded to an even size. False with a message printed on failure.
bool WriteWave(const std::string &path, const Audio &in);

} // namespace kytool::convert
