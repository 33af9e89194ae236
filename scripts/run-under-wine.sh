#!/bin/bash
# Runs a Windows program under Wine with a private prefix, and leaves no Wine process behind.
#   run-under-wine.sh PREFIX LOG CHANNELS PROGRAM [ARGUMENT...]
# PREFIX is made if it is missing; LOG gets what Wine and the program write to standard error;
# CHANNELS are added to WINEDEBUG, such as +debugstr. Drivers named *.sys beside PROGRAM are put where
# the kernel's loader looks for them. The exit code is PROGRAM's.
set -eu

prefix=$1 log=$2 channels=$3
shift 3

bin=/usr/lib/wine
[ -x $bin/wine64 ] || { echo "$0: no $bin/wine64: install the package wine64" >&2; exit 1; }

# Nothing of the user's: no home directory, no display, no offers to download parts.
export WINEPREFIX=$prefix HOME=$prefix/home WINEARCH=win64
export WINEDLLOVERRIDES='mscoree,mshtml,winemenubuilder.exe='
unset DISPLAY WAYLAND_DISPLAY

finish() {
  $bin/wineserver -k || true
  $bin/wineserver -w
}
trap finish EXIT
trap 'exit 1' HUP INT TERM

# A prefix whose making was broken off is made anew.
if [ ! -e "$prefix/complete" ]; then
  rm -rf "$prefix"
  mkdir -p "$HOME"
  WINEDEBUG=-all timeout 120 $bin/wine64 wineboot -i >"$log" 2>&1
  finish
  touch "$prefix/complete"
fi

drivers=$prefix/drive_c/windows/system32/drivers
cp "$(dirname "$1")"/*.sys "$drivers"

# Wine's services are started apart from the program, so that they do not hold its output open.
export WINEDEBUG=fixme-all,$channels
$bin/wineserver -p
timeout 60 $bin/wine64 wineboot >"$log" 2>&1 </dev/null
timeout 240 $bin/wine64 "$@" 2>>"$log"
