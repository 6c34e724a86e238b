#!/bin/sh
# deb_test.sh CPACK BUILD-DIR WORK-DIR SOURCE: makes the packages, unpacks them, compiles and
# runs SOURCE against the unpacked library, runs the unpacked program, and asks lintian, where that is
# installed, for errors and warnings.
set -eu
cpack=$1 build=$2 folder=$3 source=$4
root=$(dirname "$source")/..

rm -rf "$folder/packages" "$folder/unpacked"
(cd "$build" && "$cpack" -G DEB -B "$folder/packages")
abi=$(sed -n 's/#define SHADERMACHINE_VERSION_MAJOR //p' "$root/include/shadermachine/shadermachine.h")
packages="libshadermachine$abi libshadermachine-dev"
if [ -e "$build/shadermachine-batch.pc" ]; then
  packages="$packages libshadermachine-batch$abi"
fi
if [ -x "$build/tools/shadermachine" ]; then
  packages="$packages shadermachine-tools"
fi
for package in $packages; do
  file=$(ls "$folder/packages/${package}"_*.deb)
  dpkg-deb --info "$file" >/dev/null
  dpkg-deb --extract "$file" "$folder/unpacked"
  grep -q '^Copyright: [0-9]* ' "$folder/unpacked/usr/share/doc/$package/copyright"
done

libdir=$(dirname "$(find "$folder/unpacked/usr" -name libshadermachine.so)")
"${CC:-cc}" -std=c99 -I"$folder/unpacked/usr/include" "$source" -L"$libdir" -lshadermachine \
  -o "$folder/minimal"
LD_LIBRARY_PATH=$libdir "$folder/minimal" | grep -q '^fragment 2: 2.00 0.25 0.50 1.00$'
if [ -x "$build/tools/shadermachine" ]; then
  LD_LIBRARY_PATH=$libdir "$folder/unpacked/usr/bin/shadermachine" --version
fi
if command -v lintian >/dev/null; then
  lintian --allow-root --fail-on warning --display-level '>=warning' "$folder/packages"/*.deb
fi
