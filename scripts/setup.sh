#!/usr/bin/env bash
# Installs what building and testing tellarok needs on a Debian 12 machine (idempotent):
# the i686 MinGW-w64 cross compiler, 32-bit Wine, GoogleTest's sources, and the LLVM tools
# that make and check the import library for MSVC linkers.
set -euo pipefail

need=()
command -v i686-w64-mingw32-g++-posix >/dev/null || need+=(g++-mingw-w64-i686)
command -v cmake >/dev/null || need+=(cmake)
[ -x /usr/lib/wine/wine ] || command -v wine >/dev/null || need+=(wine)
dpkg -s wine32:i386 >/dev/null 2>&1 || need+=(wine32:i386)
[ -x /usr/lib/wine/wineserver64 ] || need+=(wine64)
[ -f /usr/src/googletest/CMakeLists.txt ] || need+=(googletest)
command -v llvm-dlltool >/dev/null || need+=(llvm-14)
command -v lld-link >/dev/null || need+=(lld-14)
command -v clang >/dev/null || need+=(clang-14)

if [ ${#need[@]} -gt 0 ]; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  export DEBIAN_FRONTEND=noninteractive
  $SUDO dpkg --add-architecture i386
  # One i386 index of the security suite may fail to download; the install still works.
  $SUDO apt-get update || true
  if ! $SUDO apt-get install -y --no-install-recommends "${need[@]}"; then
    # The i386 security index can lag the amd64 one; the main suite's versions match.
    $SUDO apt-get install -y --no-install-recommends -t bookworm "${need[@]}"
  fi
fi
# llvm-14 and lld-14 install versioned names only on some setups.
for t in llvm-dlltool lld-link; do
  if ! command -v $t >/dev/null && [ -x /usr/bin/$t-14 ]; then ln -sf /usr/bin/$t-14 /usr/local/bin/$t; fi
done
if ! command -v llvm-dlltool >/dev/null && [ -x /usr/lib/llvm-14/bin/llvm-dlltool ]; then
  ln -sf /usr/lib/llvm-14/bin/llvm-dlltool /usr/local/bin/llvm-dlltool
fi
if ! command -v lld-link >/dev/null && [ -x /usr/lib/llvm-14/bin/lld-link ]; then
  ln -sf /usr/lib/llvm-14/bin/lld-link /usr/local/bin/lld-link
fi

# Some kernels here run with 32-bit emulation switched off ("ia32_emulation"), so the 32-bit
# Wine loader cannot start natively. Then 32-bit Linux programs go through QEMU's user-mode
# emulator, registered with binfmt_misc; Wine's 64-bit server and wineboot stay native.
if ! /usr/lib/wine/wine --version >/dev/null 2>&1; then
  SUDO=""
  [ "$(id -u)" -eq 0 ] || SUDO="sudo"
  if [ ! -x /usr/bin/qemu-i386-static ]; then
    $SUDO apt-get install -y --no-install-recommends qemu-user-static ||
      $SUDO apt-get install -y --no-install-recommends -t bookworm qemu-user-static
  fi
  [ -f /proc/sys/fs/binfmt_misc/register ] ||
    $SUDO mount -t binfmt_misc binfmt_misc /proc/sys/fs/binfmt_misc
  if [ ! -f /proc/sys/fs/binfmt_misc/qemu-i386 ]; then
    printf '%s' ':qemu-i386:M::\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x03\x00:\xff\xff\xff\xff\xff\xfe\xfe\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff:/usr/bin/qemu-i386-static:F' |
      $SUDO tee /proc/sys/fs/binfmt_misc/register >/dev/null
  fi
  /usr/lib/wine/wine --version >/dev/null || { echo "setup: cannot run 32-bit programs" >&2; exit 1; }
fi
