#!/bin/bash
# Fails if clang-tidy finds anything that .clang-tidy asks for in the sources of a configured build.
# Usage: scripts/check-clang-tidy.sh BUILD_FOLDER
set -euo pipefail
build=$(realpath "$1")
cd "$(dirname "$0")/.."

if ! output=$(run-clang-tidy-14 -p "$build" -j "$(nproc)" -quiet 2>&1); then
  grep -v -E '^clang-tidy-14 |^[0-9]+ warnings? generated' <<<"$output"
  exit 1
fi
