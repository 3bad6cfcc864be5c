#!/usr/bin/env bash
# Reads the files that riff_writer.exe makes with the library's chunk writers through
# independent readers: libsndfile's sndfile-info and SoX. Exit 77 (skipped) when neither is
# installed; every check of an installed reader must pass.
#   riff_readers.sh PATH/riff_writer.exe OUTPUT_DIR
set -u
writer=$1 out=$2 failures=0
have() { command -v "$1" >/dev/null 2>&1; }
if ! have sndfile-info && ! have sox; then
  echo "SKIPPED: neither sndfile-info (libsndfile) nor sox is installed"; exit 77
fi
mkdir -p "$out" && rm -f "$out"/tellarok.*
wine "$writer" "Z:$out/tellarok.wav" "Z:$out/tellarok.w64" </dev/null || { echo "FAIL: riff_writer.exe"; exit 1; }
expect() { # expect DESCRIPTION TEXT PATTERN
  if printf '%s\n' "$2" | grep -qE -- "$3"; then echo "ok   $1"; else
    echo "FAIL $1: no '$3' in:"; printf '%s\n' "$2" | sed 's/^/     /'; failures=$((failures + 1)); fi
}

if have sndfile-info; then
  info=$(sndfile-info "$out/tellarok.wav" 2>&1)
  for p in '^Frames +: 1000$' '^Sample Rate +: 8000$' 'INAM : Tellarok$' '^RIFF : 2102$' \
           'Cue ID : +1 +Pos : +500 +Chunk : data'; do expect "libsndfile WAVE: $p" "$info" "$p"; done
  info=$(sndfile-info "$out/tellarok.w64" 2>&1)
  for p in '^Frames +: 1000$' '^riff : 2136$' '^junk : 29$' '^data : 2024$'; do
    expect "libsndfile 64-bit: $p" "$info" "$p"; done
fi

if have sox; then
  # The samples the writer stores: i*37 mod 65536 - 32768, 16-bit little-endian.
  have python3 && python3 -c "import struct,sys; sys.stdout.buffer.write(b''.join(struct.pack('<h', (i*37)%65536-32768) for i in range(1000)))" >"$out/expected.raw"
  for f in tellarok.wav tellarok.w64; do
    expect "sox: $f sample count" "$(sox --i -s "$out/$f" 2>&1)" '^1000$'
    if [ -s "$out/expected.raw" ]; then
      sox "$out/$f" -t raw -e signed-integer -b 16 -L "$out/$f.raw" 2>/dev/null
      cmp -s "$out/$f.raw" "$out/expected.raw" && r=same || r=different
      expect "sox: $f samples" "$r" '^same$'
    fi
  done
fi
[ $failures -eq 0 ] && echo "all checks passed" || { echo "$failures check(s) failed"; exit 1; }
