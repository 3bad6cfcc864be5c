#!/usr/bin/env bash
# kytool chunks on the chunk fixtures: the trees of good files, and every damaged file
# reported with a status of the chunk functions (exit code 1), never silently.
#   kytool_chunks.sh PATH/kytool.exe DATA_DIR(tests/data/riff)
set -u
tool=$1
data=$2
failures=0
run() { out=$(wine "$tool" chunks "Z:$1" </dev/null 2>&1); rc=$?; out=${out//$'\r'/}; }
check() { # check DESCRIPTION CONDITION-RESULT
  if [ "$2" = 0 ]; then echo "ok   $1"; else
    echo "FAIL $1"; printf '%s\n' "$out" | sed 's/^/     /'; failures=$((failures + 1)); fi
}
has() { printf '%s\n' "$out" | grep -qE -- "$1"; echo $?; }

run "$data/wavefile_markers.wav"
check "wavefile tree: exit 0" "$rc"
check "wavefile tree: adtl list" "$(has "^  1704 +'LIST'  size 76  type 'adtl'$")"
check "wavefile tree: nested label" "$(has "^    1734 +'labl'  size 11 \(\+1 pad\)$")"
check "wavefile tree: totals" "$(has '^9 chunks, 2 lists$')"
run "$data/sndfile_odd.w64"
check "64-bit tree: exit 0" "$rc"
check "64-bit tree: data chunk" "$(has "^  80 +\{61746164-ACF3-11D3-8CD1-00C04F8EDB8A\} 'data'  size 50$")"
run "$data/damaged/deep_lists.wav"
check "deep lists: exit 0" "$rc"
check "deep lists: depth limit" "$(has 'nested deeper than 32 levels')"
for f in "$data"/damaged/*; do
  case "$f" in */deep_lists.wav) continue ;; esac
  run "$f"
  [ "$rc" = 1 ]; check "$(basename "$f"): exit 1" $?
  check "$(basename "$f"): status reported" "$(has '! .*0x8004E0(08|80|81|82|83)')"
done
run "$data/damaged/not_riff.bin"
check "status text of the error handler" "$(has '0x8004E080: .*A necessary RIFF header is missing\.$')"
run "$data/no such file.wav"
[ "$rc" = 1 ]; check "missing file: exit 1" $?

if [ $failures -ne 0 ]; then echo "$failures check(s) failed"; exit 1; fi
echo "all checks passed"
