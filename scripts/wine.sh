#!/bin/sh
# Runs a Windows program under Wine, in a prefix of this project's own below build/.
#
# usage: wine.sh PROGRAM [ARGUMENT...]
set -e
case "${1:-}" in
    -h | --help) sed -n '2,4s/^# \{0,1\}//p' "$0"; exit 0 ;;
    "") echo "wine.sh: which program?" >&2; exit 2 ;;
esac
root=$(cd "$(dirname "$0")/.." && pwd)
export WINEPREFIX="$root/build/wine"
export WINEDEBUG="${WINEDEBUG:--all}"
# A crash ends the program. Wine would start its debugger and with it a desktop, which stays and keeps our output open.
export WINEDLLOVERRIDES="mscoree,mshtml=;winemenubuilder.exe,winedbg.exe=d"
unset DISPLAY

if [ ! -e "$WINEPREFIX/.ready" ]; then
    mkdir -p "$WINEPREFIX"
    # Tests start many of these at once; one of them makes the prefix.
    exec 9>"$WINEPREFIX/.lock"
    flock 9
    if [ ! -e "$WINEPREFIX/.ready" ]; then
        wineboot --init >/dev/null 2>&1 9>&-
        wineserver -w 9>&-
        touch "$WINEPREFIX/.ready"
    fi
    exec 9>&-
fi
# Wine's own services start with the first program and stay for a minute, which makes the next start fast. They must
# not inherit our output: its reader would wait for them as well.
wineserver -p60 </dev/null >/dev/null 2>&1 || true
wine cmd /c exit </dev/null >/dev/null 2>&1
exec wine "$@"
