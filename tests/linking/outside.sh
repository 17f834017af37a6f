#!/bin/sh
# outside.sh COMPILER SOURCE INCLUDE_ROOT LIBRARY_FOLDER LIBRARY...: a program outside the tree needs
# nothing but the headers' root, the folder of the libraries and their names; one in C is C99 to the
# letter, one in C++ what the compiler takes when nothing is said, or $STANDARD; clang 14, which takes
# C++14 then, has to be told. For another machine it needs that machine's $SYSROOT, where its linker looks
# for what the libraries need, and $RUN runs it.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
compiler=$1 source=$2 root=$3 libraries=$4
shift 4
case $compiler in
*clang*) STANDARD=${STANDARD:-c++17} ;;
esac
case $source in
*.c) standard='-std=c99 -pedantic-errors -Wall -Wextra -Wconversion -Werror' ;;
*) standard=${STANDARD:+-std=$STANDARD} ;;
esac
# shellcheck disable=SC2046,SC2086 # one option a word, and a library, is meant
"$compiler" ${SYSROOT:+"--sysroot=$SYSROOT" "-Wl,-rpath-link,$libraries"} $standard "-I$root" "$source" \
    -o "$folder/program" "-L$libraries" $(printf -- '-l%s ' "$@")
# shellcheck disable=SC2086 # an emulator has arguments
LD_LIBRARY_PATH=$libraries ${RUN:-} "$folder/program"
