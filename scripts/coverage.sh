#!/bin/bash
# Line coverage of src/ by the tests: builds with clang's instrumentation, runs ctest and prints
# llvm-cov's report; build/coverage/html holds the annotated sources.
set -euo pipefail
cd "$(dirname "$0")/.."
source scripts/setup.sh

require "${build_packages[@]}" clang:clang++ llvm:llvm-cov libclang-rt-14-dev:=
build coverage
rm -rf build/coverage/profiles
ctest --preset coverage --parallel "$(nproc)" >build/coverage/test.log ||
  { tail -n 30 build/coverage/test.log >&2; exit 1; }
llvm-profdata merge -sparse build/coverage/profiles/*.profraw -o build/coverage/merged.profdata

objects=()
while IFS= read -r program; do
  objects+=(-object "$program")
done < <(find build/coverage/tests build/coverage/examples build/coverage/tools -type f -executable \
  ! -path '*/CMakeFiles/*' ! -name '*.sh')
cov=(-instr-profile build/coverage/merged.profdata build/coverage/src/libshadermachine.so
  "${objects[@]}" src)
llvm-cov show -format=html -output-dir build/coverage/html "${cov[@]}"
llvm-cov report "${cov[@]}"
