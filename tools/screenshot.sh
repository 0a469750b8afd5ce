#!/usr/bin/env bash
# Takes a screenshot of the project's virtual display: tools/screenshot.sh out.png
set -euo pipefail
source "$(dirname "$0")/wine-env.sh"
DISPLAY=:$MIRDAL_XDISPLAY import -window root "${1:-screenshot.png}"
