#!/bin/sh
# desktop.sh PROJECT: a desktop that plays through PipeWire keeps all that it has, whatever script is run.
set -eu
. "$(dirname "$0")/simulated.sh"

has pipewire-audio pipewire-alsa
[ -n "$(gone pulseaudio)" ] || { echo 'This desktop has nothing to lose'; exit 1; }

cd "$project"
# shellcheck disable=SC2046,SC2086 # one word a package is meant
lost=$(gone $(awk '/^[^#]/ && !/ server/ { print $1 }' scripts/packages))
[ -z "$lost" ] || { echo "scripts/packages would cost it $lost"; exit 1; }
