#!/bin/bash
# Fails if a C or C++ file of the tree is not in the format of .clang-format.
set -euo pipefail
cd "$(dirname "$0")/.."

find . \( -path ./build -o -path ./out -o -name '.?*' \) -prune -o \
  -regex '.*\.\(c\|cpp\|h\)' -print0 |
  xargs -0 clang-format-14 --dry-run -Werror --ferror-limit=1
