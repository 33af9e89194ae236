#!/bin/bash
# Fails if cppcheck finds anything in the sources of either target.
set -euo pipefail
cd "$(dirname "$0")/.."

cppcheck --quiet --error-exitcode=1 -j "$(nproc)" --std=c++20 --std=c11 -I . \
  --library=googletest --library=windows --enable=warning,performance,portability --inline-suppr \
  --suppressions-list=scripts/cppcheck-suppressions.txt \
  background bench docs effects facetrack fuzz imaging module package platform probe tests tools
