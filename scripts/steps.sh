# Steps that take their time, and at the end a table of what each took; sourced behind common.sh.

steps=$(mktemp -d)
: >"$steps/list"
begun=$(date +%s)
trap 'steps_table; rm -rf "$steps"' EXIT
trap 'exit 1' INT TERM

# The seconds that processors have worked for this shell and what it has waited for.
# Not by $(times): it would tell of that shell.
worked() {
    times >"$steps/times"
    sed 's/[ms]/ /g' "$steps/times" | awk '{ sum += 60 * $1 + $2 + 60 * $3 + $4 } END { printf "%d", sum }'
}

# step NAME COMMAND...: says when it begins; how it ends is in $status then, and with what it took in
# $steps/list.
step() {
    name=$1 && shift
    since=$(date +%s)
    say "== $((since - begun)) s: $name"
    worked >"$steps/before"
    set +e
    (set -e && "$@") # in a condition the shell would go on behind what fails
    status=$?
    set -e
    worked >"$steps/after"
    printf '%s\t%d\t%d\t%d\n' "$name" "$status" "$(($(date +%s) - since))" \
        "$(($(cat "$steps/after") - $(cat "$steps/before")))" >>"$steps/list"
}

steps_table() {
    say '== Seconds, and those that processors worked'
    awk -F '\t' '{ printf "%6d %6d  %s%s\n", $3, $4, $1, $2 == 0 ? "" : ": FAILED"; all += $3; work += $4 }
        END { printf "%6d %6d  in all\n", all, work }' "$steps/list" >&2
}
