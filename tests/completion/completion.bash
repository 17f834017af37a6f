#!/bin/bash
# completion.bash SCRIPT PROGRAM...: what bash completes with the script, given lines as they are typed.
# $RUN runs the programs, where those are for another machine.
# shellcheck disable=SC2317 # functions that the script calls
set -u
script=$1
shift
declare -A paths
for path in "$@"; do
    paths[${path##*/}]=$path
done
# shellcheck disable=SC2086 # an emulator has arguments
run() { ${RUN:-} "${paths[${FUNCNAME[1]}]}" "$@"; }
kelda-play() { run "$@"; }
kelda-resample() { run "$@"; }
kelda-lab() { run "$@"; }
aplay() { printf '%s\n' default '    The sound server' hw:CARD=PCH,DEV=0 '    HDA' hw:CARD=USB,DEV=0 '    USB' plughw:CARD=PCH,DEV=0; }
compopt() { echo "$@" >>"$folder/compopt"; } # the builtin is for the shell that completes alone

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
failures=0
# shellcheck source=/dev/null
source "$script"

# complete_line LINE: completes at its end as bash does, into $COMPREPLY; and into $otherwise what bash is
# to complete where that is empty: "files", "folders" or "nothing".
complete_line() {
    local cut
    COMP_LINE=$1 COMP_POINT=${#1}
    cut=$(sed -E "s/([$breaks]+)/ \\1 /g" <<<"$1")
    read -ra COMP_WORDS <<<"$cut"
    [[ $1 != *' ' ]] || COMP_WORDS+=('')
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMP_WORDBREAKS=$' \t\n'$breaks
    : >"$folder/compopt"
    COMPREPLY=(left behind)
    "$(complete -p "${COMP_WORDS[0]}" | sed -E 's/.*-F ([^ ]+).*/\1/')" "${COMP_WORDS[0]}" "${COMP_WORDS[-1]}" ''
    otherwise=files
    ! grep -q -- '+o default' "$folder/compopt" || otherwise=nothing
    ! grep -q -- '-o dirnames' "$folder/compopt" || otherwise=folders
}

# expect LINE [COMPLETION...]
expect() {
    complete_line "$1"
    shift
    local expected="$*" got="${COMPREPLY[*]}"
    if [[ $got != "$expected" ]]; then
        printf '%s\n    expected: %s\n    but got:  %s\n' "$COMP_LINE" "$expected" "$got"
        ((++failures))
    fi
}

# expect_otherwise files|folders|nothing LINE: no list, but that.
expect_otherwise() {
    local expected=$1
    expect "$2"
    if [[ $otherwise != "$expected" ]]; then
        printf '%s\n    expected: %s\n    but got:  %s\n' "$COMP_LINE" "$expected" "$otherwise"
        ((++failures))
    fi
}

breaks=':='
[[ $(complete -p kelda-play) == *'-o default'* ]] || { echo 'bash completes no files' && ((++failures)); }

# Options
expect 'kelda-play --corr' --correct
expect 'kelda-resample in.wav out.wav --q' --quality
expect 'kelda-play -h' -h
expect 'kelda-play --nonsense'
for line in kelda-play kelda-resample kelda-lab 'kelda-lab run'; do
    # shellcheck disable=SC2046,SC2086 # words are meant
    expect "$line -" $($line --help | grep -oE '^  (-h, )?--[a-z-]+' | tr ',' ' ')
    ((${#COMPREPLY[@]} > 2)) || { echo "$line --help tells too few options" && ((++failures)); }
done

# Their values
expect 'kelda-play --correct ' none resample device
expect 'kelda-play --loop --correct=r' resample
expect 'kelda-play --quality ' low medium high best
expect 'kelda-resample --resampler g' gstreamer
expect 'kelda-play --log-level w' warn
expect 'kelda-play --color a' auto always
expect 'kelda-play --raw 48000:2:S16' S16LE S16BE
expect 'kelda-play --raw=48000:2:F32L' F32LE
expect 'kelda-play --format F64' # which can't be played
expect_otherwise nothing 'kelda-play --raw 48'
expect 'kelda-play --format S24' S24LE S24BE S24_32LE S24_32BE
expect_otherwise nothing 'kelda-play --rate '
expect_otherwise nothing 'kelda-play --gap 1:'
expect_otherwise nothing 'kelda-play --rate 4'

# Devices, with the characters at which bash cuts words
expect 'kelda-play --device ' fake default hw:CARD=PCH,DEV=0 hw:CARD=USB,DEV=0 plughw:CARD=PCH,DEV=0
expect 'kelda-play --device f' fake
expect 'kelda-play --describe-device p' plughw:CARD=PCH,DEV=0
expect 'kelda-play --device hw:' CARD=PCH,DEV=0 CARD=USB,DEV=0
expect 'kelda-play --device hw:CARD=U' USB,DEV=0
expect 'kelda-play --device=hw:CARD=U' USB,DEV=0
breaks='='
expect 'kelda-play --device hw:CARD=' PCH,DEV=0 USB,DEV=0
expect 'kelda-play --device=hw:C' hw:CARD=PCH,DEV=0 hw:CARD=USB,DEV=0
breaks=':='

# Files
expect_otherwise files 'kelda-play '
expect_otherwise files 'kelda-play so'
expect_otherwise files 'kelda-play --loop so'
expect_otherwise files 'kelda-play --describe '
expect_otherwise files 'kelda-play --record '
expect_otherwise files 'kelda-play --trace=tr'
expect_otherwise folders 'kelda-play --report '
expect_otherwise folders 'kelda-lab run s.json --report o'
expect_otherwise files 'kelda-resample in.wav '

# Subcommands
expect 'kelda-lab ' run
expect 'kelda-lab run --se' --seconds --seed
expect_otherwise files 'kelda-lab run '
expect_otherwise nothing 'kelda-lab run --seed '

# A program that does not run
unset -f kelda-resample
expect_otherwise files 'kelda-resample '

# Where bash looks for the completion of each program
for name in "${!paths[@]}"; do
    [[ -e ${script%/*}/$name ]] || { echo "no completion for $name" && ((++failures)); }
done

echo "$failures wrong completions"
exit "$((failures > 0))"
