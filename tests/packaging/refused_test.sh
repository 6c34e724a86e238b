#!/bin/sh
# refused_test.sh CMAKE CXX SOURCE-DIR WORK-DIR: what cannot work is refused in one line.
set -eu
cmake=$1 cxx=$2 source=$3 work=$4

errors_with() {  # OPTION
  LC_ALL=C "$cxx" -std=c++20 "$1" -I"$source/include" -I"$source/src" -fsyntax-only \
    "$source/src/api/api.cpp" 2>&1 | grep -c ' error: ' || :
}
test "$(errors_with -O2)" = 0
test "$(errors_with -ffast-math)" = 1
test "$(errors_with -ffinite-math-only)" = 1

case $("$cxx" -dumpmachine) in
  x86_64-*)
    rm -rf "$work/refused"
    if "$cmake" -S "$source" -B "$work/refused" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_C_FLAGS=-m32 \
      -DCMAKE_CXX_FLAGS=-m32 -DCMAKE_TRY_COMPILE_TARGET_TYPE=STATIC_LIBRARY >"$work/refused.log" 2>&1
    then
      exit 1
    fi
    grep -q 'needs a target with 64-bit pointers' "$work/refused.log"
    test "$(grep -c 'CMake Error' "$work/refused.log")" = 1
    ;;
esac
