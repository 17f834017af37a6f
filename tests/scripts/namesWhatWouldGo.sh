#!/bin/sh
# namesWhatWouldGo.sh PROJECT: what can't be installed without a loss is named together with what would go.
# The machine stays as it is where it is needed; else it is done without.
set -eu
. "$(dirname "$0")/simulated.sh"

has pipewire-alsa
# An apt that shows what it is asked to install, and installs nothing.
real=$(command -v apt-get)
cat >"$work/bin/apt-get" <<END
#!/bin/sh
case " \$* " in
*' --simulate '*) exec "$real" "\$@" ;;
*' install '*) echo "\$@" >>"$work/installed" ;;
esac
END
ln -s /usr/bin/env "$work/bin/sudo"
chmod +x "$work/bin/apt-get"
PATH=$work/bin:$PATH

# runs MARKED...: what install_missing says for a list of packages.
runs() {
    mkdir -p "$work/project/scripts"
    cp "$project/scripts/common.sh" "$project/scripts/apt.sh" "$work/project/scripts/"
    printf '%s\n' "$@" >"$work/project/scripts/packages"
    printf '. "$(dirname "$0")/common.sh"\ninstall_missing job\necho ready\n' >"$work/project/scripts/run"
    rm -f "$work/installed"
    : >"$work/installed"
    sh "$work/project/scripts/run" >"$work/out" 2>&1 || echo 'failed' >>"$work/out"
}
# says TEXT, installs TEXT: fails with all that was said where it isn't in it.
fail() { echo "$1"; cat "$work/out" "$work/installed"; exit 1; }
says() { grep -qF -e "$1" "$work/out" || fail "not said: $1"; }
installs() { grep -qF -e "$1" "$work/installed" || fail "not installed: $1"; }

runs 'make' 'pulseaudio job'
says 'Not installed: pulseaudio, for which this machine would lose pipewire-alsa'
says 'It is needed: nothing is installed'
says 'failed'
[ ! -s "$work/installed" ] || fail 'installed'

runs 'make' 'pulseaudio job optional'
says 'Not installed: pulseaudio, for which this machine would lose pipewire-alsa'
says 'The tests that need pulseaudio are skipped'
says 'Installing: make'
installs ' make'
installs ' --no-remove '
says 'ready'
! grep -q pulseaudio "$work/installed" || fail 'installed'

runs 'make' 'pulseaudio other'
says 'Installing: make'
! grep -q pulseaudio "$work/out" || fail 'not asked for'
