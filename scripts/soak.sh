#!/usr/bin/env bash
# Goes through the library's worst moments by the hundred, prints a table, and fails when anything went wrong.
# Takes about half an hour. "soak.sh MOMENT [COUNT]" does one moment only.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# What is counted: processes, rounds, calls, names or, for mixed and the disk moments, seconds.
moments=(exit-busy:200 exit-stuck:50 exit-idle:200 first-at-unload:200 first-message:200 level-race:200
    unload-during-pass:200 reload:3000 model:1000000 names:10000 mixed:20 disk-full:5 folder-removed:5
    allocation-fails:1)

# Every failure goes to the log, the first one into the table as well.
stress() { scripts/wine.sh build/mingw/bin/stress.exe "$@" 2>>build/soak.log; }

# A log folder of 64 KB, which needs root to be made.
disk_full() {
    local folder status=0
    folder=$(mktemp -d)
    if ! mount -t tmpfs -o size=64k tmpfs "$folder" 2>/dev/null; then
        row disk-full 0 "not run: a small file system could not be mounted"
        return 1
    fi
    TARNEX_LOG_DIR=$(windows_path "$folder") stress disk "$1" | sed 's/^disk     /disk-full/' || status=1
    [ "$(df --output=avail "$folder" | tail -1)" -eq 0 ] || { echo "the disk was never full"; status=1; }
    umount "$folder"
    rmdir "$folder"
    return $status
}

folder_removed() {
    local folder status=0
    folder=$(mktemp -d)
    { sleep 1; rm -r "$folder"; } &
    TARNEX_LOG_DIR=$(windows_path "$folder") stress disk "$1" | sed 's/^disk          /folder-removed/' || status=1
    wait
    [ ! -e "$folder" ] || { echo "the folder came back"; status=1; }
    return $status
}

# Every allocation of a sequence of calls fails once; the test knows the count.
allocation_fails() {
    local result=0 text="0: nothing"
    scripts/wine.sh build/mingw/bin/internal_test.exe --gtest_filter='*AnAllocationThatFails*' >/dev/null 2>&1 ||
        { result=1; text="1: see internal_test"; }
    row allocation-fails 1 "$text"
    return $result
}

row() { printf '%-20s | %9s | %s\n' "$@"; }

need "${build_tools[@]}"
build mingw
start_wine

say "Worst moments (failures one by one: build/soak.log)"
: >build/soak.log
row moment count "went wrong"
failed=0
for entry in "${moments[@]}"; do
    moment=${entry%:*} count=${entry#*:}
    [ $# -eq 0 ] || [ "$1" = "$moment" ] || continue
    count=${2:-$count}
    case $moment in
        disk-full) disk_full "$count" ;;
        folder-removed) folder_removed "$count" ;;
        allocation-fails) allocation_fails ;;
        *) stress "$moment" "$count" ;;
    esac || failed=1
done
exit $failed
