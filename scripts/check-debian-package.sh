#!/bin/bash
# Packs a host build as a Debian package, installs it on a fresh minimal Debian 12 and uses it there.
# Needs root, for debootstrap and chroot, and a Debian mirror.
# Usage: scripts/check-debian-package.sh BUILD_FOLDER
set -euo pipefail
trap 'echo "$0: line $LINENO does not hold" >&2' ERR
build=$(realpath "$1")
mirror=http://deb.debian.org/debian

if [ "$(id -u)" -ne 0 ]; then
  echo "$0: only root can make and enter another Debian's root folder; run it by sudo" >&2
  exit 1
fi

work=$(mktemp -d)
trap 'rm -rf --one-file-system "$work"' EXIT
root=$work/root

inside() { chroot "$root" /usr/bin/env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root "$@"; }

cpack --config "$build/CPackConfig.cmake" -B "$work" >"$work/log" 2>&1 || {
  cat "$work/log"
  exit 1
}
package=$(find "$work" -maxdepth 1 -name 'kolm_*.deb')
dpkg-deb --info "$package" | grep -E '^ (Package|Version|Depends|Installed-Size):'

debootstrap --variant=minbase bookworm "$root" "$mirror" >"$work/log" 2>&1 || {
  tail -n 20 "$work/log"
  exit 1
}
cp "$package" "$root/kolm.deb"
inside DEBIAN_FRONTEND=noninteractive apt-get install --quiet --quiet --yes \
  --no-install-recommends /kolm.deb >"$work/log" 2>&1 || {
  tail -n 20 "$work/log"
  exit 1
}

version=$(dpkg-deb --field "$package" Version)
[ "$(inside kolm --version)" = "kolm $version" ]
[ "$(inside kolm effects | wc -l)" -eq 19 ]
inside kolm sheet /sheet.png
inside kolm apply --quiet -e sepia /sheet.png /sepia.mp4
inside kolm gallery /sepia.mp4 /gallery
inside kolm bench --sizes 64x48 --seconds 0 >/dev/null
[ "$(head -c 8 "$root/sheet.png" | od -An -tx1 | tr -d ' ')" = 89504e470d0a1a0a ]
[ "$(find "$root/gallery" -type f -size +10k | wc -l)" -eq 19 ]
# The library for cameras is there: what is missing is the camera.
if inside kolm apply --quiet -e sepia /dev/video9 /camera.png 2>"$work/said"; then
  echo "$0: a camera that is not there was read" >&2
  exit 1
fi
grep "^kolm: cannot read '/dev/video9'" "$work/said" >/dev/null
inside ldconfig -p | grep 'libkolm\.so\.0 ' >/dev/null

# Nothing of the package is left when it is removed.
files=$(inside dpkg --listfiles kolm)
inside apt-get purge --quiet --quiet --yes kolm >"$work/log" 2>&1
for file in $files; do
  if [ -f "$root$file" ] || [ -h "$root$file" ]; then
    echo "$0: $file is still there" >&2
    exit 1
  fi
done
echo "kolm $version installs, runs and can be removed on a fresh Debian 12"
