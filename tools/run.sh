#!/usr/bin/env bash
# The product as a user meets it. Builds what is missing, lays out an
# installation in a Wine prefix of its own (the agent in its program folder,
# the stand-in main program and trainer registered as an installation
# registers them), starts the agent on the virtual display inside the Wine
# desktop, and tours it with real clicks and keys: one screenshot per step in
# one folder, and a one-line verdict per step.
#
#   tools/run.sh           the tour, then everything stops again
#   tools/run.sh --keep    the tour, and the agent stays for more xdotool and
#                          screenshots (DISPLAY=:78, tools/screenshot.sh)
#   tools/run.sh --stop    stops what a kept tour left running
#
# MIRDAL_RUN_PREFIX, MIRDAL_RUN_DISPLAY and MIRDAL_TOUR_DIR choose another
# prefix, display number and screenshot folder.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
export MIRDAL_WINEPREFIX=${MIRDAL_RUN_PREFIX:-$HOME/.local/share/mirdal/wine64-run}
export MIRDAL_XDISPLAY=${MIRDAL_RUN_DISPLAY:-78}
source "$root/tools/wine-env.sh"
shots=${MIRDAL_TOUR_DIR:-$root/build/tour}
build=${MIRDAL_BUILD_ROOT:-$root/build}/x86_64
program_dir="$WINEPREFIX/drive_c/Program Files/Tavix/Mirdal 16"
demo_dir="$WINEPREFIX/drive_c/Program Files/Tavix/Mirdal 16 Demo"
program_win='C:\Program Files\Tavix\Mirdal 16'
demo_win='C:\Program Files\Tavix\Mirdal 16 Demo'
journal=/tmp/mirdal-tour-journal.txt

stop_everything() {
  "${MIRDAL_WINE%/*}/wineserver" -k 2>/dev/null || true
  pkill -f "Xvfb :$MIRDAL_XDISPLAY " 2>/dev/null || true
}

if [ "${1:-}" = "--stop" ]; then
  stop_everything
  echo "stopped: the agent, its companions and display :$MIRDAL_XDISPLAY"
  exit 0
fi
keep=false
[ "${1:-}" = "--keep" ] && keep=true

# ---- build and lay out --------------------------------------------------------------
"$root/tools/install-deps.sh"
"$root/tools/build.sh" x86_64 >/dev/null || { echo "the build failed: run tools/build.sh x86_64" >&2; exit 1; }
stop_everything
mirdal_ensure_prefix
mirdal_ensure_wineserver
mirdal_ensure_desktop
mkdir -p "$program_dir" "$demo_dir" "$shots"
rm -f "$shots"/*.png "$journal"
cp -f "$build"/program/* "$program_dir"/
cp -rf "$build"/demo/* "$demo_dir"/
wine_reg() { DISPLAY= "$MIRDAL_WINE" reg "$@" >/dev/null 2>&1; }
# What the installer registers: where the main program and the trainer are.
wine_reg add 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\App Paths\Mirdal.exe' /ve /d "$demo_win\\Mirdal.exe" /f
wine_reg add 'HKLM\SOFTWARE\Microsoft\Windows\CurrentVersion\App Paths\Drillix.exe' /ve /d "$demo_win\\Drillix.exe" /f
wine_reg add 'HKLM\SOFTWARE\Tavix\Mirdal\16\Setup' /v MirdalPath /d "$demo_win\\Mirdal.exe" /f
# A tour starts from the options a new installation has.
wine_reg delete 'HKCU\SOFTWARE\Tavix\Mirdal\16\Launcher' /f

probe() { "$MIRDAL_WINE" "$demo_dir/AgentProbe.exe" "$@" 2>/dev/null | tr -d '\r'; }
desktop() { xdotool search --name "Wine desktop" 2>/dev/null | head -1; }
shot() { import -window "$(desktop)" "$shots/$1.png" 2>/dev/null; }
failures=0
verdict() {  # verdict <step> <ok?> <text>
  if [ "$2" = ok ]; then printf '%-8s ok    %s\n' "$1" "$3"; else printf '%-8s FAIL  %s\n' "$1" "$3"; failures=$((failures + 1)); fi
  echo "         $shots/$1.png"
}
wait_for() {  # wait_for <seconds> <command...>: true once the command prints 1
  local deadline=$((SECONDS + $1)); shift
  while [ $SECONDS -lt $deadline ]; do [ "$("$@")" = 1 ] && return 0; sleep 0.5; done
  return 1
}
agent_answers() { [ "$(probe version)" = 16 ] && echo 1 || echo 0; }
journal_has() { grep -q "$1" "$journal" 2>/dev/null && echo 1 || echo 0; }
# The tray icon stands at the right end of the taskbar of the 1024x768 desktop.
icon_x=1013; icon_y=757
open_menu() { xdotool mousemove $icon_x $icon_y click 3; sleep 1; }
# Clicks the last item (Exit) of the menu opened at the icon. The menu opens
# above the icon and is pushed left to stay on the desktop; only its size is
# asked for, since the X position of a window inside the Wine desktop is not
# the position on it.
click_last_menu_item() {
  local menu; menu=$(xdotool search --onlyvisible --class mdagent 2>/dev/null | tail -1)
  [ -n "$menu" ] || return 1
  eval "$(xdotool getwindowgeometry --shell "$menu")"
  xdotool mousemove $((1024 - WIDTH + 30)) $((icon_y - 20)) click 1
}

# ---- the tour -------------------------------------------------------------------------
echo "tour of the agent on display :$MIRDAL_XDISPLAY; screenshots in $shots"
MIRDAL_STANDIN_JOURNAL="Z:${journal//\//\\}" setsid "$MIRDAL_WINE" "$program_win\\MdAgent.exe" </dev/null >/dev/null 2>&1 &

# 1. The icon comes up in the notification area.
if wait_for 30 agent_answers; then sleep 1; shot 1-icon; verdict 1-icon ok "the agent runs, answers version 16, its icon stands in the notification area"
else shot 1-icon; verdict 1-icon fail "the agent did not answer within 30 s"; fi

# 2. A right click opens the menu: chords ticked, click and hover grey while the main program is closed.
open_menu; shot 2-menu
menus=$(xdotool search --onlyvisible --class mdagent 2>/dev/null | wc -l)
[ "$menus" -ge 1 ] && verdict 2-menu ok "a right click opens the menu" || verdict 2-menu fail "no menu window appeared"

# 3. A trigger toggled from the menu: Ctrl+Ins+Ins (fourth item) off, and on again.
xdotool key Down Down Down Return; sleep 1
off=$(probe atom Md16_CtrlInsInsAllowed)
open_menu; shot 3-toggle; xdotool key Down Down Down Return; sleep 1
on=$(probe atom Md16_CtrlInsInsAllowed)
[ "$off" = 0 ] && [ "$on" = 1 ] && verdict 3-toggle ok "Ctrl+Ins+Ins switched off and on from the menu (its atom followed)" \
  || verdict 3-toggle fail "the Ctrl+Ins+Ins atom read '$off' after the first toggle and '$on' after the second"

# 4. Ctrl+C+C on a word selected in another program, the main program closed: it starts and shows the word.
printf 'serendipity' > /tmp/mirdal-tour-word.txt
setsid "$MIRDAL_WINE" notepad 'Z:\tmp\mirdal-tour-word.txt' </dev/null >/dev/null 2>&1 &
sleep 3
if notepad=$(xdotool search --name "mirdal-tour-word" 2>/dev/null | head -1) && [ -n "$notepad" ]; then
  eval "$(xdotool getwindowgeometry --shell "$notepad")"
  xdotool mousemove $((X + WIDTH / 2)) $((Y + HEIGHT / 2)) click 1
fi
sleep 0.5
xdotool key ctrl+a; sleep 0.3
xdotool keydown ctrl key c key c keyup ctrl
if wait_for 40 journal_has "Md16_Hook_On_Ctrl_Ins_Ins"; then sleep 2; shot 4-chord
  verdict 4-chord ok "Ctrl+C+C started the main program, which got the chord and shows the word"
else shot 4-chord; verdict 4-chord fail "the main program got no chord within 40 s (journal: $journal)"; fi

# 5. A balloon from the trainer: the word of the day.
setsid "$MIRDAL_WINE" "$demo_win\\Drillix.exe" /STARTUP </dev/null >/dev/null 2>&1 &
sleep 2
"$MIRDAL_WINE" "$demo_win\\Drillix.exe" /Send:word >/dev/null 2>&1
sleep 2; shot 5-balloon
[ "$(agent_answers)" = 1 ] && verdict 5-balloon ok "the trainer's word-of-the-day balloon stands over the icon" \
  || verdict 5-balloon fail "the agent stopped answering after the balloon"

# 6. Exit from the menu: the first takes the main program, the second the agent.
open_menu; click_last_menu_item; sleep 3
app_gone=$([ "$(probe window Md16_AppWindow)" = 0 ] && echo yes || echo no)
still=$(agent_answers)
shot 6-exit
open_menu; click_last_menu_item; sleep 3
if [ "$app_gone" = yes ] && [ "$still" = 1 ] && [ "$(agent_answers)" = 0 ]; then
  verdict 6-exit ok "the first exit closed the main program, the second ended the agent"
else
  verdict 6-exit fail "main program closed: $app_gone; agent after first exit: $still; after second: $(agent_answers)"
fi

if $keep; then
  # The tour ended the agent; a kept tour starts it again for more.
  MIRDAL_STANDIN_JOURNAL="Z:${journal//\//\\}" setsid "$MIRDAL_WINE" "$program_win\\MdAgent.exe" </dev/null >/dev/null 2>&1 &
  wait_for 30 agent_answers >/dev/null
  echo "kept: the agent runs on DISPLAY=:$MIRDAL_XDISPLAY; tools/run.sh --stop ends it"
else
  stop_everything
fi
[ $failures -eq 0 ] && echo "tour: every step ok" || echo "tour: $failures step(s) failed"
exit $((failures > 0))
