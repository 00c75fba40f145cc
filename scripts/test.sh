#!/usr/bin/env bash
# Builds every preset that can be built here and runs its tests. Give names of presets to run only those.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

presets=("$@")
[ $# -gt 0 ] || presets=(mingw-debug clang-mingw mingw)

need "${build_tools[@]}" "${test_tools[@]}"
for preset in "${presets[@]}"; do
    build "$preset"
    start_wine
    say "Testing preset $preset"
    ctest --preset "$preset"
done
