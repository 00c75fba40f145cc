#!/usr/bin/env bash
# Goes through the library's worst moments by the hundred, prints a table, and fails when anything went wrong.
# Takes ten minutes. "soak.sh MOMENT [COUNT]" does one moment only.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

# The tests that the suite runs a few times each, and how often here: processes, rounds, calls, names or, for Mixed and
# the disk moments, seconds.
moments=(ExitBusy:200 ExitWithHandles:500 FirstMessages:400 UnloadDuringPass:200 Reload:3000 Model:1000000 Names:10000
    Mixed:20 disk-full:5 folder-removed:5 AnAllocationThatFails:1)

row() { printf '%-22s | %9s | %s\n' "$@"; }

# Runs a test so often and prints a row with the number of failures and the first one. "run_test MOMENT COUNT [TEST]"
run_test() {
    local status=0 failures words=nothing program=host_test
    [ "$1" != AnAllocationThatFails ] || program=internal_test
    (cd build/mingw/bin && TARNEX_TEST_COUNT=$2 timeout 3600 "$root/scripts/wine.sh" "./$program.exe" \
        --gtest_filter="*.${3:-$1}*") >build/soak.txt 2>&1 || status=$?
    grep -q '^\[ RUN' build/soak.txt || status=1
    failures=$(grep -c ': Failure' build/soak.txt) || true
    if [ $status -ne 0 ]; then
        words=$(grep -m1 -A4 ': Failure' build/soak.txt | tail -n +2 | tr -d '\r' | tr -s '\n ' ' ') ||
            words="ended with status $status"
        cat build/soak.txt >>build/soak.log
    fi
    row "$1" "$2" "$failures: $words"
    return $status
}

# A log folder of 64 KB, which needs root to be made.
disk_full() {
    local folder status=0
    folder=$(mktemp -d)
    if ! mount -t tmpfs -o size=64k tmpfs "$folder" 2>/dev/null; then
        row disk-full 0 "not run: a small file system could not be mounted"
        return 1
    fi
    TARNEX_LOG_DIR=$(windows_path "$folder") run_test disk-full "$1" Disk || status=1
    [ "$(df --output=avail "$folder" | tail -1)" -eq 0 ] || { echo "the disk was never full"; status=1; }
    umount "$folder"
    rmdir "$folder"
    return $status
}

folder_removed() {
    local folder status=0
    folder=$(mktemp -d)
    { sleep 1; rm -r "$folder"; } &
    TARNEX_LOG_DIR=$(windows_path "$folder") run_test folder-removed "$1" Disk || status=1
    wait
    [ ! -e "$folder" ] || { echo "the folder came back"; status=1; }
    return $status
}

need "${build_tools[@]}"
build mingw
start_wine

say "Worst moments (what failed, in full: build/soak.log)"
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
        *) run_test "$moment" "$count" ;;
    esac || failed=1
done
exit $failed
