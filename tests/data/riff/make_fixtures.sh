#!/usr/bin/env bash
# Makes the chunk-test fixtures of this folder with writers independent of tellarok:
# SoX, libsndfile (a small C program), and the npm package "wavefile"; then the damaged
# variants, cut and patched by hand from those files (damage.py). Not part of the build or CI:
# run it by hand and commit the results. Needs sox, libsndfile1-dev, gcc, node/npm, python3.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$here"

# SoX: 16-bit mono PCM, 40 samples; 24-bit mono with an odd data size (extensible format);
# 32-bit float stereo (adds a "fact" chunk).
sox -n -r 8000 -c 1 -b 16 -e signed-integer sox_s16.wav synth 0.005 sine 440
sox -n -r 8000 -c 1 -b 24 -e signed-integer sox_s24_odd.wav synth 0.000375 sine 440
sox -n -r 8000 -c 2 -b 32 -e floating-point sox_f32.wav synth 0.0005 sine 440

# libsndfile: a WAVE with "cue " and LIST "INFO", and the 64-bit GUID-chunk container.
cat > "$work/sf.c" <<'C'
#include <sndfile.h>
#include <string.h>
#include <stdlib.h>
static void write_file(const char *path, int format, int cues) {
  SF_INFO info; memset(&info, 0, sizeof info);
  info.samplerate = 8000; info.channels = 1; info.format = format;
  SNDFILE *f = sf_open(path, SFM_WRITE, &info);
  if (!f) { fprintf(stderr, "%s: %s\n", path, sf_strerror(NULL)); exit(1); }
  if (cues) {
    SF_CUES c; memset(&c, 0, sizeof c);
    c.cue_count = 2;
    for (int i = 0; i < 2; ++i) {
      c.cue_points[i].indx = i + 1; c.cue_points[i].position = 10 * (i + 1);
      c.cue_points[i].fcc_chunk = 0x61746164; c.cue_points[i].sample_offset = 10 * (i + 1);
    }
    sf_command(f, SFC_SET_CUE, &c, sizeof c);
    sf_set_string(f, SF_STR_TITLE, "Tone");
    sf_set_string(f, SF_STR_ARTIST, "Test");
  }
  short s[50]; for (int i = 0; i < 50; ++i) s[i] = (short)(i * 100);
  sf_write_short(f, s, 50);
  sf_close(f);
}
int main(void) {
  write_file("sndfile_cue.wav", SF_FORMAT_WAV | SF_FORMAT_PCM_16, 1);
  write_file("sndfile_s16.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_16, 0);
  write_file("sndfile_odd.w64", SF_FORMAT_W64 | SF_FORMAT_PCM_U8, 0);
  return 0;
}
C
sed -i 's/#include <sndfile.h>/#include <stdio.h>\n#include <sndfile.h>/' "$work/sf.c"
gcc -O1 -o "$work/sf" "$work/sf.c" -lsndfile
"$work/sf"
# 50 unsigned 8-bit samples give odd-free but non-multiple-of-8 data (50 bytes).

# npm wavefile: cue points with labels and a region, and an INFO title.
(cd "$work" && npm install --silent --no-audit --no-fund wavefile@11 >/dev/null)
cat > "$work/wf.js" <<'JS'
const { WaveFile } = require('wavefile');
const w = new WaveFile();
const samples = new Int16Array(800);
for (let i = 0; i < samples.length; ++i) samples[i] = Math.round(8000 * Math.sin(i / 5));
w.fromScratch(1, 8000, '16', samples);
w.setCuePoint({ position: 10, label: 'first' });
w.setCuePoint({ position: 50, end: 80, label: 'region' });
w.setTag('INAM', 'Markers');
require('fs').writeFileSync(process.argv[2], w.toBuffer());
JS
(cd "$work" && node wf.js "$here/wavefile_markers.wav")

python3 "$here/damage.py" "$here"
ls -l "$here"
