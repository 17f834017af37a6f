#!/bin/sh
# scenario.sh PAGE PROGRAM SOURCE: the manual page of the laboratory's scenarios has the keys and events
# that the source reads, and no others; and a scenario of all its keys, with the defaults that it tells,
# plays as an empty one does. $RUN runs the program, where that is for another machine.
set -eu
here=$(dirname "$0")
page=$1 program=$2 source=$3
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT


"$here/page.sh" "$page" | awk '/^= / { inside = /DESCRIPTION/ } inside' >"$folder/page"
sed -nE 's/^[*-] ([A-Za-z]+).*/\1/p' "$folder/page" | grep -v Scenario | sort -u >"$folder/told"
grep -oE '(read(Name<[A-Za-z:]+>|Object)?\("|\{")[A-Za-z]+"(, Kind)?' "$source" | grep -E 'read|Kind' |
    sed 's/^[^"]*"//; s/".*//' | sort -u >"$folder/read"
if ! diff -u --label "$source" --label "$page" "$folder/read" "$folder/told"; then
    exit 1
fi

awk '
function value(text) { return text ~ /^([0-9.]+|true|false)$/ ? text : "\"" text "\"" }
/^\* / { object = $2; next }
/^- .*\[/ {
    text = $3
    gsub(/[][]/, "", text)
    members[object] = members[object] (members[object] == "" ? "" : ", ") "\"" $2 "\": " value(text)
}
END {
    printf "{ %s", members["Scenario"]
    delete members["Scenario"]
    for (object in members) {
        isList = object == "events"
        printf ",\n  \"%s\": %s{ %s }%s", object, isList ? "[" : "", members[object], isList ? "]" : ""
    }
    print " }"
}' "$folder/page" >"$folder/defaults.json"
echo '{}' >"$folder/empty.json"
for each in defaults empty; do
    # shellcheck disable=SC2086 # an emulator has arguments
    ${RUN:-} "$program" run "$folder/$each.json" >"$folder/$each.table"
done
diff -u --label "no keys" --label "all keys, as $page tells their defaults" "$folder/empty.table" "$folder/defaults.table" ||
    { cat "$folder/defaults.json" && exit 1; }
