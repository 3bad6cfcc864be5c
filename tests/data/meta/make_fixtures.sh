#!/usr/bin/env bash
# Regenerates the metadata fixtures of tests/data/meta from independent writers (SoX,
# libsndfile, the npm "wavefile" package) and records soxi's view of them in soxi.txt.
# Not run by the build: the files it makes are committed. Needs sox, libsndfile1-dev, node/npm.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$here"

# AIFF from SoX at common and odd rates and sample sizes (a short sine each).
for spec in s8:8000:1 s16:11025:1 s16:22050:2 s16:37800:1 s16:44100:2 s24:48000:2 \
            s32:96000:1 s24:192000:1 s16:32000:1 s8:44100:2; do
  IFS=: read -r fmt rate ch <<<"$spec"
  bits=${fmt#s}
  sox -n -r "$rate" -e signed -b "$bits" -c "$ch" "sox_${fmt}_${rate}_${ch}.aiff" synth 0.01 sine 440
done
# An odd number of 8-bit samples: SoX leaves the pad byte out of the FORM size.
sox -n -r 11025 -e signed -b 8 -c 1 sox_s8_11025_1_odd.aiff synth 0.001 sine 440
sox -n -r 44100 -e floating-point -b 32 -c 1 sox_f32_44100_1.aifc synth 0.01 sine 440
# WAVE from SoX: u8, s16, float (-t wavpcm keeps tag 1/3 instead of the extensible form) and one
# 24-bit extensible file.
sox -n -r 8000 -e unsigned -b 8 -c 1 sox_u8_8000_1.wav synth 0.01 sine 440
sox -n -r 44100 -e signed -b 16 -c 2 sox_s16_44100_2.wav synth 0.01 sine 440
sox -n -r 22050 -e floating-point -b 32 -c 1 -t wavpcm sox_f32_22050_1.wav synth 0.01 sine 440
sox -n -r 48000 -e signed -b 24 -c 2 sox_s24_48000_2_ext.wav synth 0.01 sine 440

# libsndfile: WAVE "cue " + INFO, AIFF "MARK".
cc -O1 -o "$work/make_sndfile" make_sndfile.c -lsndfile
"$work/make_sndfile" "$here"

# npm wavefile: markers with labels, regions, INFO text.
(cd "$work" && npm install --silent wavefile@11 >/dev/null)
NODE_PATH="$work/node_modules" node make_wavefile.js "$here"

python3 make_damaged.py "$here"

# soxi's answers: file rate channels frames bits-per-sample.
: > soxi.txt
for f in sox_*.aiff sox_*.aifc sox_*.wav sf_*.wav sf_*.aiff wf_*.wav; do
  echo "$f $(soxi -r "$f") $(soxi -c "$f") $(soxi -s "$f") $(soxi -b "$f")" >> soxi.txt 2>/dev/null
done
