#!/bin/bash
# Unpacks VERSION of Debian's source package opencv into DIRECTORY, unless it is there already. apt
# checks what it fetches against the archive's signatures. The machine's own apt set-up is left
# alone: the package lists go to a directory beside DIRECTORY, so that no root is needed.
# Usage: scripts/fetch-opencv-source.sh VERSION DIRECTORY
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 VERSION DIRECTORY" >&2
  exit 2
fi
version=$1
target=$(realpath --canonicalize-missing -- "$2")
if [ "$(cat "$target/.version" 2>/dev/null)" = "$version" ]; then exit 0; fi

work=$target.fetch
rm -rf "$work" "$target"
mkdir -p "$work/sources" "$work/lists/partial" "$work/cache/archives/partial"

# The configured archives, asked for sources.
for file in /etc/apt/sources.list.d/*.sources; do
  [ ! -e "$file" ] || sed 's/^[Tt]ypes:.*/Types: deb-src/' "$file" >"$work/sources/$(basename "$file")"
done
for file in /etc/apt/sources.list /etc/apt/sources.list.d/*.list; do
  [ ! -e "$file" ] || sed -nE 's/^[[:space:]]*deb(-src)?[[:space:]]+/deb-src /p' "$file" | sort -u \
    >"$work/sources/$(echo "${file#/etc/apt/}" | tr / -)"
done

# Nothing that the machine does after its own updates.
cat >"$work/apt.conf" <<'END'
#clear APT::Update::Pre-Invoke;
#clear APT::Update::Post-Invoke;
#clear APT::Update::Post-Invoke-Success;
END
export APT_CONFIG=$work/apt.conf

apt=(apt-get --quiet --quiet
  -o "Dir::Etc::sourcelist=/dev/null" -o "Dir::Etc::sourceparts=$work/sources"
  -o "Dir::State::lists=$work/lists" -o "Dir::Cache=$work/cache")
[ "$(id -u)" -ne 0 ] || apt+=(-o "APT::Sandbox::User=root")

# An archive of no concern here may have no sources; what counts is whether the package is found.
"${apt[@]}" update || true
if ! (cd "$work" && "${apt[@]}" source --download-only "opencv=$version"); then
  echo "$0: the archives that apt knows have no source of opencv $version, the version of the installed" \
    "libopencv-core-dev; if that is out of date, update it with: apt-get install libopencv-dev" >&2
  exit 1
fi
dpkg-source --extract "$work/opencv_$version.dsc" "$work/unpacked" >"$work/dpkg-source.log" 2>&1 ||
  { cat "$work/dpkg-source.log" >&2; exit 1; }
mv "$work/unpacked" "$target"
echo "$version" >"$target/.version"
rm -rf "$work"
