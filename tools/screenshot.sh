#!/usr/bin/env bash
# Takes a screenshot of the project's virtual display: tools/screenshot.sh out.png
set -euo pipefail
source "$(dirname "$0")/wine-env.sh"
# The Wine desktop is captured as its own window: a capture of Xvfb's root
# window comes out black while the desktop covers it.
export DISPLAY=:$MIRDAL_XDISPLAY
window=$(xdotool search --name "Wine desktop" 2>/dev/null | head -1)
import -window "${window:-root}" "${1:-screenshot.png}"
