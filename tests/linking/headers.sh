#!/bin/sh
# headers.sh COMPILER INCLUDE_ROOT HEADER...: fails when a public header, or one of this tree that it
# includes, needs anything but this tree and the standard library: programs need not have the rest.
set -eu
compiler=$1 root=$2
shift 2

# The files of this tree; -MM leaves out the system's.
files=$(for header in "$@"; do printf '#include "%s"\n' "$header"; done |
    "$compiler" -std=c++17 "-I$root" -MM -x c++ - | tr -d '\\' | tr ' ' '\n' | grep "^$root/")
# The standard library's headers are plain words, but for those of C. The view type's own header asks for a package first.
foreign=$(printf '%s\n' "$files" | grep -v '/nonstd/span\.hpp$' |
    xargs grep -nE '^ *# *include *<.*[./].*>' | grep -vE '<std(def|int)\.h>' || true)
[ -z "$foreign" ] || {
    printf 'Public headers include what a program may lack:\n%s\n' "$foreign"
    exit 1
}
