# Sourced by the other scripts: where the project is, what it needs to be built, and how scripts explain themselves.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
script=$root/scripts/$(basename "$0")

# The comment that the script begins with.
usage() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script"; }

# Ends the script because of an argument that it does not know.
refuse() {
    printf '%s: unknown argument "%s"\n\n' "$(basename "$script")" "$1" >&2
    usage >&2
    exit 2
}

case "${1:-}" in
    -h | --help) usage; exit 0 ;;
esac

say() { printf '\n== %s\n' "$*"; }

# Runs a command with its output in a file, and shows that output only when the command fails: "quietly LOG COMMAND...".
# Says every half minute that it is still at work.
quietly() {
    local log=$1 ticker status=0
    shift
    mkdir -p "$(dirname "$log")"
    (
        for ((seconds = 30; ; seconds += 30)); do
            sleep 30 >/dev/null 2>&1
            kill -0 $$ 2>/dev/null || exit
            echo "still at work after $seconds s; output in $log"
        done
    ) &
    ticker=$!
    "$@" >"$log" 2>&1 || status=$?
    kill $ticker
    wait $ticker 2>/dev/null || true
    [ $status -eq 0 ] || { cat "$log" >&2; exit 1; }
}

# Installs the Debian packages named that are missing. Needs root only then.
need() {
    local package missing=() sudo=
    if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
        echo "This script needs Debian 12 or 13: it takes compilers and libraries from these packages: $*" >&2
        exit 1
    fi
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    export DEBIAN_FRONTEND=noninteractive
    say "Installing ${missing[*]} (once, takes some minutes)"
    quietly build/apt-update.log $sudo apt-get update
    quietly build/apt-install.log $sudo apt-get install -y --no-install-recommends "${missing[@]}"
}

# Configures and builds a preset, with further arguments for "cmake --build".
build() {
    local preset=$1
    shift
    say "Building preset $preset (the first time takes some minutes)"
    quietly "build/$preset.log" cmake --preset "$preset"
    if [ -t 1 ]; then
        cmake --build --preset "$preset" "$@"
    else
        quietly "build/$preset.log" cmake --build --preset "$preset" "$@"
    fi
}

# Makes the Wine prefix if there is none, and has Wine's services running.
start_wine() {
    [ -e build/wine/.ready ] || say "Setting up Wine (once, takes about ten seconds)"
    scripts/wine.sh cmd /c exit
}

# A path of this machine as Windows programs see it under Wine.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

# True when the toolchain of this preset is installed.
has_toolchain() {
    case $1 in
        *-ucrt) command -v x86_64-w64-mingw32ucrt-g++ >/dev/null ;;
    esac
}

# The presets for Linux.
presets=(mingw mingw-ucrt mingw-debug clang-mingw clang-ucrt)

# Ends the script unless these are presets for Linux.
check_presets() {
    local preset
    for preset in "$@"; do
        [[ " ${presets[*]} " == *" $preset "* ]] || refuse "$preset"
    done
}

build_tools=(cmake ninja-build g++-mingw-w64-x86-64-posix llvm libspdlog-dev libfmt-dev googletest pkgconf wine wine64)
test_tools=(golang-go)
clang_tools=(clang lld)
