#!/usr/bin/env bash
# Static checks: formatting, clang-tidy and cppcheck. No finding is allowed.
#
# usage: check.sh
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
[ $# -eq 0 ] || refuse "$1"

need "${build_tools[@]}" "${clang_tools[@]}" clang-format clang-tidy cppcheck
mapfile -t sources < <(find src include examples bench tests -name '*.cpp' -o -name '*.c' -o -name '*.h' | sort)

say "clang-format"
clang-format --dry-run --Werror "${sources[@]}"

# Suppressed: that version 2.17 limits its analysis, and that it cannot read what a lambda with auto... does.
say "cppcheck"
cppcheck --quiet --error-exitcode=1 --enable=warning,performance,portability --inline-suppr --std=c++20 \
    --platform=win64 -D_WIN64 -D_M_X64 --library=windows --library=googletest --suppress=normalCheckLevelMaxBranches \
    --suppress=internalAstError -I include -I src include src examples bench tests

say "clang-tidy (takes some minutes)"
quietly build/clang-mingw.log cmake --preset clang-mingw
quietly build/clang-tidy.log run-clang-tidy -quiet -p build/clang-mingw "$root/(src|examples|bench|tests)/"
echo "no finding"
