#!/usr/bin/env bash
# Repeats stress cases by the hundred, prints a table, and fails when anything goes wrong. Takes three minutes.
#
# usage: soak.sh [--preset PRESET] [CASE [COUNT]]
#
# CASE     what is repeated, without one all of these:
#            ExitBusy           the process exits while six threads are inside calls
#            FirstMessages      the same: the threads race for the first message before
#            ExitWithHandles    eight exits with handles left, most while a thread is held in a call
#            UnloadDuringPass   unloading while the clean-up deletes a file
#            Reload             51 loads, all in one process
#            Waiting            calls that are held at each place where they could be, with others that wait or do not
#            NoMemory           allocations that fail, each in turn
#            DiskFull           the demo with its log on a full disk (needs root)
# COUNT    how often
# PRESET   which build: mingw (the default), or another one of PRESETS
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Case, count, and the tests behind it.
cases='ExitBusy 400 -
FirstMessages 300 -
ExitWithHandles 30 Exit.*
UnloadDuringPass 400 CleanUp.Runs*
Reload 60 Unloading.*
Waiting 10 Store.Makes*
NoMemory 50 Store.IsAsBefore*
DiskFull 50 -'

take_preset "$@"
shift $taken
[ $# -eq 0 ] || grep -q "^$1 " <<<"$cases" || refuse "$1"
[[ ${2:-1} =~ ^[1-9][0-9]*$ ]] || misused "COUNT must be 1 or more, not \"$2\""
[ $# -le 2 ] || refuse "$3"

row() { printf '%-17s | %6s | %s\n' "$@"; }

# Repeats tests and prints a row: "passed", or the first failure.
repeat_test() {
    local name=$1 count=$2 test=$3 program=host_test status=0 result=passed
    [[ $test != Store.* ]] || program=internal_test
    (cd "build/$preset/bin" && timeout 7200 "$root/scripts/wine.sh" "./$program.exe" --gtest_filter="$test" \
        --gtest_repeat="$count") >build/soak.txt 2>&1 || status=$?
    [ "$(grep -c 'PASSED' build/soak.txt)" -eq "$count" ] || status=1
    if [ $status -ne 0 ]; then
        result="FAILED: $(grep -m1 -A4 ': Failure' build/soak.txt | tail -n +2 | tr -d '\r' | tr -s '\n ' ' ')" ||
            result="FAILED, the program ended with status $status"
        cat build/soak.txt >>build/soak.log
    fi
    row "$name" "$count" "$result"
    return $status
}

# Runs the example with threads, which exits in the middle of their calls, and looks at the log that it leaves: one that
# begins once and has no line torn but perhaps the last.
exit_busy() {
    local name=$1 failures=0 folder i
    folder=$(mktemp -d)
    for ((i = 0; i < $2; ++i)); do
        rm -f "$folder"/*
        TARNEX_LOG_DIR=$(windows_path "$folder") TARNEX_LOG_LEVEL=Trace \
            timeout 60 scripts/wine.sh "build/$preset/bin/threads.exe" >build/soak.txt 2>&1 || true
        tr -d '\r' <"$(echo "$folder"/*)" >build/soak-log.txt
        if ! grep -q ' 0 with another result' build/soak.txt ||
            [ "$(grep -n 'Created' build/soak-log.txt | cut -c1-2 | tr -d '\n')" != 1: ] ||
            sed '$d' build/soak-log.txt | grep -qvE '^[0-9]{4}-[0-9-]{5} [0-9:]{8}[.][0-9]{3} [[][A-Z][]] [A-Z~]'; then
            failures=$((failures + 1))
            cat build/soak.txt build/soak-log.txt >>build/soak.log
        fi
    done
    rm -r "$folder"
    [ "$failures" -eq 0 ] && row "$name" "$2" passed || row "$name" "$2" "FAILED: $failures runs"
    [ "$failures" -eq 0 ]
}

# Runs the demo with its log on a disk of 64 KB that is full.
fill_disk() {
    local folder failures=0 i
    folder=$(mktemp -d)
    if ! mount -t tmpfs -o size=64k tmpfs "$folder" 2>/dev/null; then
        row DiskFull 0 "not run: a small file system could not be mounted"
        rmdir "$folder"
        return 1
    fi
    cat /dev/zero >"$folder/full" 2>/dev/null || true
    for ((i = 0; i < $1; ++i)); do
        TARNEX_LOG_DIR=$(windows_path "$folder") scripts/wine.sh "build/$preset/bin/demo.exe" >>build/soak.log 2>&1 ||
            failures=$((failures + 1))
    done
    [ "$(find "$folder" -name 'Tarnex-*' | wc -l)" -ge 1 ] && [ -z "$(find "$folder" -name 'Tarnex-*' -size +0)" ] ||
        { row DiskFull "$1" "FAILED: the disk was not full"; failures=1; }
    umount "$folder"
    rmdir "$folder"
    [ "$failures" -eq 0 ] && row DiskFull "$1" passed || row DiskFull "$1" "FAILED: $failures runs got another result"
    [ "$failures" -eq 0 ]
}

need_for "$preset"
build "$preset"
start_wine

say "Stress cases (what failed, in full: build/soak.log)"
: >build/soak.log
row case count result
failed=0
while read -r name count test; do
    [ $# -eq 0 ] || [ "$1" = "$name" ] || continue
    count=${2:-$count}
    case $name in
        DiskFull) fill_disk "$count" || failed=1 ;;
        ExitBusy | FirstMessages) exit_busy "$name" "$count" </dev/null || failed=1 ;;
        *) repeat_test "$name" "$count" "$test" </dev/null || failed=1 ;;
    esac
done <<<"$cases"
exit $failed
