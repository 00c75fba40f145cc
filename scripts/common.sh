# Sourced by the other scripts: where the project is, and what it needs to be built.
set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cd "$root"

say() { printf '\n== %s\n' "$*"; }

# Installs the Debian packages named that are missing. Needs root only then.
need() {
    local package missing=()
    for package in "$@"; do
        dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing+=("$package")
    done
    [ ${#missing[@]} -eq 0 ] && return
    say "Installing ${missing[*]} (once, takes a minute or two)"
    local sudo=
    [ "$(id -u)" -eq 0 ] || sudo=sudo
    export DEBIAN_FRONTEND=noninteractive
    { $sudo apt-get update && $sudo apt-get install -y --no-install-recommends "${missing[@]}"; } \
        >"${TMPDIR:-/tmp}/tarnex-apt.log" 2>&1 ||
        { cat "${TMPDIR:-/tmp}/tarnex-apt.log" >&2; exit 1; }
}

# Configures and builds a preset. A terminal shows how far it is; elsewhere the compiler's words are shown only when
# something fails.
build() {
    local preset=$1 log="build/$1.log"
    shift
    mkdir -p build
    say "Building preset $preset (the first time takes a minute or two)"
    cmake --preset "$preset" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
    if [ -t 1 ]; then
        cmake --build --preset "$preset" "$@"
    else
        cmake --build --preset "$preset" "$@" >"$log" 2>&1 || { cat "$log" >&2; exit 1; }
    fi
}

# Makes the Wine prefix if there is none, and has Wine's services running.
start_wine() {
    [ -e build/wine/.ready ] || say "Setting up Wine (once, takes about ten seconds)"
    scripts/wine.sh cmd /c exit
}

# A path of this machine as Windows programs see it under Wine.
windows_path() { printf 'Z:%s' "${1//\//\\}"; }

build_tools=(cmake ninja-build g++-mingw-w64-x86-64-posix llvm libspdlog-dev libfmt-dev googletest pkgconf wine wine64)
test_tools=(golang-go)
clang_tools=(clang lld)
