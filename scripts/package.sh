#!/usr/bin/env bash
# Makes the two zips of a release, that of the library and the kit that tries it, and SHA256SUMS, in
# build/mingw/packages; then unpacks the kit into a folder with an odd name and runs it. "package.sh PRESET" does so
# for another preset.
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"

preset=${1:-mingw}
need "${build_tools[@]}" "${test_tools[@]}" zip
build "$preset"
say "Packages in build/$preset/packages"
cmake --build --preset "$preset" --target zips >build/zips.log 2>&1 || { cat build/zips.log >&2; exit 1; }
cat "build/$preset/packages/SHA256SUMS"

start_wine
say "Trying the kit (takes half a minute)"
kit="$root/build/a kit für alle"
try_kit() {
    rm -rf "$kit"
    mkdir -p "$kit"
    (cd "$kit" && cmake -E tar xf "$root/build/$preset/packages"/*-tests.zip && cd ./*-tests &&
        "$root/scripts/wine.sh" cmd /c run-tests.cmd) | tr -d '\r'
}
# A second try in CI, for the reason that test.sh gives.
try_kit || { [ -n "${CI:-}" ] && say "Once more" && try_kit; }
