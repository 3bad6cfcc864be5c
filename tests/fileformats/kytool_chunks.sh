#!/usr/bin/env bash
# kytool chunks on the chunk fixtures: the trees of good files, and every damaged file
# reported with a status of the chunk functions and its text, never silently.
#   kytool_chunks.sh PATH/kytool.exe DATA_DIR(tests/data/riff)
set -u
tool=$1 data=$2 failures=0
run() { out=$(wine "$tool" chunks "$@" </dev/null 2>&1); rc=$?; out=${out//$'\r'/}; }
check() { # check DESCRIPTION TEXT PATTERN
  if printf '%s\n' "$2" | grep -qE -- "$3"; then echo "ok   $1"; else
    echo "FAIL $1: no '$3' in:"; printf '%s\n' "$2" | sed 's/^/     /'; failures=$((failures + 1)); fi
}
section() { printf '%s\n' "$out" | awk -v f="/$1: " 'index($0, f) {on = 1} on {print} on && /^[0-9]+ chunks/ {exit}'; }

run "Z:$data/wavefile_markers.wav" "Z:$data/sndfile_odd.w64" "Z:$data/damaged/deep_lists.wav"
check "good files: exit 0" "$rc" '^0$'
check "wavefile tree: adtl list" "$out" "^  1704 +'LIST'  size 76  type 'adtl'$"
check "wavefile tree: nested label" "$out" "^    1734 +'labl'  size 11 \(\+1 pad\)$"
check "wavefile tree: totals" "$out" '^9 chunks, 2 lists$'
check "64-bit tree: data chunk" "$out" "^  80 +\{61746164-ACF3-11D3-8CD1-00C04F8EDB8A\} 'data'  size 50$"
check "deep lists: depth limit" "$out" 'nested deeper than 32 levels'

damaged=()
for f in "$data"/damaged/*; do [ "${f##*/}" = deep_lists.wav ] || damaged+=("Z:$f"); done
run "${damaged[@]}"
check "damaged files: exit 1" "$rc" '^1$'
for f in "${damaged[@]}"; do
  s=$(section "${f##*/}")
  check "${f##*/}: damaged" "$s" '^[0-9]+ chunks, [0-9]+ lists, damaged$'
  check "${f##*/}: status and text" "$s" '! .*0x8004E0(08|80|81|82|83): [A-Z]'
done
check "not RIFF: the handler's text" "$(section not_riff.bin)" '0x8004E080: .*A necessary RIFF header is missing\.$'
run "Z:$data/no such file.wav"
check "missing file: exit 1" "$rc" '^1$'
[ $failures -eq 0 ] && echo "all checks passed" || { echo "$failures check(s) failed"; exit 1; }
