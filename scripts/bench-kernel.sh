#!/bin/bash
# Compares the time of a frame of face tracking (640x480, detection 160x120, factor 1.1) in Kolm.sys
# under Wine with that in the host library: turns of both, each a median, and the median ratio.
# Needs the builds of the presets host and kernel.
# Usage: scripts/bench-kernel.sh [TURNS]
set -euo pipefail

turns=${1:-5}
here=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
host=$here/build/host kernel=$here/build/kernel
scene=$kernel/probe/speed.scene
"$host/kolm_probe_host" scene "$here/probe/photograph.jpg" >"$scene"

ratios=()
for ((turn = 0; turn < turns; ++turn)); do
  own=$("$host/kolm_probe_host" speed "$scene")
  module=$("$here/scripts/run-under-wine.sh" "$kernel/wine-$(id -u)" "$kernel/probe/speed.log" -all \
    "$kernel/kolm_probe.exe" speed <"$scene" | tr -d '\r')
  ratio=$(awk -v module="$module" -v own="$own" 'BEGIN { printf "%.2f", module / own }')
  echo "host $own ms, Kolm.sys $module ms, ratio $ratio"
  ratios+=("$ratio")
done
printf '%s\n' "${ratios[@]}" | sort -n | awk '{ all[NR] = $1 } END { print "median ratio " all[int((NR + 1) / 2)] }'
