#!/usr/bin/env bash
# Builds the library and runs all its tests: with MinGW GCC, and for the universal C runtime where that toolchain
# is installed. "test.sh --all" does so with every compiler and setting there is; "test.sh PRESET..." with those named.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

need "${build_tools[@]}" "${test_tools[@]}"
presets=(mingw)
if [ "${1:-}" = --all ]; then
    need "${clang_tools[@]}"
    presets+=(mingw-debug clang-mingw)
fi
command -v x86_64-w64-mingw32ucrt-g++ >/dev/null && presets+=(mingw-ucrt)
[ $# -eq 0 ] || [ "$1" = --all ] || presets=("$@")

# Not for every day: the benchmark still compiles.
[ "${1:-}" != --all ] || build mingw --target bench

for preset in "${presets[@]}"; do
    build "$preset"
    start_wine
    say "Testing preset $preset"
    # CI gives a test a second try, which the output shows: Wine ends a process without a word now and then.
    ctest --preset "$preset" ${CI:+--repeat until-pass:2}
done
