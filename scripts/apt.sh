# How the scripts come by Debian's packages; sourced by common.sh. Nothing that a machine has is ever
# removed for them.

# packages_marked [MARK]: what scripts/packages lists with this mark, or with none.
packages_marked() {
    awk -v mark="${1:-}" '/^[^#]/ { for (i = 2; i <= NF; ++i) has[NR, $i] }
        /^[^#]/ && (mark == "" ? NF == 1 : (NR, mark) in has) { print $1 }' scripts/packages | xargs
}

# What apt would do, and does not: lines "Inst NAME ..." and "Remv NAME ...".
plan() { LC_ALL=C apt-get -qq --simulate --no-install-recommends install "$@"; }

# wanted_gone PACKAGE...: what apt would remove for them.
wanted_gone() { plan "$@" | awk '$1 == "Remv" { print $2 }' | xargs; }

# install_missing [MARK...]: installs what scripts/packages lists, without a mark or with one of these,
# and the machine lacks; does nothing, and needs no rights, when all is there. What apt would remove
# something for is named and left out where single tests are skipped without it; else nothing is done.
# shellcheck disable=SC2086 # one word a package is meant
install_missing() {
    missing=
    for package in $(packages_marked; for mark in "$@"; do packages_marked "$mark"; done); do
        dpkg-query -W -f '${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
            missing="$missing $package"
    done
    [ -n "$missing" ] || return 0

    sudo=
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || { say "Missing packages, and neither root nor sudo:$missing"; exit 1; }
        sudo=sudo
    fi
    log=$(mktemp)
    $sudo apt-get -qq update >"$log" 2>&1 </dev/null || { cat "$log" >&2; exit 1; }
    [ -z "$(wanted_gone $missing)" ] || leave_out_what_removes
    [ -n "$missing" ] || return 0
    say "Installing:" "$(plan $missing | awk '$1 == "Inst" { print $2 }' | sort -u | xargs)"
    $sudo env DEBIAN_FRONTEND=noninteractive \
        apt-get -qq install -y --no-remove --no-install-recommends $missing >"$log" 2>&1 </dev/null ||
        { cat "$log" >&2; exit 1; }
    rm -f "$log"
}

# Takes from $missing what apt would remove something for.
leave_out_what_removes() {
    kept=
    for package in $missing; do
        gone=$(wanted_gone "$package")
        if [ -z "$gone" ]; then
            kept="$kept $package"
            continue
        fi
        say "Not installed: $package, for which this machine would lose $gone"
        case " $(packages_marked optional) " in
        *" $package "*) say "The tests that need $package are skipped" ;;
        *) say "It is needed: nothing is installed"; exit 1 ;;
        esac
    done
    missing=$kept
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
