#!/bin/bash
# One test of the module under Wine's kernel.
#   wine_tests.sh KERNEL_BUILD HOST_BUILD TEST
set -euo pipefail

kernel=$1 host=$2 test=$3
here=$(cd "$(dirname "$0")" && pwd)
log=$kernel/probe/$test.log

# probe CHANNELS ARGUMENT...
probe() {
  local channels=$1
  shift
  "$here/../scripts/run-under-wine.sh" "$kernel/wine-$(id -u)" "$log" "$channels" \
    "$kernel/kolm_probe.exe" "$@"
}

scene=$kernel/probe/photograph.scene
make_scene() {
  "$host/kolm_probe_host" scene "$here/photograph.jpg" >"$scene"
}

fail() {
  echo "$*; Wine's log is $log:"
  tail -n 20 "$log"
  exit 1
}

# expect_lines NUMBER PATTERN
expect_lines() {
  local found
  found=$(grep -c -- "$2" "$log" || true)
  [ "$found" = "$1" ] || fail "$found lines with '$2', expected $1"
  echo "$found lines with '$2'"
}

# Each line begins with the process. What the driver's takes from the pool between the driver's start
# and its stop comes back.
expect_pool_balance() {
  tr -d '\r' <"$log" | awk '
    /ZwLoadDriver .*KolmProbe/ { process = substr($1, 1, 5) }
    substr($1, 1, 5) != process { next }
    /ZwUnloadDriver/ { stopped = 1 }
    /ExAllocatePoolWithTag .* -> / { size[$NF] = $2; ++taken }
    /ExFreePoolWithTag / {
      if (!($NF in size)) { print "freed but not taken: " $NF; ++wrong }
      delete size[$NF]
    }
    END {
      for (block in size) { print "not freed: " size[block] " bytes at " block; ++wrong }
      print taken " blocks taken, " wrong + 0 " wrong"
      exit wrong || !stopped || !taken
    }' || fail 'the pool is not balanced'
}

case $test in
  effects)
    frames=$kernel/probe/photograph.frames
    "$host/kolm_probe_host" frames "$here/photograph.jpg" >"$frames"
    # shellcheck disable=SC2094 # both sides only read the frames
    probe +debugstr effects <"$frames" | "$host/kolm_probe_host" effects "$frames" "$log" ||
      fail 'host library and module differ'
    ;;

  background)
    files=$kernel/probe/background
    frames=$files/photograph.frames
    mkdir -p "$files/windows/system32"
    "$host/kolm_probe_host" files "$here/photograph.jpg" "$files" >"$frames"
    # shellcheck disable=SC2094 # both sides only read the frames
    probe +pid,+debugstr,+ntoskrnl background "$files" <"$frames" |
      KOLM_SYSTEM_ROOT=$files/windows "$host/kolm_probe_host" background "$frames" "$log" "$files" ||
      fail 'host library and module differ'
    expect_pool_balance
    ;;

  tracking)
    make_scene
    # shellcheck disable=SC2094 # both sides only read the scene
    probe +debugstr tracking <"$scene" | "$host/kolm_probe_host" tracking "$scene" "$log" ||
      fail 'host library and module differ'
    grep 'deepest stack use' "$log"
    ;;

  trackers)
    probe -all trackers 1000 || fail 'a round failed'
    ;;

  shortage)
    make_scene
    probe -all shortage <"$scene" || fail 'a round failed'
    ;;

  rounds)
    probe +debugstr,+loaddll rounds 100 || fail 'a round failed'
    expect_lines 100 ':loaddll:build_module Loaded .*\\Kolm\.sys"'
    expect_lines 100 ':loaddll:free_modref Unloaded module .*\\Kolm\.sys"'
    expect_lines 100 ': Kolm: DllInitialize('
    expect_lines 100 ': Kolm: DllUnload$'
    ;;

  pool)
    probe +pid,+ntoskrnl rounds 1 || fail 'the round failed'
    expect_pool_balance
    ;;

  service)
    probe +ntoskrnl service Kolm Kolm || fail 'Kolm.sys by itself does not start and stop'
    ;;

  cookie)
    probe +debugstr service KolmOverrunNone KolmOverrun || fail 'no overrun, but no start either'
    expect_lines 0 KeBugCheckEx
    cookies=()
    for kind in Void Value; do
      if probe +debugstr service KolmOverrun$kind KolmOverrun; then
        fail 'the overrun goes unnoticed'
      fi
      cookie=$((16#$(sed -n 's/\r$//; s/.*KolmOverrun: cookie //p' "$log")))
      # What the driver wrote over the cookie, the cookie and its complement.
      expect_lines 1 "$(printf 'KeBugCheckEx f7 1122334455667788 %x %x 0' $cookie $((~cookie)))"
      cookies+=("$cookie")
    done
    [ "${cookies[0]}" != "${cookies[1]}" ] || fail "both starts had the cookie ${cookies[0]}"
    ;;

  *)
    fail "no test '$test'"
    ;;
esac
