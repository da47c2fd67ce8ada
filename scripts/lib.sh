# shellcheck shell=bash
# Shared by the scripts here: where the project is, how to say things, how to
# become root for what needs it. Sourced, not run.

set -euo pipefail
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)

say() { printf '\n== %s\n' "$*"; }
die() {
    printf '%s: %s\n' "$(basename "$0")" "$*" >&2
    exit 1
}

# Runs a command as root: directly, or through sudo.
as_root() {
    if [ "$(id -u)" -eq 0 ]; then
        "$@"
    elif command -v sudo >/dev/null; then
        sudo "$@"
    else
        die "this needs root or sudo: $*"
    fi
}

# A mount needs the kernel's FUSE device; without it nothing here can work.
need_fuse() {
    [ -e /dev/fuse ] || die "/dev/fuse is missing: load the fuse module (modprobe fuse), or give the container that device"
    command -v fusermount3 >/dev/null || die "fusermount3 is missing: run scripts/setup"
}

# Builds one preset; the output is shown only when it fails.
build() {
    local preset=$1 log
    shift
    log=$(mktemp)
    cd "$root"
    if ! { cmake --preset "$preset" "$@" && cmake --build --preset "$preset"; } >"$log" 2>&1; then
        tail -n 60 "$log" >&2
        die "the build failed (the whole output: $log)"
    fi
    rm -f "$log"
}
