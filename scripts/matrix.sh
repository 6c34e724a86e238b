#!/bin/bash
# Builds the libraries and their tests for another target and in other ways, on Debian 12:
#
#   scripts/matrix.sh [LINE...]
#
#   aarch64    Debian's cross compiler, tests under qemu
#   no-engine  plain handlers only
#   hardened   the flags of Debian's packages, and -fno-plt
#
# Without a line, all of them. Ends with a table.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh

lines=(aarch64 no-engine hardened)
[ $# -eq 0 ] || lines=("$@")
root=$PWD/build/matrix
mkdir -p "$root"
export CMAKE_GENERATOR=Ninja
common=(-DCMAKE_BUILD_TYPE=Release -DSHADERMACHINE_WERROR=ON
  -DSHADERMACHINE_BUILD_TOOLS=OFF -DSHADERMACHINE_BUILD_BENCHMARKS=OFF
  -DSHADERMACHINE_BUILD_EXAMPLES=OFF)

# try BUILD CMAKE-ARGUMENT...: configures, builds and tests. Tests that hold times to what
# this processor takes are left out where another one is imitated.
left_out='^$'
try() {
  local folder=$1
  shift
  cmake -S . -B "$folder" "${common[@]}" "$@" &&
    cmake --build "$folder" --parallel "$(nproc)" &&
    ctest --test-dir "$folder" --parallel "$(nproc)" --output-on-failure --quiet \
      --exclude-regex "$left_out" --output-log "$folder/test.log" &&
    grep "tests passed" "$folder/test.log"
}

# The tests' library is built from Debian's sources: its packages of two architectures do not go
# together with those of others that the project uses.
aarch64() {
  local toolchain=$PWD/cmake/toolchains/aarch64-linux-gnu.cmake left_out='^fuzz.scale$'
  require g++-aarch64-linux-gnu:aarch64-linux-gnu-g++ qemu-user-static:qemu-aarch64-static \
    googletest:/usr/src/googletest/CMakeLists.txt
  cmake -S /usr/src/googletest -B "$root/aarch64-gtest" -DBUILD_GMOCK=OFF \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_INSTALL_PREFIX="$root/aarch64-prefix" &&
    cmake --build "$root/aarch64-gtest" --target install &&
    try "$root/aarch64" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DGTest_ROOT="$root/aarch64-prefix"
}
no-engine() { try "$root/no-engine" -DSHADERMACHINE_ENGINE=OFF; }
hardened() {
  CXXFLAGS=$(dpkg-buildflags --get CXXFLAGS) CFLAGS=$(dpkg-buildflags --get CFLAGS) \
    LDFLAGS=$(dpkg-buildflags --get LDFLAGS) try "$root/hardened" \
    -DCMAKE_CXX_FLAGS_INIT=-fno-plt
}

require "${build_packages[@]}" ninja-build:ninja
table=""
failed=0
for line in "${lines[@]}"; do
  log=$root/$line.log
  if (set -e; "$line") >"$log" 2>&1 </dev/null; then
    result=$(grep -o '[0-9]*% tests passed.*' "$log" | tail -n 1)
  else
    failed=1
    result="FAILED, see $log"
    print_errors "$log" >&2 || tail -n 20 "$log" >&2
  fi
  table+=$(printf '%-10s %s' "$line" "$result")$'\n'
done
printf '%s' "$table"
exit "$failed"
