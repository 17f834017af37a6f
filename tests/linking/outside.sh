#!/bin/sh
# outside.sh COMPILER SOURCE INCLUDE_ROOT LIBRARY_FOLDER: a program outside the tree needs nothing
# but the headers' root, the folder of the libraries and their names.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
"$1" -std=c++20 "-I$3" "$2" -o "$folder/program" "-L$4" -lkelda_audioUtils -lkelda_miscUtils -llog4cplus
LD_LIBRARY_PATH=$4 "$folder/program"
