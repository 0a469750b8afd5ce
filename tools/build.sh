#!/usr/bin/env bash
# Configures and builds both architectures the product ships:
#   build/x86_64  the build that runs (tests, benchmarks, the agent)
#   build/i686    compiled and linked only: 32-bit Wine cannot run here
# Usage: tools/build.sh [x86_64|i686]...   (default: both)
# MIRDAL_BUILD_ROOT chooses another folder than build/.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=${MIRDAL_BUILD_ROOT:-$root/build}
archs=("$@"); [ ${#archs[@]} -gt 0 ] || archs=(x86_64 i686)
for arch in "${archs[@]}"; do
  dir=$out/$arch
  if [ ! -f "$dir/build.ninja" ]; then
    cmake -S "$root" -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=Release \
      -DCMAKE_TOOLCHAIN_FILE="$root/cmake/toolchain-$arch.cmake" \
      -DCMAKE_CROSSCOMPILING_EMULATOR="$root/tools/winerun" >/dev/null
  fi
  cmake --build "$dir" -- -k 0
done
