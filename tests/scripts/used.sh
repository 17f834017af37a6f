#!/bin/sh
# used.sh PROJECT BUILD: of each -dev package that scripts/packages has installed to build and to test, the
# build has read a file; and what it has read of other packages comes with those that are listed.
set -eu
cd "$1"
listed=$(awk '/^[^#]/ && (NF == 1 || / (test|bench)( |$)/) && $1 ~ /-dev$/ { print $1 }' scripts/packages | sort)
read_from=$(ninja -C "$2" -t deps | sed -n 's|^ *\(/usr/include/.*\)|\1|p' | sort -u | xargs dpkg -S 2>/dev/null |
    sed 's/:.*//' | sort -u)

unused=$(for package in $listed; do echo "$read_from" | grep -qxF "$package" || echo "$package"; done | xargs)
[ -z "$unused" ] || { echo "Listed, and not used: $unused"; exit 1; }

# shellcheck disable=SC2046 # one word a package is meant
brought=$(apt-cache depends --recurse --no-recommends --no-suggests --no-conflicts --no-breaks --no-replaces --no-enhances \
    $(awk '/^[^#]/ && !/ server/ { print $1 }' scripts/packages) 2>/dev/null | grep -v '^[ <]' | sort -u)
[ -n "$brought" ] || { echo 'Skipped: apt has no lists of packages here (apt-get update)'; exit 77; }
missing=$(for package in $read_from; do echo "$brought" | grep -qxF "$package" || echo "$package"; done | xargs)
[ -z "$missing" ] || { echo "Used, and brought by none that is listed: $missing"; exit 1; }
