#!/bin/bash
# print_errors_test.sh SETUP-SCRIPT: of a build's output the errors are shown, not the files that have
# the word in their names; an output without any says so.
set -euo pipefail
source "$1"
log=$(mktemp)
trap 'rm -f "$log"' EXIT

printf '[1/9] Building CXX object api/%s\n' error_messages.cpp.o ErrorCodes.cpp.o >"$log"
if print_errors "$log"; then exit 1; fi
for message in 'a.cpp:3:1: error: no' '/usr/bin/ld: error: no' 'a.o: undefined reference to `f'"'" \
  'CMake Error at CMakeLists.txt:1:' 'gmake: *** [Makefile:2: all] Error 1'; do
  printf '[2/9] error_messages.cpp.o\n%s\nnext\n' "$message" >"$log"
  [ "$(print_errors "$log")" = "$message"$'\n'next ]
done
