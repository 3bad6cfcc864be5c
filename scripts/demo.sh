#!/usr/bin/env bash
# The main job: kytool, the library's command-line front end, on the bundled sample data.
# With no arguments it runs its demonstration; any arguments are passed to kytool.
set -euo pipefail
source "$(dirname "${BASH_SOURCE[0]}")/build.sh"
cd "$KY_ROOT"
wine "$KY_BUILD/bin/kytool.exe" "$@"
