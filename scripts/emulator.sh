#!/usr/bin/env bash
# CMake's emulator: runs a Windows program under Wine, and once more when Wine has ended it without a word.
#
# usage: emulator.sh PROGRAM [ARGUMENT...]
#
# Wine kills a program that needs more than a second to exit, and now and then one ends before it has begun. Only that
# is forgiven: a program that was killed and has reported no failure, or that has failed and written nothing. A failed
# assertion, a crash and a hang are faults, however rare. test.sh shows what was run again.
set -o pipefail
wine=$(dirname "${BASH_SOURCE[0]}")/wine.sh
case "${1:-}" in
    -h | --help) sed -n '2,8s/^# \{0,1\}//p' "$0"; exit 0 ;;
    "") exec "$wine" ;;
esac
output=$(mktemp)
trap 'rm -f "$output"' EXIT

"$wine" "$@" 2>&1 | tee "$output"
status=${PIPESTATUS[0]}
killed=$((128 + 9))
if [ $status -eq $killed ] && ! grep -qiE 'fail|error|unhandled|terminat' "$output" ||
    { [ $status -ne 0 ] && [ ! -s "$output" ]; }; then
    echo "ended without a word (status $status), run again: $*" >&2
    "$wine" "$@"
    status=$?
fi
exit $status
