# Sourced by the other scripts: where the project is, what it needs to be built, and how scripts explain themselves.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"
script=$root/scripts/$(basename "$0")

# The presets for Debian.
presets=(mingw mingw-ucrt mingw-debug clang-mingw clang-ucrt)

# The comment that the script begins with, with the names of the presets in place of PRESETS.
usage() { sed -n '2,/^[^#]/s/^# \{0,1\}//p' "$script" | sed "s/PRESETS/${presets[*]}/"; }

# Ends the script because of its arguments.
misused() {
    printf '%s: %s\n\n' "$(basename "$script")" "$1" >&2
    usage >&2
    exit 2
}
refuse() { misused "unknown argument \"$1\""; }

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

# True when the toolchain of this preset is installed, or comes from a package that "need" installs.
has_toolchain() {
    case $1 in
        *-ucrt) command -v x86_64-w64-mingw32ucrt-g++ >/dev/null ;;
    esac
}
missing_toolchain='the toolchain is missing; Debian 13 has it in the package g++-mingw-w64-ucrt64'

# Ends the script unless these are presets for Debian whose toolchain is installed.
check_presets() {
    local name
    for name in "$@"; do
        [[ " ${presets[*]} " == *" $name "* ]] || refuse "$name"
        has_toolchain "$name" || { echo "Preset $name: $missing_toolchain" >&2; exit 1; }
    done
}

# Reads "--preset PRESET" from the arguments: sets preset, and taken to the number of arguments that this took.
take_preset() {
    preset=mingw
    taken=0
    [ "${1:-}" = --preset ] || return 0
    [ $# -ge 2 ] || misused "--preset needs the name of a preset"
    check_presets "$2"
    preset=$2
    taken=2
}

# Installs what these presets need to be built.
need_for() {
    need "${build_tools[@]}"
    [[ " $*" != *" clang-"* ]] || need "${clang_tools[@]}"
}

build_tools=(cmake ninja-build g++-mingw-w64-x86-64-posix llvm libspdlog-dev libfmt-dev googletest pkgconf wine wine64)
test_tools=(golang-go)
clang_tools=(clang lld)
