#!/bin/sh
# consumers.sh PREFIX [COMPILER]: builds the README's example, in C++ and in C, in an empty folder
# against what is installed below PREFIX, once as a project of CMake and once as a Makefile with
# pkg-config, and runs all. Every header that is installed must serve a program, too.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
prefix=$(cd "$1" && pwd)
export CXX="${2:-c++}"
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
cp -r "$here/cmake" "$here/pkgconfig" "$folder"
cp "$here/../linking/outsideKits.cpp" "$folder/cmake"
for consumer in cmake pkgconfig; do
    cp "$here/../../examples"/queue_to_device.c* "$folder/$consumer"
done

description=$(find "$prefix/lib" -name kelda-audioUtils.pc)
PKG_CONFIG_PATH=$(dirname "$description")
libraries=$(dirname "$PKG_CONFIG_PATH")
export PKG_CONFIG_PATH

cd "$folder/cmake"
{ cmake -G Ninja -D CMAKE_PREFIX_PATH="$prefix" -B build && cmake --build build; } >log 2>&1 ||
    { cat log; exit 1; }
for program in queue_to_device queue_to_device_c outsideKits; do
    LD_LIBRARY_PATH=$libraries timeout 60 build/$program
done

cd "$folder/pkgconfig"
LD_LIBRARY_PATH=$libraries make --silent
for program in queue_to_device queue_to_device_c; do
    LD_LIBRARY_PATH=$libraries timeout 60 ./$program
done

# Every header; with the view type that the libraries were built with, whatever the machine has.
mkdir -p "$folder/headers/nonstd"
cd "$prefix/include/kelda"
# "#if 01": the libraries were built with the span package's type. Elsewhere the installed header is not
# to look for that package, whatever the machine has: finding it is made an error.
grep -q '^#if 01 ' nonstd/span.hpp ||
    echo '#error "another type than the libraries were built with"' >"$folder/headers/nonstd/span.hpp"
find . -name '*.h*' -printf '#include "%P"\n' |
    "$CXX" -std=c++20 -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror -fsyntax-only -x c++ - \
        -I "$prefix/include/kelda" -isystem "$folder/headers"
