#!/bin/sh
# deb_test.sh CPACK BUILD-DIR WORK-DIR SOURCE: makes the packages, unpacks them, compiles and
# runs SOURCE against the unpacked library and runs the unpacked program.
set -eu
cpack=$1 build=$2 folder=$3 source=$4

rm -rf "$folder/packages" "$folder/unpacked"
(cd "$build" && "$cpack" -G DEB -B "$folder/packages")
packages="libshadermachine1 libshadermachine-dev"
if [ -e "$build/shadermachine-batch.pc" ]; then
  packages="$packages libshadermachine-batch1"
fi
if [ -x "$build/tools/shadermachine" ]; then
  packages="$packages shadermachine-tools"
fi
for package in $packages; do
  file=$(ls "$folder/packages/${package}"_*.deb)
  dpkg-deb --info "$file" >/dev/null
  dpkg-deb --extract "$file" "$folder/unpacked"
  test -s "$folder/unpacked/usr/share/doc/$package/copyright"
done

libdir=$(dirname "$(find "$folder/unpacked/usr" -name libshadermachine.so)")
"${CC:-cc}" -std=c99 -I"$folder/unpacked/usr/include" "$source" -L"$libdir" -lshadermachine \
  -o "$folder/minimal"
LD_LIBRARY_PATH=$libdir "$folder/minimal" | grep -q '^fragment 2: 2.00 0.25 0.50 1.00$'
if [ -x "$build/tools/shadermachine" ]; then
  LD_LIBRARY_PATH=$libdir "$folder/unpacked/usr/bin/shadermachine" --version
fi
