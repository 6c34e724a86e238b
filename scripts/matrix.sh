#!/bin/bash
# Builds the libraries and their tests for another target and in other ways, on Debian 12:
#
#   scripts/matrix.sh [LINE...]
#
#   aarch64    Debian's cross compiler, tests under qemu
#   riscv64    the same
#   windows    mingw-w64, tests under wine
#   program    the program for Windows, which draws the gallery's shaders in assembly under wine
#   no-engine  plain handlers only
#   hardened   the flags of Debian's packages, and -fno-plt
#
# What runs under an emulator draws the gallery too, and the line says how many pictures are this
# machine's.
# Without a line, all of them. Ends with a table.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh

lines=(aarch64 riscv64 windows program no-engine hardened)
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

# draw LINE COMMAND...: how many of the gallery's pictures have the bytes that they have here.
draw() {
  local line=$1
  shift
  cmake -S . -B "$root/reference" "${common[@]}" &&
    cmake --build "$root/reference" --parallel "$(nproc)" --target gallery_tests &&
    "$root/reference/tests/gallery_tests" --gtest_output="xml:$root/reference-gallery.xml" &&
    "$@" --gtest_output="xml:build/matrix/$line-gallery.xml" &&
    python3 scripts/compare_pictures.py "$root/reference-gallery.xml" "$root/$line-gallery.xml"
}

# foreign LINE TOOLCHAIN: the tests' library is built from Debian's sources: its packages of two
# architectures do not go together with those of others that the project uses. Projects that use the
# library would be run without the emulator, and are left out.
foreign() {
  local line=$1 toolchain=$PWD/cmake/toolchains/$2.cmake
  local left_out='^fuzz.scale$|^packaging.(deb|install|.*-c|.*-cxx)$'
  require googletest:/usr/src/googletest/CMakeLists.txt
  cmake -S /usr/src/googletest -B "$root/$line-gtest" -DBUILD_GMOCK=OFF \
    -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DCMAKE_INSTALL_PREFIX="$root/$line-prefix" &&
    cmake --build "$root/$line-gtest" --target install &&
    try "$root/$line" -DCMAKE_TOOLCHAIN_FILE="$toolchain" -DGTest_ROOT="$root/$line-prefix"
}

aarch64() {
  require g++-aarch64-linux-gnu:aarch64-linux-gnu-g++ qemu-user-static:qemu-aarch64-static
  foreign aarch64 aarch64-linux-gnu &&
    draw aarch64 qemu-aarch64-static -L /usr/aarch64-linux-gnu "$root/aarch64/tests/gallery_tests"
}
riscv64() {
  require g++-riscv64-linux-gnu:riscv64-linux-gnu-g++ qemu-user-static:qemu-riscv64-static
  foreign riscv64 riscv64-linux-gnu &&
    draw riscv64 qemu-riscv64-static -L /usr/riscv64-linux-gnu "$root/riscv64/tests/gallery_tests"
}
mingw=x86_64-w64-mingw32
require_mingw() {
  require g++-mingw-w64-x86-64-posix:$mingw-g++-posix wine64:/usr/lib/wine/wine64
  local runtime
  runtime=$(dirname "$($mingw-g++-posix -print-file-name=libstdc++-6.dll)")
  export WINEPREFIX=$root/wine WINEDEBUG=-all WINEPATH="$runtime;/usr/$mingw/lib"
  /usr/lib/wine/wine64 wineboot -i
}
windows() {
  require_mingw
  foreign windows $mingw &&
    draw windows /usr/lib/wine/wine64 "$root/windows/tests/gallery_tests.exe"
}
# Packages that are headers alone serve every target.
program() {
  require_mingw
  local prefix=$root/program-prefix folder=$root/program shader options same=0 all=0
  mkdir -p "$prefix"
  (cd /usr && cp -r --parents include/CLI include/nlohmann share/cmake/{CLI11,nlohmann_json} "$prefix")
  cmake -S . -B "$folder" "${common[@]}" -DSHADERMACHINE_BUILD_TOOLS=ON -DCMAKE_UNITY_BUILD=ON \
    -DSHADERMACHINE_BUILD_TESTS=OFF -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/toolchains/$mingw.cmake" &&
    cmake --build "$folder" --parallel "$(nproc)" --target shadermachine-program || return 1
  build release --target shadermachine-program
  for shader in examples/gallery/*.sasm; do
    read -ra options < <(sed -n 's/.*render: //p;' "$shader" | head -n 1; echo)
    options+=(--size 160x90)
    build/release/tools/shadermachine render "$shader" -o "$folder/here.raw" "${options[@]}" || return 1
    all=$((all + 1))
    # It reads no pictures, which one of the shaders wants.
    if /usr/lib/wine/wine64 "$folder/tools/shadermachine.exe" render "$shader" \
      -o build/matrix/program/there.raw "${options[@]}" &&
      cmp "$folder/here.raw" "$folder/there.raw"; then
      same=$((same + 1))
    fi
  done
  echo "$same of $all pictures of the program have the bytes that they have here"
  [ "$same" -gt 0 ]
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
    result=$(grep -oE '[0-9]*% tests passed.*|^[0-9]+ of [0-9]+ pictures.*' "$log" |
      paste -sd '|' | sed 's/|/; /g')
  else
    failed=1
    result="FAILED, see $log"
    print_errors "$log" >&2 || tail -n 20 "$log" >&2
  fi
  table+=$(printf '%-10s %s' "$line" "$result")$'\n'
done
printf '%s' "$table"
exit "$failed"
