#!/usr/bin/env bash
# Makes what is released, in build/packages: for the universal C runtime (built by clang) and for msvcrt.dll (by GCC) a
# zip of the library and a kit that tries it, and SHA256SUMS. Each kit is unpacked into a folder with an odd name and run
# under Wine. Where the toolchain for the universal C runtime is missing, its zips are left out.
#
# usage: package.sh             makes both
#        package.sh PRESET...   makes the zips of these of PRESETS
source "$(dirname "${BASH_SOURCE[0]}")/common.sh"
check_presets "$@"
chosen=("$@")
if [ $# -eq 0 ]; then
    chosen=(mingw)
    if has_toolchain clang-ucrt; then
        chosen+=(clang-ucrt)
    else
        echo "No zips for the universal C runtime: $missing_toolchain"
    fi
fi

need_for "${chosen[@]}"
need "${test_tools[@]}" zip
rm -rf build/packages
mkdir -p build/packages

# Unpacks the kit of a preset and runs it, for a quarter of an hour at most.
try_kit() {
    local kit="$root/build/a kit für alle"
    rm -rf "$kit"
    mkdir -p "$kit"
    (cd "$kit" && cmake -E tar xf "$root/build/$1/packages"/*-tests.zip && cd ./*-tests &&
        timeout 900 "$root/scripts/wine.sh" cmd /c run-tests.cmd) | tr -d '\r'
    rm -rf "$kit"
}

for preset in "${chosen[@]}"; do
    build "$preset"
    quietly build/zips.log cmake --build --preset "$preset" --target zips
    cp "build/$preset/packages"/*.zip build/packages
    cat "build/$preset/packages/SHA256SUMS" >>build/packages/SHA256SUMS

    start_wine
    say "Trying the kit of preset $preset"
    try_kit "$preset"
done

say "Packages in build/packages"
cat build/packages/SHA256SUMS
