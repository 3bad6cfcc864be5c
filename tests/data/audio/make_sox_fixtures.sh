#!/usr/bin/env bash
# Makes the sox reference files of the audio tests (sox 14.4, Debian package "sox").
# Every file is written by sox with dithering off (-D), so the integer widenings are sox's
# exact bit shifts and the float-to-integer conversions are sox's rounding.
#   src_*.wav       the sources: 1500 stereo frames at 48 kHz, a full-scale sweep on the
#                   left, a full-scale square wave with a quiet noise floor on the right
#   sox_A_to_B.wav  sox's conversion of src_A.wav to type B
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"
rm -f src_*.wav sox_*.wav

sox -D -n -r 48000 -c 2 -b 32 -e signed-integer src_s32.wav \
  synth 1500s sine 20-20000 square 997 whitenoise vol 0.999 remix 1 2v0.999,3v0.001
sox -D -n -r 48000 -c 2 -b 32 -e floating-point src_f32.wav \
  synth 1500s sine 20-20000 square 997 whitenoise remix 1v1.25 2v0.99,3v0.01
sox -D src_s32.wav -b 8 -e unsigned-integer src_u8.wav
sox -D src_s32.wav -b 16 src_s16.wav
sox -D src_s32.wav -b 24 src_s24.wav

conv() { # source type, target type, sox output options
  local from=$1 to=$2
  shift 2
  sox -D "src_$from.wav" "$@" "sox_${from}_to_$to.wav"
}
# Widening: exact.
conv u8 s16 -b 16 -e signed-integer
conv u8 s24 -b 24 -e signed-integer
conv u8 s32 -b 32 -e signed-integer
conv s16 s24 -b 24
conv s16 s32 -b 32
conv s24 s32 -b 32
conv u8 f32 -b 32 -e floating-point
conv s16 f32 -b 32 -e floating-point
conv s24 f32 -b 32 -e floating-point
conv s16 f64 -b 64 -e floating-point
conv s24 f64 -b 64 -e floating-point
conv s32 f64 -b 64 -e floating-point
# Float to integer: sox rounds to nearest, the library truncates toward zero.
conv f32 u8 -b 8 -e unsigned-integer
conv f32 s16 -b 16 -e signed-integer
conv f32 s24 -b 24 -e signed-integer
conv f32 s32 -b 32 -e signed-integer
