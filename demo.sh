#!/bin/bash
# Shows what Kolm does: installs what is missing, builds the host library and the tool, and writes
# out/effects.png, a sheet of a picture under all 18 effects, out/background.png, the picture with
# its background replaced, and out/facetrack.png, a film strip of face tracking.
# Usage: demo.sh [PICTURE]    without PICTURE a built-in sample
set -euo pipefail

if [ $# -gt 1 ] || [[ ${1-} == -* ]]; then
  echo "usage: $0 [PICTURE]    writes out/effects.png, out/background.png and out/facetrack.png," \
    "without PICTURE of samples" >&2
  exit 2
fi
picture=()
[ $# -eq 0 ] || picture=("$(realpath --canonicalize-missing -- "$1")")
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")"

# Everything that configuring the host preset looks for.
scripts/install-packages.sh cmake ninja-build g++ pkg-config python3 libopencv-dev libcli11-dev \
  libavformat-dev libavcodec-dev libavdevice-dev libswscale-dev libavutil-dev libsdl2-dev \
  libyuv-dev libgtest-dev libgmock-dev libbenchmark-dev help2man

cmake --preset host
cmake --build --preset host --target kolm_tool

mkdir -p out
build/host/kolm sheet -y "${picture[@]}" out/effects.png
build/host/kolm background-sheet -y "${picture[@]}" out/background.png
build/host/kolm track-sheet -y "${picture[@]}" out/facetrack.png
echo "The effects are on $PWD/out/effects.png"
echo "The replaced background is on $PWD/out/background.png"
echo "Face tracking is on $PWD/out/facetrack.png"
