# What these tests share; sourced. A Debian with the packages of somebody's choice that exists for apt's
# simulation and for dpkg-query alone: in $work. Without apt's lists of packages there is none.

project=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/dpkg" "$work/bin" "$work/parts"
: >"$work/dpkg/status"
cat >"$work/apt.conf" <<END
Dir::State::status "$work/dpkg/status";
Dir::State::extended_states "$work/extended";
Dir::Etc::parts "$work/parts"; // read later, they may switch the cache off
Dir::Cache "$work";
Dir::Cache::pkgcache "pkgcache.bin";
Dir::Cache::srcpkgcache "srcpkgcache.bin";
APT::Install-Recommends "false";
END
export APT_CONFIG="$work/apt.conf" DPKG_ADMINDIR="$work/dpkg"

apt-cache show pipewire-alsa >/dev/null 2>&1 || {
    echo 'Skipped: apt has no lists of packages here (apt-get update)'
    exit 77
}

# has PACKAGE...: it has these, and what they depend on.
has() {
    names=$(LC_ALL=C apt-get -qq --simulate install "$@" | awk '$1 == "Inst" { print $2 }')
    apt-cache dumpavail | awk -v RS= -v ORS='\n\n' -v FS='[\n ]' -v names="$names" '
        BEGIN { split(names, list, "\n"); for (i in list) wanted[list[i]] }
        $2 in wanted { sub("\n", "\nStatus: install ok installed\n"); print }' >>"$work/dpkg/status"
}

# gone PACKAGE...: what apt would remove for these.
gone() { LC_ALL=C apt-get -qq --simulate --no-install-recommends install "$@" | awk '$1 == "Remv" { print $2 }' | xargs; }
