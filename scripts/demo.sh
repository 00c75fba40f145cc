#!/usr/bin/env bash
# Runs the demo host against the real DLL and shows the log file that the library wrote.
#
# usage: demo.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
[ $# -eq 0 ] || refuse "$1"

need "${build_tools[@]}"
build mingw --target demo

logs="$root/build/demo-logs"
rm -rf "$logs"
mkdir -p "$logs"
start_wine
say "Running the demo: each call with its result"
TARNEX_LOG_DIR=$(windows_path "$logs") scripts/wine.sh build/mingw/bin/demo.exe | tr -d '\r'

for log in "$logs"/*; do
    say "The log file it left: $(basename "$log")"
    tr -d '\r' <"$log"
done
