#!/bin/sh
# recipes.sh PREFIX PAGE...: what pages tell a programmer to type works as it is printed, with what is
# installed below PREFIX and nothing else of this project. A recipe is a block of commands (sh) that builds
# a program with a compiler or with "cmake -B". Each is run in a folder of its own, with the program that
# the page shows whole, or else those of examples/ that it names, and the page's CMakeLists.txt. A program
# whose status tells whether the machine kept up is run by a block of its own, which is no recipe: the
# tests of the examples judge that.
set -eu
examples=$(cd "$(dirname "$0")/../../examples" && pwd)
prefix=$(cd "$1" && pwd)
shift
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

PKG_CONFIG_PATH=$(dirname "$(find "$prefix/lib" -name kelda-audioUtils.pc)")
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH")
CMAKE_PREFIX_PATH=$prefix
export PKG_CONFIG_PATH LD_LIBRARY_PATH CMAKE_PREFIX_PATH

# blocks PAGE: its fenced blocks, as $work/blocks/NUMBER.LANGUAGE
blocks() {
    rm -rf "$work/blocks" && mkdir "$work/blocks"
    awk -v folder="$work/blocks" '
        /^```/ && inside { inside = 0; close(file); next }
        /^```/ { inside = 1; file = sprintf("%s/%02d.%s", folder, ++n, substr($0, 4)); next }
        inside { print >file }' "$1"
}

# run_recipe BLOCK: in $work/program, which is empty before
run_recipe() {
    rm -rf "$work/program" && mkdir "$work/program"
    cd "$work/program"
    for block in "$work"/blocks/*.cmake; do
        [ ! -e "$block" ] || cp "$block" CMakeLists.txt
    done
    whole=$(grep -ls '^int main' "$work"/blocks/*.cpp || true)
    for source in $(cat "$1" CMakeLists.txt 2>/dev/null | grep -oE '\b[a-z_]+\.(cpp|c)\b' | sort -u); do
        case $source in
        *.cpp) cp "${whole:-$examples/$source}" "$source" ;;
        *) cp "$examples/$source" . ;;
        esac
    done
    # What the examples share, where one asks for it.
    grep -ohE '^#include "[A-Za-z]+\.h"' ./*.cpp 2>/dev/null | cut -d'"' -f2 | sort -u |
        while read -r header; do cp "$examples/$header" .; done
    # The compiler by itself looks where a distribution installs; here it has to be told.
    if grep -q -e '-I/usr/include/kelda' "$1" && [ "$prefix" != /usr ]; then
        export CPATH="$prefix/include/kelda" LIBRARY_PATH="$LD_LIBRARY_PATH"
    fi
    timeout 300 sh -eux "$1"
}

count=0
for page in "$@"; do
    blocks "$page"
    before=$count
    for block in "$work"/blocks/*.sh; do
        grep -qE '^(g\+\+|gcc|cmake -B) ' "$block" || continue
        (run_recipe "$block") >"$work/log" 2>&1 || {
            printf '%s: does not work:\n' "$page"
            cat "$block" "$work/log"
            exit 1
        }
        count=$((count + 1))
    done
    [ "$count" -gt "$before" ] || ! ls "$work"/blocks/*.cpp >/dev/null 2>&1 ||
        { echo "$page: shows code, and not how it is built"; exit 1; }
done
echo "$count recipes work"
