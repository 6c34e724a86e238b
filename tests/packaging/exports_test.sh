#!/bin/sh
# exports_test.sh LIBRARY EXPECTED SONAME: the library exports the listed functions and nothing else,
# under the SONAME, and keeps nothing writable that the loader could protect.
set -eu
nm --dynamic --defined-only "$1" | awk '$2 == "T" { print $3 }' | sed 's/@.*//' | LC_ALL=C sort |
  diff "$2" -
readelf --dynamic "$1" | grep -q "SONAME.*\[$3\]"
readelf --program-headers "$1" | grep -q GNU_RELRO
if readelf --program-headers "$1" | grep GNU_STACK -A 1 | grep -q RWE; then
  echo "executable stack"
  exit 1
fi
