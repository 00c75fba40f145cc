#!/usr/bin/env bash
# Measures the library against the same work by hand and prints one table; fails when a row misses its goal.
# Takes half a minute, the first time with a build before it.
#
# usage: bench.sh [--preset PRESET] [ROWS]
#
# ROWS     the numbers of the rows to measure, as in 125
# PRESET   which build: mingw (the default), or another one of PRESETS
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
take_preset "$@"
shift $taken
[ $# -le 1 ] || refuse "$2"
[[ ${1:-1} =~ ^[1-8]+$ ]] || refuse "$1"

need_for "$preset"
build "$preset" --target bench
start_wine
say "Measuring"
scripts/wine.sh "build/$preset/bin/bench.exe" "$@" | tr -d '\r'
