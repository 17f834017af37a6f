#!/bin/sh
# steps.sh PROJECT: a step ends with what fails in it, the next one can still be run, and the table tells.
set -eu
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir "$work/scripts"
cp "$1/scripts/common.sh" "$1/scripts/apt.sh" "$1/scripts/steps.sh" "$work/scripts/"
cat >"$work/scripts/run" <<'END'
. "$(dirname "$0")/common.sh"
. scripts/steps.sh
good() { sleep 1; }
bad() {
    false
    echo 'went on'
}
step 'A good one' good
echo "good: $status"
step 'A bad one' bad
echo "bad: $status"
step 'Work' python3 -c 'import time
while time.process_time() < 1.1: pass'
exit 7
END
status=0
sh "$work/scripts/run" >"$work/out" 2>&1 || status=$?

fail() { echo "$1"; cat "$work/out"; exit 1; }
[ "$status" -eq 7 ] || fail "ended with $status"
! grep -q 'went on' "$work/out" || fail 'a step went on behind what failed'
for line in 'good: 0' 'bad: 1' '== [0-9]* s: A good one' ' *[1-9][0-9]* *[01]  A good one' ' *[0-9]* *[0-9]*  A bad one: FAILED' \
    ' *[0-9]* *[1-9]  Work' ' *[0-9]* *[1-9]  in all'; do
    grep -qx "$line" "$work/out" || fail "not told: $line"
done
