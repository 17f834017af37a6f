# What the scripts share; sourced, not run. Changes to the project's folder, $root; the caller's
# stays in $caller.

set -eu
caller=$PWD
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"

say() { printf '%s\n' "$*" >&2; }

# packages_marked [MARK]: what scripts/packages lists with this mark, or with none.
packages_marked() {
    awk -v mark="${1:-}" '/^[^#]/ && $2 == mark { print $1 }' scripts/packages | xargs
}

# install_missing [MARK]: installs what scripts/packages lists, without a mark or with this one, and
# the machine lacks; does nothing, and needs no rights, when all is there.
install_missing() {
    missing=
    for package in $(packages_marked) $(packages_marked "${1:-}"); do
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

# Packages that are not to be installed are unpacked in here; removing it has them fetched anew.
cache=${XDG_CACHE_HOME:-$HOME/.cache}/kelda

# keep_unpacked FOLDER PACKAGES COMMAND: has COMMAND fill a new folder, its argument, with what these
# packages hold, below "root", and keeps that as FOLDER for the next time.
keep_unpacked() (
    folder=$1 packages=$2 command=$3
    [ "$(cat "$folder/packages" 2>/dev/null)" != "$packages" ] || exit 0
    say "Fetching, not installing: $packages"
    new=$folder.$$
    log=/dev/null
    trap 'cat "$log" >&2; rm -rf "$new"' EXIT
    trap 'exit 1' INT TERM
    mkdir -p "$new/apt" "$new/root/usr/lib"
    ln -s usr/lib "$new/root/lib" # packages of Debian 12 have files in both
    log=$new/log
    ("$command" "$new") >"$log" 2>&1 </dev/null # the shell ends, and shows the log, where this fails
    log=/dev/null
    echo "$packages" >"$new/root/packages"
    rm -rf "$folder"
    mv -T "$new/root" "$folder"
)

# private_apt FOLDER ARCHITECTURE <STATUS: from here on apt has lists of its own, in FOLDER, and takes
# what STATUS lists for installed: it needs no rights, and leaves the machine's packages alone.
private_apt() {
    mkdir -p "$1/lists/partial" "$1/archives/partial"
    cat >"$1/status"
    cat >"$1/apt.conf" <<EOF
Dir::State "$1";
Dir::State::status "$1/status";
Dir::Cache "$1";
APT::Architecture "$2";
APT::Architectures "$2";
APT::Install-Recommends "false";
APT::Sandbox::User "root";
EOF
    export APT_CONFIG="$1/apt.conf"
    apt-get -qq update
}

# unpack FROM TO: unpacks the packages in one folder into another.
unpack() {
    # shellcheck disable=SC2016 # for the inner shell
    find "$1" -name '*.deb' -print0 |
        xargs -0 -P "$(nproc)" -n 1 sh -c 'dpkg-deb --fsys-tarfile "$2" | tar -xf - -C "$1" --keep-directory-symlink \
            --exclude=./usr/share/doc --exclude=./usr/share/locale --exclude=./usr/share/man' sh "$2"
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
