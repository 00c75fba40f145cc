#!/usr/bin/env bash
# Builds the library and runs all its tests.
#
# usage: test.sh             with MinGW GCC, and for the universal C runtime where that toolchain is installed
#        test.sh --all       with every compiler and setting for Linux
#        test.sh PRESET...   with these presets
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

chosen=(mingw)
if [ "${1:-}" = --all ]; then
    [ $# -eq 1 ] || refuse "$2"
    chosen+=(mingw-debug clang-mingw)
elif [ $# -ne 0 ]; then
    check_presets "$@"
    chosen=("$@")
fi
if [ $# -eq 0 ] || [ "$1" = --all ]; then
    ! has_toolchain mingw-ucrt || chosen+=(mingw-ucrt)
fi

need "${build_tools[@]}" "${test_tools[@]}"
[[ " ${chosen[*]} " != *" clang-mingw "* ]] || need "${clang_tools[@]}"

# Not for every day: the benchmark still compiles.
[ "${1:-}" != --all ] || build mingw --target bench

for preset in "${chosen[@]}"; do
    build "$preset"
    start_wine
    say "Testing preset $preset"
    # CI gives a test a second try, which the output shows: Wine ends a process without a word now and then.
    ctest --preset "$preset" ${CI:+--repeat until-pass:2}
done
