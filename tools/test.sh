#!/usr/bin/env bash
# The one command that builds everything and runs every test, from a fresh
# Debian 12 machine on: installs what is missing, builds x86_64 and i686, and
# runs the x86_64 tests under Wine with CTest. Arguments go to ctest
# (for example -R unicodestring).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/install-deps.sh"
"$root/tools/build.sh"
source "$root/tools/wine-env.sh"
mirdal_ensure_prefix
mirdal_ensure_wineserver
mirdal_ensure_desktop
cd "${MIRDAL_BUILD_ROOT:-$root/build}/x86_64"
ctest --output-on-failure --timeout 120 -j "$(nproc)" "$@"
