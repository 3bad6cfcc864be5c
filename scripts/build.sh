#!/usr/bin/env bash
# Configures and builds tellarok into ${BUILD_DIR:-build} (after installing what it needs),
# then prepares that build's private Wine prefix. Sourced by test.sh and demo.sh.
set -euo pipefail
KY_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
KY_BUILD=${BUILD_DIR:-$KY_ROOT/build}
case "$KY_BUILD" in /*) ;; *) KY_BUILD=$PWD/$KY_BUILD ;; esac

"$KY_ROOT/scripts/setup.sh"
cmake -S "$KY_ROOT" -B "$KY_BUILD" -DCMAKE_TOOLCHAIN_FILE="$KY_ROOT/cmake/toolchain-mingw32.cmake" >/dev/null
cmake --build "$KY_BUILD" -j"$(nproc)"

# A private prefix keeps the tests away from anyone's own registry; a persistent server
# makes each Wine process start in milliseconds instead of seconds.
export WINEPREFIX="$KY_BUILD/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
# Under QEMU's user-mode emulation (see setup.sh) a 32-bit process starts in about 2 s with
# a 2 GiB + 16 MiB guest address space, against 50 s with the default 4 GiB one (QEMU walks
# the reserved space page by page). Ignored when 32-bit programs run natively.
export QEMU_RESERVED_VA=0x81000000
# Wine under QEMU 7.2 crashes when a process runs more than one extra thread at a time;
# multi-threaded tests read this and keep to the main thread plus one worker.
if [ -f /proc/sys/fs/binfmt_misc/qemu-i386 ]; then export TELLAROK_EMULATED_I386=1; fi
if [ ! -f "$WINEPREFIX/system.reg" ]; then
  wineboot -i >/dev/null 2>&1 || true
  wineserver -w || true
fi
# The server daemonises once it is ready; starting it in the background instead races
# with the first test process and can leave that process waiting forever.
wineserver -p >/dev/null 2>&1 || true
# Start Wine's services now, detached from our output: a service started by the first test
# program would inherit ctest's output pipe and keep ctest waiting until its timeout.
wine cmd.exe /c exit 0 </dev/null >/dev/null 2>&1 || true
ky_stop_wine() { wineserver -k >/dev/null 2>&1 || true; }
trap ky_stop_wine EXIT
