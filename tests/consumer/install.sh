#!/bin/sh
# install.sh BUILD SOURCE ROOT PREFIX: installs a build anew for PREFIX, in ROOT, which stands before it
# (DESTDIR), with the options that README's recipe has: nothing that only a debugger reads. What is installed must need neither the build nor the source folder, nor PREFIX: it is
# used from where it lies.
set -eu
build=$1 source=$2 root=$3 prefix=$4
rm -rf "$root"
options=$(sed -nE 's/^cmake --install [^ ]+ --prefix [^ ]+//p' "$source/README.md")
# shellcheck disable=SC2086 # one option a word
DESTDIR=$root cmake --install "$build" --prefix "$prefix" $options >/dev/null
for file in "$root$prefix"/bin/* "$root$prefix"/lib/*.so "$root$prefix"/lib/*.so.*; do
    ! readelf -SW "$file" | grep -q '\.debug_info' || { echo "$file is not stripped"; exit 1; }
done
# The libraries' and programs' own text may name source files: in debug information and assertions.
bound=$(
    grep -rIlF -e "$build" -e "$source" -e "$root" -e "$prefix" "$root" || true
    find "$root" -type f \( -name '*.so*' -o -path '*/bin/*' \) | while read -r file; do
        readelf -d "$file" | grep -E '(RPATH|RUNPATH).*\[(.*:)?/' || true
    done
)
[ -z "$bound" ] || { printf 'Bound to one place:\n%s\n' "$bound"; exit 1; }
# Programs find the libraries that were installed with them.
for program in "$root$prefix"/bin/*; do
    "$program" --version >/dev/null
done
