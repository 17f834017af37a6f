#!/bin/sh
# lint.sh PAGE...: manual pages without a mistake, and in the style of manual pages, as mandoc knows both.
# Where other pages are installed is not theirs to know.
set -eu
for page in "$@"; do
    [ -f "$page" ] || { echo "$page: no such page" && exit 1; }
done
! mandoc -Tlint "$@" 2>&1 | grep -vE 'referenced manual not found|outdated mandoc.db'
