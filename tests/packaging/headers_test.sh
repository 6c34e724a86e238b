#!/bin/sh
# headers_test.sh CC CXX INCLUDE-DIR HEADER...: every public header for C stands alone, as C99 and as
# C++.
set -eu
cc=$1 cxx=$2 include=$3
shift 3
for header in "$@"; do
  for language in "$cc -x c -std=c99" "$cc -x c -std=c17" "$cxx -x c++ -std=c++11" \
    "$cxx -x c++ -std=c++20"; do
    # The compiler and its options are split on purpose.
    echo "#include \"$header\"" |
      $language -I"$include" -pedantic -Wall -Wextra -Werror -fsyntax-only -
  done
done
