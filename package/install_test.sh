#!/bin/bash
# Installs a build, moves the installed tree, and builds and runs a client of it by pkg-config and
# by CMake, with the shared and with the static library.
# Usage: package/install_test.sh BUILD_FOLDER
set -euo pipefail
build=$1
client=$(dirname "$(realpath "$0")")/client

fail() {
  echo "$*" >&2
  exit 1
}

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
tree=$work/moved
mv "$work/first" "$tree"
libraries=$(dirname "$(find "$tree" -name libkolm.so)")
# An empty entry of the tool's path for libraries would mean the current directory.
path=$(readelf -d "$tree/bin/kolm" | sed -n 's/.*runpath: \[\(.*\)\]/:\1:/p')
[[ -n $path && $path != *::* ]] || fail "the path for libraries is '$path'"
readelf -d "$libraries/libkolm.so" | grep 'soname: \[libkolm\.so\.0\]' >/dev/null || fail "no SONAME"

expect_grey() {
  local said
  said=$(LD_LIBRARY_PATH=$libraries "$1" 2>/dev/null) || fail "$1 ended with $?"
  [ "$said" = grey ] || fail "$1 said '$said'"
}

export PKG_CONFIG_PATH=$libraries/pkgconfig
version=$(pkg-config --modversion kolm)
read -ra flags <<<"$(pkg-config --cflags --libs kolm)"
gcc -std=c11 -Wall -Wextra -Werror "$client/client.c" -o "$work/by-pkg-config" "${flags[@]}"
ldd "$work/by-pkg-config" | grep 'libkolm\.so\.0' >/dev/null || fail "the library is not a shared one"
expect_grey "$work/by-pkg-config"
# With the archive in the place of -lkolm.
read -ra flags <<<"$(pkg-config --static --cflags --libs kolm)"
gcc -std=c11 "$client/client.c" -o "$work/static" "${flags[@]/#-lkolm/$libraries/libkolm.a}"
expect_grey "$work/static"
ldd "$work/static" | grep libkolm >/dev/null && fail "the static client needs libkolm.so"

cmake -S "$client" -B "$work/client" -DCMAKE_PREFIX_PATH="$tree" >/dev/null
cmake --build "$work/client" >/dev/null
expect_grey "$work/client/client_shared"
expect_grey "$work/client/client_static"
ldd "$work/client/client_static" | grep libkolm >/dev/null && fail "the static client needs libkolm.so"

[ "$("$tree/bin/kolm" --version)" = "kolm $version" ] || fail "the tool has another version"
[ -s "$tree/share/man/man1/kolm.1" ] || fail "there is no man page"
if grep -rIl -e "$work/first" "$tree"; then fail "these name the place of the installation"; fi
# The tool finds its module of picture codecs in the moved tree.
"$tree/bin/kolm" sheet "$work/sheet.png"
[ "$(head -c 8 "$work/sheet.png" | od -An -tx1 | tr -d ' ')" = 89504e470d0a1a0a ] ||
  fail "the sheet is no PNG file"
