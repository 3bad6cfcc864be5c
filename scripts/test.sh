#!/usr/bin/env bash
# The whole test suite: install, build, then every test program under 32-bit Wine via ctest.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
cd "$KY_BUILD"
ctest --output-on-failure -j2 "$@"
