#!/bin/sh
# removesNothing.sh PROJECT: no script of the project's has apt install without --no-remove, or remove.
set -eu
cd "$1"
files=$(grep -lE 'apt(-get)?\b' -r scripts .ci debian/tests tests/scripts | grep -v 'removesNothing.sh$')
# shellcheck disable=SC2086 # one word a file is meant
calls=$(sed -e ':join' -e '/\\$/{N;s/\\\n//;b join' -e '}' $files | grep -vE '^ *#' |
    grep -E '\bapt(-get)?\b.*[ "](install|upgrade|dist-upgrade|full-upgrade|remove|purge|autoremove)\b')
[ -n "$calls" ] || { echo "No call of apt found: $files"; exit 1; }
if echo "$calls" | grep -vE -e '--no-remove|--simulate'; then
    echo 'may remove packages'
    exit 1
fi
