#!/usr/bin/env bash
# Starts one of our Windows programs under Wine on the project's virtual X
# display, inside the Wine virtual desktop (where the notification area
# exists), and waits for it. Usage:
#   tools/run-on-desktop.sh path/to/Program.exe [arguments...]
# While it runs: DISPLAY=:77 xdotool ... sends keys and clicks, and
# tools/screenshot.sh shot.png shows what a user would see.
set -euo pipefail
source "$(dirname "$0")/wine-env.sh"
mirdal_ensure_prefix
mirdal_ensure_wineserver
mirdal_ensure_desktop
exec "$MIRDAL_WINE" "$@"
