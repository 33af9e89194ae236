#!/bin/bash
# Unpacks Debian's source package of the OpenCV whose host library is installed into DIRECTORY.
# apt checks what it fetches against the archive's signatures. The machine's own apt set-up is left
# alone: the package lists go to a directory beside DIRECTORY, so that no root is needed.
# Usage: scripts/fetch-opencv-source.sh DIRECTORY
set -euo pipefail

if [ $# -ne 1 ]; then
  echo "usage: $0 DIRECTORY" >&2
  exit 2
fi
target=$(realpath --canonicalize-missing -- "$1")
version=$(dpkg-query --show --showformat='${source:Version}' libopencv-core-dev)
if [ "$(cat "$target/.version" 2>/dev/null)" = "$version" ]; then exit 0; fi

work=$target.fetch
rm -rf "$work" "$target"
mkdir -p "$work/sources" "$work/lists/partial" "$work/cache/archives/partial"

# The configured archives, asked for sources.
for file in /etc/apt/sources.list.d/*.sources; do
  [ ! -e "$file" ] || sed 's/^Types:.*/Types: deb-src/' "$file" >"$work/sources/$(basename "$file")"
done
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ ! -e "$file" ] || sed -n 's/^deb\(-src\)\? /deb-src /p' "$file" | sort -u \
    >"$work/sources/$(basename "$file" .list)-sources.list"
done

apt=(apt-get --quiet --quiet
  -o "Dir::Etc::sourcelist=/dev/null" -o "Dir::Etc::sourceparts=$work/sources"
  -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache")
[ "$(id -u)" -ne 0 ] || apt+=(-o "APT::Sandbox::User=root")

# An archive of no concern here may have no sources; what counts is whether the package is found.
"${apt[@]}" update || true
(cd "$work" && "${apt[@]}" source --download-only "opencv=$version")
dpkg-source --extract "$work/opencv_$version.dsc" "$work/unpacked" >"$work/dpkg-source.log" 2>&1 ||
  { cat "$work/dpkg-source.log" >&2; exit 1; }
mv "$work/unpacked" "$target"
echo "$version" >"$target/.version"
rm -rf "$work"
