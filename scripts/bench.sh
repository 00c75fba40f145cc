#!/usr/bin/env bash
# Measures the library against the same work by hand and prints one table; fails when a row misses its goal.
# Takes four minutes.
#
# usage: bench.sh [ROWS]     ROWS: the numbers of the rows to measure, as in 125
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
[ $# -le 1 ] || refuse "$2"
[[ ${1:-1} =~ ^[1-7]+$ ]] || refuse "$1"

need "${build_tools[@]}"
build mingw --target bench
start_wine
say "Measuring"
failed=0
scripts/wine.sh build/mingw/bin/bench.exe "$@" | tr -d '\r' || failed=1

dll=build/mingw/bin/Tarnex_3.dll
size=$(stat -c %s $dll)
missed=
[ "$size" -le 1000000 ] || { missed="  MISSED"; failed=1; }
printf '8 size of the stripped DLL: %d bytes, goal <= 1000000%s; its code by origin:\n' "$size" "$missed"
x86_64-w64-mingw32-nm -CS --size-sort $dll.debug | awk '
    function hex(text,    i, value) {
        for (i = 1; i <= length(text); ++i)
            value = value * 16 + index("0123456789abcdef", substr(text, i, 1)) - 1
        return value
    }
    $3 ~ /^[tT]$/ {
        name = $0; sub(/^[^ ]+ [^ ]+ . /, "", name)
        origin = "C runtime and threads"
        if (name ~ /^(void |bool |int )?(fmt|spdlog)::|[ (<](fmt|spdlog)::/) origin = "spdlog and fmt"
        else if (name ~ /std::|__gnu_cxx|__cxx|_Unwind|operator (new|delete)/) origin = "C++ runtime"
        else if (name ~ /CSession|AuthHandle|CMutex|Tarnex|tarnex|Log|Cleanup|Retention|Utf8|GetEnvValue|Flush/) origin = "the library itself"
        sum[origin] += hex($2)
    }
    END { for (origin in sum) printf "    %-24s %4d KB\n", origin, sum[origin] / 1024 }' | sort -t: -k1
exit $failed
