# Sourced by the other scripts: the project's own Wine prefix, one persistent
# wineserver for a whole run, and a virtual X display for programs with windows.
#
#   MIRDAL_WINEPREFIX  where the prefix lives (default: ~/.local/share/mirdal/wine64)
#   MIRDAL_XDISPLAY    the Xvfb display number to use (default: 77)

MIRDAL_ROOT=${MIRDAL_ROOT:-$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)}
export WINEPREFIX=${MIRDAL_WINEPREFIX:-$HOME/.local/share/mirdal/wine64}
export WINEARCH=win64
export WINEDEBUG=${WINEDEBUG:--all}
# No Mono or Gecko installer may ever be offered: nothing here needs them.
export WINEDLLOVERRIDES="mscoree=;mshtml="
MIRDAL_WINE=/usr/lib/wine/wine64
[ -x "$MIRDAL_WINE" ] || MIRDAL_WINE=$(command -v wine64 || command -v wine)
MIRDAL_XDISPLAY=${MIRDAL_XDISPLAY:-77}

# Creates the prefix on first use, under a lock so that parallel tests wait for
# one creation instead of racing. Every program of the prefix shares one
# virtual desktop: the notification area exists only inside such a desktop.
mirdal_ensure_prefix() {
  [ -f "$WINEPREFIX/.mirdal-ready" ] && return 0
  mkdir -p "$(dirname "$WINEPREFIX")"
  (
    flock 9
    if [ ! -f "$WINEPREFIX/.mirdal-ready" ]; then
      echo "mirdal: creating Wine prefix $WINEPREFIX" >&2
      DISPLAY= "$MIRDAL_WINE" wineboot -i >/dev/null 2>&1
      DISPLAY= "$MIRDAL_WINE" reg add 'HKCU\Software\Wine\Explorer' /v Desktop /d Default /f >/dev/null 2>&1
      DISPLAY= "$MIRDAL_WINE" reg add 'HKCU\Software\Wine\Explorer\Desktops' /v Default /d 1024x768 /f >/dev/null 2>&1
      # Crashes must end the process, not wait for a click in a debugger dialog.
      DISPLAY= "$MIRDAL_WINE" reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f >/dev/null 2>&1
      "${MIRDAL_WINE%/*}/wineserver" -w 2>/dev/null || wineserver -w
      touch "$WINEPREFIX/.mirdal-ready"
    fi
  ) 9>"$(dirname "$WINEPREFIX")/.mirdal-prefix.lock"
}

# True when a process whose command line matches $1 runs in this prefix: a
# machine may hold several prefixes, and each needs its own server and desktop.
mirdal_running_here() {
  local pid
  for pid in $(pgrep -u "$(id -u)" -f "$1" 2>/dev/null); do
    { tr '\0' '\n' < "/proc/$pid/environ"; } 2>/dev/null | grep -qx "WINEPREFIX=$WINEPREFIX" && return 0
  done
  return 1
}

# A wineserver that stays alive 60 s after its last client saves about 2.5 s
# per process; it ends by itself, so nothing has to remember to stop it.
mirdal_ensure_wineserver() {
  local server
  server=$(command -v wineserver || echo /usr/lib/wine/wineserver64)
  if ! mirdal_running_here "wineserver"; then
    setsid "$server" -p60 </dev/null >/dev/null 2>&1 &
    sleep 0.2
  fi
}

# Wine starts the desktop process at the first window of a run. Started from a
# test, it would inherit CTest's output pipe (CTest then waits for it to end)
# or come up without a display and refuse every later window. So the scripts
# start it themselves, detached and on the virtual display, before any test.
mirdal_ensure_desktop() {
  mirdal_ensure_display
  if ! mirdal_running_here "explorer.exe /desktop=Default"; then
    setsid "$MIRDAL_WINE" explorer.exe /desktop=Default,1024x768 </dev/null >/dev/null 2>&1 &
    for _ in $(seq 50); do
      mirdal_running_here "explorer.exe /desktop=Default" && break
      sleep 0.1
    done
  fi
}

# Starts Xvfb on the project's display if nothing serves it yet.
mirdal_ensure_display() {
  export DISPLAY=:$MIRDAL_XDISPLAY
  if ! pgrep -f "Xvfb :$MIRDAL_XDISPLAY " >/dev/null 2>&1; then
    rm -f /tmp/.X11-unix/X$MIRDAL_XDISPLAY /tmp/.X$MIRDAL_XDISPLAY-lock
    setsid Xvfb "$DISPLAY" -screen 0 1280x1024x24 -nolisten tcp </dev/null >/dev/null 2>&1 &
    for _ in $(seq 50); do [ -e /tmp/.X11-unix/X$MIRDAL_XDISPLAY ] && break; sleep 0.1; done
  fi
}
