#!/bin/bash
# clang-format, cppcheck and clang-tidy over the whole tree; prints what they find and fails on any.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh

require "${build_packages[@]}" clang-format:clang-format clang-tidy:clang-tidy cppcheck:cppcheck
mapfile -t sources < <(find . \( -path './build*' -o -path ./.git \) -prune -o \
  \( -name '*.c' -o -name '*.h' -o -name '*.cpp' \) -print)
# What is for Windows alone is compiled there alone.
mapfile -t units < <(find src tools -name '*.cpp' ! -name '*_windows.cpp')

clang-format --dry-run --Werror "${sources[@]}"
[ "${1:-}" != --format-only ] || exit 0

build release
cppcheck --quiet --std=c++20 --language=c++ --enable=warning,performance,portability \
  --inline-suppr --suppressions-list=.cppcheck-suppressions --error-exitcode=1 -j "$(nproc)" \
  -Iinclude -Isrc -Itools -Itools/toolkit -Itools/toolkit/include "${units[@]}"
printf '%s\0' "${units[@]}" |
  xargs -0 -n 1 -P "$(nproc)" clang-tidy -p build/release --quiet \
    --extra-arg=-Wno-unknown-warning-option
