#!/usr/bin/env bash
# Installs, from Debian's packages, everything the build and the tests need.
# Does nothing when all of it is there already; needs root otherwise.
set -euo pipefail
packages=(cmake ninja-build g++-mingw-w64-x86-64 g++-mingw-w64-i686 mingw-w64-tools
          wine wine64 xvfb xdotool imagemagick googletest nsis procps util-linux python3
          dict-freedict-eng-rus dict-freedict-eng-deu)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
done
[ ${#missing[@]} -eq 0 ] && exit 0
echo "mirdal: installing ${missing[*]}" >&2
SUDO=; [ "$(id -u)" -eq 0 ] || SUDO=sudo
$SUDO apt-get update -qq
DEBIAN_FRONTEND=noninteractive $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
