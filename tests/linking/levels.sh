#!/bin/sh
# levels.sh COMPILER SOURCE INCLUDE_ROOT LIBRARY_FOLDER LIBRARY...: one program, compiled at each language
# level that programs are compiled at, by the compiler and by clang where there is one, runs with the same
# libraries, prints the same, and has the members of all types at the same places. Its compilation warns of
# nothing. $SYSROOT and $RUN as for outside.sh.
set -eu
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
compiler=$1 source=$2 root=$3 libraries=$4
shift 4
compilers=$compiler
[ -n "${SYSROOT:-}" ] || ! command -v clang++-14 >"$folder/clang" || compilers="$compiler clang++-14"

# members PROGRAM: the offset and name of each data member, as debug information tells them. Those of this
# project are called m_...; what else has fields is told by its size, which the program prints.
members() {
    objdump --dwarf=info "$1" | awk '
        /DW_TAG_/ { member = /DW_TAG_member/ }
        member && /DW_AT_name/ { name = $NF }
        member && /DW_AT_data_member_location/ && name ~ /^m_/ { print $NF, name; name = "" }' | sort -u
}

first=
for each in $compilers; do
    debug='-g -femit-class-debug-always' # not only in the file where its first operation is
    ! "$each" --version | grep -q clang || debug='-g -fstandalone-debug'
    for level in c++17 c++20 c++2b; do
        program=$folder/$(basename "$each")-$level
        # shellcheck disable=SC2046,SC2086 # one option a word, and a library, is meant
        "$each" ${SYSROOT:+"--sysroot=$SYSROOT" "-Wl,-rpath-link,$libraries"} -std=$level $debug \
            -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Werror "-I$root" "$source" \
            -o "$program" "-L$libraries" $(printf -- '-l%s ' "$@")
        # shellcheck disable=SC2086 # an emulator has arguments
        LD_LIBRARY_PATH=$libraries ${RUN:-} "$program" >"$program.printed" ||
            { cat "$program.printed" && echo "$each -std=$level: fails" && exit 1; }
        members "$program" >"$program.members"
        grep -q m_mutex "$program.members" || { echo 'no member is found'; exit 1; }
        first=${first:-$program}
        diff -u "$first.printed" "$program.printed"
        diff -u "$first.members" "$program.members"
    done
done
