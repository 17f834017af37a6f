# What the scripts share; sourced, not run. Changes to the project's folder, $root; the caller's
# stays in $caller.

set -eu
caller=$PWD
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

say() { printf '%s\n' "$*" >&2; }

. scripts/apt.sh

# build PRESET [TARGET...]: configures and builds one of the presets of CMakePresets.json. What it
# prints goes to standard error: standard output belongs to the program that is built.
build() (
    preset=$1 && shift
    { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } >&2
)

# run_tests PRESET [--without LABELS] [OPTIONS]: runs a preset's tests, but those with a label that
# matches. Many of them wait for most of their time, so there are more at a time than processors. A
# sanitizer's report counts, whatever the test made of it.
run_tests() (
    preset=$1 && shift
    without=none
    [ "${1:-}" != --without ] || { without=$2 && shift 2; }
    reports=$root/build-reports/$preset
    rm -rf "$reports"
    mkdir -p "$reports"
    export KELDA_SANITIZER_OPTIONS="log_path=$reports/sanitizer"

    status=0
    ctest --preset "$preset" -j "$((2 * $(nproc)))" -LE "^($without)\$" "$@" || status=$?
    for report in "$reports"/*; do
        [ ! -e "$report" ] || { cat "$report" >&2 && status=1; }
    done
    return "$status"
)

# side_by_side COMMAND... <ARGUMENTS: runs COMMAND with each line behind it, as many at a time as there are
# processors. What one prints is shown whole, when it ends. Fails when one does.
side_by_side() {
    # shellcheck disable=SC2016 # for the inner shell
    xargs -d '\n' -P "$(nproc)" -n 1 sh -c 'said=$("$@" 2>&1); status=$?; printf "%s\n" "$said"; exit "$status"' sh "$@"
}
