#!/bin/sh
# versions.sh PREFIX: the programs, the libraries' file names, the CMake package and the pkg-config
# files that are installed below PREFIX, and debian/changelog, must tell the same version.
set -eu
prefix=$(cd "$1" && pwd)
cd "$(dirname "$0")/../.."
version=$(sed -n '1s/.*(\([^)-]*\).*).*/\1/p' debian/changelog)

folder() { dirname "$(find "$prefix/lib" -name "$1")"; }
libraries=$(folder libkelda_audioUtils.so)
PKG_CONFIG_PATH=$(folder kelda-audioUtils.pc)
export PKG_CONFIG_PATH
status=0
# tells WHAT VERSION
tells() {
    [ "$2" = "$version" ] || { echo "$1 tells version '$2', debian/changelog '$version'"; status=1; }
}

for program in kelda-play kelda-resample kelda-lab; do
    told=$(LD_LIBRARY_PATH=$libraries "$prefix/bin/$program" --version)
    tells "$program" "${told#"$program "}"
done
for module in kelda-audioUtils kelda-miscUtils kelda-audio; do
    tells "$module.pc" "$(pkg-config --modversion "$module")"
done
tells 'The CMake package' \
    "$(sed -n 's/^set(PACKAGE_VERSION "\(.*\)")/\1/p' "$(folder KeldaAudioConfigVersion.cmake)/KeldaAudioConfigVersion.cmake")"
for library in "$libraries"/libkelda_*.so; do
    tells "$library" "$(readlink -f "$library" | sed 's/.*\.so\.//')"
    # programs ask for MAJOR, which stays while they run with it
    soname=$(objdump -p "$library" | awk '$1 == "SONAME" { print $2 }')
    [ "$soname" = "$(basename "$library").${version%%.*}" ] || { echo "$library is $soname to programs"; status=1; }
done
exit "$status"
