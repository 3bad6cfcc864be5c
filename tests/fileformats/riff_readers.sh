#!/usr/bin/env bash
# Reads the files that riff_writer.exe makes with the library's chunk writers through
# independent readers: libsndfile's sndfile-info and SoX. Exit 77 (skipped) when neither is
# installed; every check of an installed reader must pass.
#   riff_readers.sh PATH/riff_writer.exe OUTPUT_DIR
set -u
writer=$1
out=$2
have_sndfile=0; command -v sndfile-info >/dev/null 2>&1 && have_sndfile=1
have_sox=0; command -v sox >/dev/null 2>&1 && have_sox=1
if [ $have_sndfile = 0 ] && [ $have_sox = 0 ]; then
  echo "SKIPPED: neither sndfile-info (libsndfile) nor sox is installed"
  exit 77
fi

mkdir -p "$out"
rm -f "$out"/tellarok.wav "$out"/tellarok.w64
if ! wine "$writer" "Z:$out/tellarok.wav" "Z:$out/tellarok.w64" </dev/null; then
  echo "FAIL: riff_writer.exe could not write the files"
  exit 1
fi

failures=0
expect() { # expect DESCRIPTION TEXT PATTERN
  if printf '%s\n' "$2" | grep -qE -- "$3"; then
    echo "ok   $1"
  else
    echo "FAIL $1: no match for '$3' in:"
    printf '%s\n' "$2" | sed 's/^/     /'
    failures=$((failures + 1))
  fi
}

# The samples the writer stores: i*37 mod 65536 - 32768, 16-bit little-endian.
expected="$out/expected.raw"
if command -v python3 >/dev/null 2>&1; then
  python3 -c "import struct,sys; sys.stdout.buffer.write(b''.join(struct.pack('<h', (i*37)%65536-32768) for i in range(1000)))" >"$expected"
else
  rm -f "$expected"
fi

if [ $have_sndfile = 1 ]; then
  info=$(sndfile-info "$out/tellarok.wav" 2>&1)
  expect "libsndfile: WAVE frames" "$info" '^Frames +: 1000$'
  expect "libsndfile: WAVE rate" "$info" '^Sample Rate +: 8000$'
  expect "libsndfile: WAVE INFO title" "$info" 'INAM : Tellarok$'
  expect "libsndfile: WAVE cue point" "$info" 'Cue ID : +1 +Pos : +500 +Chunk : data'
  expect "libsndfile: WAVE size field" "$info" '^RIFF : 2102$'
  info=$(sndfile-info "$out/tellarok.w64" 2>&1)
  expect "libsndfile: 64-bit frames" "$info" '^Frames +: 1000$'
  expect "libsndfile: 64-bit file size" "$info" '^riff : 2136$'
  expect "libsndfile: 64-bit junk chunk (exact size)" "$info" '^junk : 29$'
  expect "libsndfile: 64-bit streamed data chunk" "$info" '^data : 2024$'
fi

if [ $have_sox = 1 ]; then
  for f in tellarok.wav tellarok.w64; do
    expect "sox: $f sample count" "$(sox --i -s "$out/$f" 2>&1)" '^1000$'
    if [ -f "$expected" ]; then
      sox "$out/$f" -t raw -e signed-integer -b 16 -L "$out/$f.raw" 2>/dev/null
      if cmp -s "$out/$f.raw" "$expected"; then
        echo "ok   sox: $f samples"
      else
        echo "FAIL sox: $f samples differ from the written ones"
        failures=$((failures + 1))
      fi
    fi
  done
fi

if [ $failures -ne 0 ]; then
  echo "$failures check(s) failed"
  exit 1
fi
echo "all checks passed"
