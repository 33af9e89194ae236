#!/bin/bash
# Installs those of the named Debian packages that are missing; touches nothing if none is.
# Usage: scripts/install-packages.sh PACKAGE...
set -euo pipefail

missing=()
for package in "$@"; do
  state=$(dpkg-query --show --showformat='${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$state" = installed ] || missing+=("$package")
done
[ ${#missing[@]} -gt 0 ] || exit 0

as_root=()
if [ "$(id -u)" -ne 0 ]; then
  if ! command -v sudo >/dev/null; then
    echo "$0: missing packages: ${missing[*]}" >&2
    echo "$0: run this as root, or install sudo, or ask for: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

echo "installing: ${missing[*]}"
"${as_root[@]}" apt-get update --quiet --quiet
"${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
  apt-get install --quiet --quiet --yes --no-install-recommends "${missing[@]}"
