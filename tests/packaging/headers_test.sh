#!/bin/sh
# headers_test.sh CC CXX INCLUDE-DIR: every public header stands alone, as C99 and as C++.
set -eu
for header in "$3"/shadermachine/*.h; do
  for language in "$1 -x c -std=c99" "$1 -x c -std=c17" "$2 -x c++ -std=c++11" "$2 -x c++ -std=c++20"; do
    # The pair of compiler and options is split on purpose.
    echo "#include \"$header\"" |
      $language -I"$3" -pedantic -Wall -Wextra -Werror -fsyntax-only -
  done
done
