#!/bin/sh
# exports.sh NM LIBRARY NAMESPACE [NAMES]: fails when the library offers anything but its public names;
# NAMES are those outside the namespace, as a regular expression.
set -eu
nm=$1
shift
names=$("$nm" --dynamic --defined-only --demangle "$1" | cut -d' ' -f3-)
printf '%s\n' "$names" | grep -qE "^($2::|$2_)" || { echo "$1 exports nothing"; exit 1; }

others=$(printf '%s\n' "$names" |
    grep -vE "^((vtable|typeinfo|typeinfo name) for |int )?$2::|^dbglog_scopedFunction${3:+|^($3)\$}" || true)
private=$(printf '%s\n' "$names" | grep -E '::(detail|\(anonymous namespace\))::' || true)
# Of the classes' private helpers none is seen either; some stand for all.
helpers=$(printf '%s\n' "$names" | grep -E '::(alignWrite|Instant|State|updateConfiguration)' || true)
[ -z "$others$private$helpers" ] || {
    printf '%s exports more than its public names:\n%s\n' "$1" "$others$private$helpers"
    exit 1
}
