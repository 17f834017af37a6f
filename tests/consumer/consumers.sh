#!/bin/sh
# consumers.sh PREFIX [COMPILER]: programs outside, against what is installed below PREFIX: the README's
# program and the guides', each in an empty folder as the page says (recipes.sh); a project of CMake; and
# every header that is installed must serve a program.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(cd "$1" && pwd)
export CXX="${2:-c++}"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

"$here/recipes.sh" "$prefix" "$here/../../README.md" "$here"/../../docs/guides/*.md

cp -r "$here/cmake" "$folder"
cp "$here/../linking/outsideKits.cpp" "$here/../../examples/queue_to_device.c" "$folder/cmake"
cd "$folder/cmake"
{ cmake -G Ninja -D CMAKE_PREFIX_PATH="$prefix" -B build && cmake --build build; } >log 2>&1 ||
    { cat log; exit 1; }
libraries=$(dirname "$(find "$prefix/lib" -name libkelda_audioUtils.so)")
for program in queue_to_device_c outsideKits; do
    LD_LIBRARY_PATH=$libraries timeout 60 build/$program
done

# The scenarios that were installed, by name.
LD_LIBRARY_PATH=$libraries "$prefix/bin/kelda-lab" run nowhere 2>&1 | grep -q interruptions ||
    { echo 'kelda-lab does not find its scenarios'; exit 1; }

# Every header; with the view type that the libraries were built with, whatever the machine has.
mkdir -p "$folder/headers/nonstd"
cd "$prefix/include/kelda"
# "#if 01": the libraries were built with the span package's type. Elsewhere the installed header is not
# to look for that package, whatever the machine has: finding it is made an error.
grep -q '^#if 01 ' nonstd/span.hpp ||
    echo '#error "another type than the libraries were built with"' >"$folder/headers/nonstd/span.hpp"
find . -name '*.h*' -printf '#include "%P"\n' |
    "$CXX" -std=c++17 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only -x c++ - \
        -I "$prefix/include/kelda" -isystem "$folder/headers"
