# What the scripts share; sourced, not run. Changes to the project's folder, $root; the caller's
# stays in $caller.

set -eu
caller=$PWD
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

say() { printf '%s\n' "$*" >&2; }

# install_missing [MARK]: installs what scripts/packages lists, without a mark or with this one, and
# the machine lacks; does nothing, and needs no rights, when all is there.
install_missing() {
    missing=
    for package in $(awk -v mark="${1:-}" '/^[^#]/ && ($2 == "" || $2 == mark) { print $1 }' scripts/packages); do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0

    sudo=
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { say "Missing packages, and neither root nor sudo:$missing"; exit 1; }
        sudo=sudo
    fi
    say "Installing:$missing"
    log=$(mktemp)
    # shellcheck disable=SC2086 # one word a package is meant
    { $sudo apt-get -qq update &&
        $sudo env DEBIAN_FRONTEND=noninteractive \
            apt-get -qq install -y --no-install-recommends $missing; } >"$log" 2>&1 </dev/null ||
        { cat "$log" >&2; exit 1; }
    rm -f "$log"
}

# build PRESET [TARGET]: configures and builds one of the presets of CMakePresets.json. What it
# prints goes to standard error: standard output belongs to the program that is built.
build() {
    { cmake --preset "$1" && cmake --build --preset "$1" ${2:+--target "$2"}; } >&2
}

# run_tests PRESET [--without LABELS] [OPTIONS]: runs a preset's tests, but those with a label that
# matches. What plays in real time (label "timing") mostly waits, so more of it runs at a time; it can
# fail because something else keeps the machine busy: only that gets a second and a third try. A
# sanitizer's report counts in whichever try it came.
run_tests() (
    preset=$1 && shift
    without=none
    [ "${1:-}" != --without ] || { without=$2 && shift 2; }
    reports=$root/build-reports/$preset
    rm -rf "$reports"
    mkdir -p "$reports"
    export KELDA_SANITIZER_OPTIONS="log_path=$reports/sanitizer"

    status=0
    ctest --preset "$preset" -j "$(nproc)" -LE "^(timing|$without)\$" "$@" || status=$?
    ctest --preset "$preset" -j "$((2 * $(nproc)))" -L '^timing$' -LE "^($without)\$" --repeat until-pass:3 "$@" || status=$?
    for report in "$reports"/*; do
        [ ! -e "$report" ] || { cat "$report" >&2 && status=1; }
    done
    return "$status"
)
