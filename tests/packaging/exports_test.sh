#!/bin/sh
# exports_test.sh LIBRARY EXPECTED SONAME: the library exports the listed functions and nothing else,
# under the SONAME (a DLL has none), and keeps nothing writable that the loader could protect.
set -eu
case $1 in
  *.dll)
    objdump -p "$1" | awk '/^\[Ordinal/ { listed = 1; next }
                           listed && !NF { exit }
                           listed { print $NF }' | LC_ALL=C sort | diff "$2" -
    exit
    ;;
esac
nm --dynamic --defined-only "$1" | awk '$2 == "T" { print $3 }' | sed 's/@.*//' | LC_ALL=C sort |
  diff "$2" -
readelf --dynamic "$1" | grep -q "SONAME.*\[$3\]"
readelf --program-headers "$1" | grep -q GNU_RELRO
if readelf --program-headers "$1" | grep GNU_STACK -A 1 | grep -q RWE; then
  echo "executable stack"
  exit 1
fi
