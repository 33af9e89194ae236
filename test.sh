#!/bin/bash
# Installs what is missing, builds everything and runs every check and test. The last line tells how
# many passed and failed; the exit code is 0 if none failed.
# Usage: ./test.sh [--long]     --long also runs each fuzz target for a minute and tries the Debian
#                               package on a fresh Debian, as root
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")" || exit 1

long=no
case "${1-}" in
  --long) long=yes ;;
  '') ;;
  *)
    echo "usage: ./test.sh [--long]" >&2
    exit 2
    ;;
esac

packages=(
  cmake ninja-build pkg-config python3
  g++ libgtest-dev libbenchmark-dev libopencv-dev libyuv-dev libcli11-dev
  libavformat-dev libavcodec-dev libavdevice-dev libswscale-dev libavutil-dev libsdl2-dev
  clang libclang-rt-dev llvm
  opencv-data dpkg-dev libz-mingw-w64-dev
  gcc-mingw-w64-x86-64-win32 g++-mingw-w64-x86-64-win32 wine64 python3-pefile
  clang-format-14 clang-tidy-14 cppcheck shellcheck
  imagemagick ffmpeg python3-pil chromium-headless-shell xvfb xdotool
  help2man groff-base dpkg-dev file openssl osslsigncode debootstrap
  python-matplotlib-data lomiri-wallpapers-16.04
)

passed=0
failed=0
trap 'echo "$passed passed, $failed failed"' EXIT

# Runs a command as one test.
check() {
  local name=$1
  shift
  echo "== $name"
  if "$@"; then
    passed=$((passed + 1))
  else
    failed=$((failed + 1))
    echo "== $name: FAILED"
  fi
}

# Configures and builds a preset; a build that breaks counts as one failure.
build() {
  echo "== build $1"
  if cmake --preset "$1" >"build/$1.log" 2>&1 && cmake --build --preset "$1" -j 2 >>"build/$1.log" 2>&1
  then
    return 0
  fi
  failed=$((failed + 1))
  grep -E -A 20 'error|Error|FAILED' "build/$1.log" | head -n 100
  echo "== build $1: FAILED, see build/$1.log"
  return 1
}

# Runs the tests of a built preset, `jobs` at a time, and adds up what ctest reports of each. A test
# that was skipped or could not be started has not passed.
run_tests() {
  local preset=$1 jobs=$2 results=$PWD/build/$1/test-results.xml all=0 good=0 code
  echo "== test $preset"
  rm -f "$results"
  ctest --preset "$preset" --parallel "$jobs" --timeout 900 --no-tests=error \
    --output-junit "$results" 2>&1 |
    grep -v -E '^ +Start +[0-9]+: |^ *[0-9]+/[0-9]+ Test +#.* Passed '
  code=${PIPESTATUS[0]}
  if [ -f "$results" ]; then
    all=$(grep -c '<testcase ' "$results")
    good=$(grep -c '<testcase .*status="run"' "$results")
  fi
  passed=$((passed + good))
  failed=$((failed + all - good))
  # Without a test, or with an error that is no test's, the run itself has failed.
  if [ "$all" -eq 0 ] || { [ "$code" -ne 0 ] && [ "$all" -eq "$good" ]; }; then
    failed=$((failed + 1))
  fi
}

fuzz() {
  local target=$1 folder="build/fuzz/$1" seeds="build/host-sanitized/fuzz/seeds/$1"
  mkdir -p "$folder" "$seeds"
  build/host-sanitized/fuzz/"$target" -max_total_time=60 -max_len=128 -len_control=0 \
    -artifact_prefix="$folder-" -print_final_stats=1 -verbosity=0 "$folder" "$seeds"
}

if ! scripts/install-packages.sh "${packages[@]}"; then
  failed=$((failed + 1))
  exit 1
fi
mkdir -p build

declare -A built
for preset in host host-sanitized kernel; do
  build "$preset" && built[$preset]=yes
done

check format scripts/check-format.sh
check shellcheck shellcheck ./*.sh package/*.sh probe/*.sh scripts/*.sh tests/image/*.sh .ci/run
check cppcheck scripts/check-cppcheck.sh
if [ -n "${built[host]-}" ]; then check clang-tidy scripts/check-clang-tidy.sh build/host; fi

for preset in host host-sanitized; do
  if [ -n "${built[$preset]-}" ]; then run_tests "$preset" 2; fi
done
# One Wine at a time; the host's build gives the results to compare with.
if [ -n "${built[kernel]-}" ] && [ -n "${built[host]-}" ]; then run_tests kernel 1; fi

if [ "$long" = yes ] && [ -n "${built[host-sanitized]-}" ]; then
  for source in fuzz/fuzz_*.cpp; do
    target=$(basename "$source" .cpp)
    check "$target, a minute" fuzz "$target"
  done
fi

if [ "$long" = yes ] && [ -n "${built[host]-}" ]; then
  root=()
  [ "$(id -u)" -eq 0 ] || root=(sudo)
  check 'Debian package' "${root[@]}" scripts/check-debian-package.sh build/host
fi

[ "$failed" -eq 0 ]
