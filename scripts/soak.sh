#!/usr/bin/env bash
# Repeats the library's worst moments by the hundred, prints a table, and fails when anything goes wrong. Takes ten
# minutes.
#
# usage: soak.sh [--preset PRESET] [MOMENT [COUNT]]
#
# MOMENT   what is repeated, without one all of these:
#            ExitBusy           the process exits while threads are inside calls
#            ExitWithHandles    the process exits with handles left: idle, before the first message, inside a call
#            FirstMessages      six threads race for the first message (40 rounds each time)
#            UnloadDuringPass   unloading while the clean-up deletes 1,500 files
#            Reload             120 loads, all in one process
#            OneHandle          four threads on one handle object without the session's lock
#            NoMemory           allocations that fail
#            DiskFull           the demo with its log on a full disk (needs root)
# COUNT    how often
# PRESET   which build, mingw by default
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# Moment, count, and the test behind it.
moments='ExitBusy 400 Exit.InsideCalls
ExitWithHandles 200 Exit.FlushesTheLog
FirstMessages 30 Threads.Race
UnloadDuringPass 100 CleanUp.Keeps
Reload 50 Unloading.LeavesNothing
OneHandle 50 Store.IsSafe
NoMemory 500 Store.RaisesBadAlloc
DiskFull 50 -'

preset=mingw
if [ "${1:-}" = --preset ]; then
    check_presets "${2:-}"
    preset=$2
    shift 2
fi
[ $# -eq 0 ] || grep -q "^$1 " <<<"$moments" || refuse "$1"
[[ ${2:-1} =~ ^[1-9][0-9]*$ ]] || refuse "$2"
[ $# -le 2 ] || refuse "$3"

row() { printf '%-17s | %6s | %s\n' "$@"; }

# Repeats a test and prints a row with the number of failures and the first one.
repeat_test() {
    local moment=$1 count=$2 test=$3 program=host_test status=0 failures first=nothing
    [[ $test != Store.* ]] || program=internal_test
    (cd "build/$preset/bin" && timeout 7200 "$root/scripts/wine.sh" "./$program.exe" --gtest_filter="$test*" \
        --gtest_repeat="$count") >build/soak.txt 2>&1 || status=$?
    [ "$(grep -c 'OK \]' build/soak.txt)" -eq "$count" ] || status=1
    failures=$(grep -c ': Failure' build/soak.txt) || true
    if [ $status -ne 0 ]; then
        first=$(grep -m1 -A4 ': Failure' build/soak.txt | tail -n +2 | tr -d '\r' | tr -s '\n ' ' ') ||
            first="ended with status $status: $(tail -1 build/soak.txt)"
        cat build/soak.txt >>build/soak.log
    fi
    row "$moment" "$count" "$failures: $first"
    return $status
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
        { row DiskFull "$1" "the disk was not full"; failures=1; }
    umount "$folder"
    rmdir "$folder"
    row DiskFull "$1" "$failures: runs of the demo that got another result"
    [ "$failures" -eq 0 ]
}

need "${build_tools[@]}"
build "$preset"
start_wine

say "Worst moments (what failed, in full: build/soak.log)"
: >build/soak.log
row moment count "went wrong"
failed=0
while read -r moment count test; do
    [ $# -eq 0 ] || [ "$1" = "$moment" ] || continue
    count=${2:-$count}
    case $moment in
        DiskFull) fill_disk "$count" || failed=1 ;;
        *) repeat_test "$moment" "$count" "$test" </dev/null || failed=1 ;;
    esac
done <<<"$moments"
exit $failed
