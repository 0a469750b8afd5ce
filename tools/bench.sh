#!/usr/bin/env bash
# Builds the x86_64 benchmark program and runs it under Wine. Arguments select
# groups by name (for example: tools/bench.sh Map String).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/tools/build.sh" x86_64 >/dev/null
exec "$root/tools/winerun" "${MIRDAL_BUILD_ROOT:-$root/build}/x86_64/bench/mirdal_bench.exe" "$@"
