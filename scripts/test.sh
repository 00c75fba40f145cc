#!/usr/bin/env bash
# Builds the library and runs all its tests.
#
# usage: test.sh             with MinGW GCC, and for the universal C runtime where that toolchain is installed
#        test.sh --all       with every compiler and setting on Debian
#        test.sh PRESET...   with these of PRESETS
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

if [ $# -eq 0 ]; then
    wanted=(mingw mingw-ucrt)
elif [ "$1" = --all ]; then
    [ $# -eq 1 ] || refuse "$2"
    wanted=(mingw mingw-debug clang-mingw mingw-ucrt clang-ucrt)
else
    check_presets "$@"
    wanted=("$@")
fi
chosen=()
for preset in "${wanted[@]}"; do
    if has_toolchain "$preset"; then
        chosen+=("$preset")
    else
        echo "Skipping preset $preset: $missing_toolchain"
    fi
done

need_for "${chosen[@]}"
need "${test_tools[@]}"

# Only with --all: check that the benchmark still compiles.
[ "${1:-}" != --all ] || build mingw --target bench

for preset in "${chosen[@]}"; do
    build "$preset"
    start_wine
    say "Testing preset $preset"
    # The first failure is the last thing to be read; CI runs all tests.
    if [ -n "${CI:-}" ]; then
        ctest --preset "$preset"
    else
        ctest --preset "$preset" --stop-on-failure
    fi
    grep -h 'run again:' "build/$preset/Testing/Temporary/LastTest.log" || true
done
