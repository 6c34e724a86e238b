#!/bin/bash
# Shows that the vector forms of the C library's functions (src/batch/c_library.h) give the bits of
# this machine's C library for every float, with and without the library's own variants for newer
# processors. Half an hour on one core. A library that passes is entered in
# src/batch/c_library_check.cpp.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh
require "${build_packages[@]}"
build release --target prove_c_library
ldd --version | head -n 1
build/release/tests/prove_c_library
GLIBC_TUNABLES=glibc.cpu.hwcaps=-AVX2,-FMA,-FMA4 build/release/tests/prove_c_library
