#!/bin/sh
# outside.sh COMPILER SOURCE INCLUDE_ROOT LIBRARY_FOLDER: a program outside the tree needs nothing
# but the headers' root, the folder of the libraries and their names. For another machine it needs
# that machine's $SYSROOT, where its linker looks for what the libraries need, and $RUN runs it.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1" ${SYSROOT:+"--sysroot=$SYSROOT" "-Wl,-rpath-link,$4"} -std=c++20 "-I$3" "$2" -o "$folder/program" "-L$4" -lkelda_audioUtils -lkelda_miscUtils -llog4cplus
# shellcheck disable=SC2086 # an emulator has arguments
LD_LIBRARY_PATH=$4 ${RUN:-} "$folder/program"
