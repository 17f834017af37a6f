#!/bin/sh
# options.sh PAGE PROGRAM [SUBCOMMAND...]: a manual page has the options that --help prints, with their
# arguments and defaults, in the same groups and order, and no others; and says of each what --help has
# in brackets or, at the end, in parentheses: other defaults, and ranges. The options of a subcommand
# stand in a section of their own. So do exit statuses, if --help has them. $RUN runs the program, where that is for another machine.
set -eu
here=$(dirname "$0")
page=$1 program=$2
shift 2
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT

# shellcheck disable=SC2086 # an emulator has arguments
help() { ${RUN:-} "$program" "$@" --help | awk -f "$here/help.awk" | sed 's/^\* Exit status$/= EXIT STATUS/'; }
{
    echo '= OPTIONS'
    help
    for subcommand in "$@"; do
        echo "= $subcommand OPTIONS" | tr '[:lower:]' '[:upper:]'
        help "$subcommand"
    done
} >"$folder/help"
sections='OPTIONS$'
! grep -q '^= EXIT STATUS$' "$folder/help" || sections='(OPTIONS|EXIT STATUS)$'
"$here/page.sh" "$page" | awk -v sections="$sections" '/^= / { inside = $0 ~ sections } inside' >"$folder/page"

for each in help page; do
    grep '^[=*-]' "$folder/$each" >"$folder/$each.outline"
done
if ! diff -u --label "$(basename "$program") --help" --label "$page" "$folder/help.outline" "$folder/page.outline"; then
    exit 1
fi
[ "$(grep -c '^-' "$folder/help.outline")" -gt 2 ] || { echo "--help prints no options" && exit 1; }

awk '
/^- / { entry = $0; next }
/^[=*]/ { next }
NR == FNR { said[entry] = said[entry] $0; next }
{ asked[entry] = asked[entry] " " substr($0, 3) }
END {
    for (entry in asked) {
        text = asked[entry]
        while (match(text, /\[[^]]*\]|\([^()]*\)$/)) {
            remark = substr(text, RSTART + 1, RLENGTH - 2)
            if (!index(said[entry], remark)) {
                print "not in the page:" substr(entry, 2) ": " remark
                missing = 1
            }
            text = substr(text, RSTART + RLENGTH)
        }
    }
    exit missing
}' "$folder/page" "$folder/help"
