#!/bin/sh
# nightlyPage.sh PROJECT: the page of a night names what is worse than in the release before, and what was not
# measured, and is not pleased where something should have been.
set -eu
maker=$1/scripts/nightly-page
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# night VERSION MACHINE [LOAD] <STEPS-AND-FIGURES: makes the page, and keeps the status.
night() {
    {
        printf 'version\t%s\ncommit\tabcdef\ndate\t2020-01-01\nmachine\t%s\nload\t%s\n' "$1" "$2" "${3:-0.12}"
        sed 's/ *| */\t/g'
    } >"$work/facts"
    status=0
    "$maker" "$work/facts" "$work/records" "$work/page" >/dev/null || status=$?
}
fail() { echo "$1"; cat "$work/page"; exit 1; }
section() { sed -n "/^## $1/,/^## [^$(echo "$1" | cut -c 1)]/p" "$work/page"; }
worse() { section Slower | grep -qF -e "$1" || fail "not told to be worse: $1"; }
fine() { ! section Slower | grep -qF -e "$1" || fail "told to be worse: $1"; }
told() { grep -qF -e "$1" "$work/page" || fail "not told: $1"; }
ends_with() { [ "$status" -eq "$1" ] || fail "ended with $status"; }

night 1.9.0 'a box' <<'END'
step | bench | The benchmarks | 0 | 60 | 60
step | size | The sizes | 0 | 60 | 90
step | tidy | Tidiness | 0 | 60 | 90
figure | bench | ratio | against a peer | 1
figure | bench | microseconds | a call at worst | 2
figure | size | bytes | a library | 1000
figure | size | percent | of the lines | 99.3
figure | size | percent | of the faults | 100
figure | size | bytes | another library | 5000
END
ends_with 0
told 'these figures are the first'
told 'clang-tidy has nothing to say of commit `abcdef`.'

# Of the releases that have figures it is the last one before this that counts.
mv "$work/records/1.9.0.json" "$work/keep"
night 1.8.0 'a box' <"/dev/null"
mv "$work/keep" "$work/records/1.9.0.json"
night 2.0.0 'a box' </dev/null

night 1.10.0 'a box' <<'END'
step | bench | The benchmarks | 0 | 60 | 60
step | size | The sizes | 0 | 60 | 90
step | tidy | Tidiness
figure | bench | ratio | against a peer | 1.1
figure | bench | microseconds | a call at worst | 3
figure | size | bytes | a library | 1200
figure | size | percent | of the lines | 98.9
figure | size | percent | of the faults | 99.95
figure | size | bytes | another library | 4000
END
ends_with 0
told 'It is compared with 1.9.0,'
fine 'against a peer'
worse '| a call at worst | 3 us | 2 us |'
worse 'a library | 1200 bytes | 1000 bytes'
worse 'of the lines | 98.9 % | 99.3 %'
fine 'of the faults'
fine 'another library'
section Slower | sed -n 's/^| \([a-z].*\) | [0-9].*/\1/p' | cut -d '|' -f 1 | xargs | grep -qx 'a call at worst a library of the lines' ||
    fail 'the worst is not first'
told '| another library | 4000 bytes | 5000 bytes | 0.5 % | better |'
section Failed | grep -qx -e '- Not run: Tidiness' || fail 'not told to be left out'
! grep -q 'clang-tidy has nothing' "$work/page" || fail 'clean, though not looked at'

# Another machine is neither slower nor quicker; sizes are the same everywhere.
night 1.10.0 'another box' <<'END'
step | bench | The benchmarks | 0 | 60 | 60
step | size | The sizes | 0 | 60 | 90
figure | bench | ratio | against a peer | 2
figure | bench | microseconds | a call at worst | 300
figure | size | bytes | a library | 1200
figure | size | percent | of the lines | 99.3
figure | size | percent | of the faults | 100
figure | size | bytes | another library | 5000
END
ends_with 0
worse 'against a peer'
fine 'a call at worst'
told '| a call at worst | 300 us | 2 us | 25 % | another machine |'
worse 'a library'

# What a step should have told, and didn't; and a step that failed.
night 1.10.0 'a box' <<'END'
step | bench | The benchmarks | 0 | 60 | 60
step | size | The sizes
figure | bench | ratio | against a peer | 1
END
ends_with 1
section Failed | grep -qx -e '- Not measured: a call at worst' || fail 'not told to be missing'
told '| a library | not measured | 1000 bytes |'
told '| The sizes | not run |'

night 1.10.0 'a box' <<'END'
step | bench | The benchmarks | 0 | 60 | 60
figure | bench | none
END
ends_with 1
told '- Not measured: figures of: The benchmarks'

night 1.11.0 'a box' <<'END'
step | clang | All tests | 1 | 60 | 60
END
ends_with 1
told 'It is compared with 1.10.0,'
told '- Failed: All tests'
told '| All tests | **failed** |'

# Between releases, and before any of them had figures.
rm "$work/records"/*
night Unreleased 'a box' <<'END'
step | size | The sizes | 0 | 60 | 90
figure | size | bytes | a library | 1000
END
night Unreleased 'a box' <<'END'
step | size | The sizes | 0 | 60 | 90
figure | size | bytes | a library | 1100
END
told 'It is compared with Unreleased,'
! grep -q 'other work' "$work/page" || fail 'told to be busy'
worse 'a library'
night Unreleased 'a box' 2.5 </dev/null
told 'The machine had other work (its load was 2.5)'
