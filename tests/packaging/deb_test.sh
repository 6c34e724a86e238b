#!/bin/sh
# deb_test.sh CPACK BUILD-DIR WORK-DIR SOURCE: makes the three packages, unpacks them, compiles and
# runs SOURCE against the unpacked library and runs the unpacked program.
set -eu
cpack=$1 build=$2 work=$3 source=$4

rm -rf "$work/packages" "$work/root"
(cd "$build" && "$cpack" -G DEB -B "$work/packages")
packages="libshadermachine1 libshadermachine-dev"
if [ -x "$build/tools/shadermachine" ]; then
  packages="$packages shadermachine-tools"
fi
for package in $packages; do
  file=$(ls "$work/packages/${package}"_*.deb)
  dpkg-deb --info "$file" >/dev/null
  dpkg-deb --extract "$file" "$work/root"
  test -s "$work/root/usr/share/doc/$package/copyright"
done

libdir=$(dirname "$(find "$work/root/usr" -name libshadermachine.so)")
"${CC:-cc}" -std=c99 -I"$work/root/usr/include" "$source" -L"$libdir" -lshadermachine \
  -o "$work/minimal"
LD_LIBRARY_PATH=$libdir "$work/minimal" | grep -q '^fragment 2: 2.00 0.25 0.50 1.00$'
if [ -x "$build/tools/shadermachine" ]; then
  LD_LIBRARY_PATH=$libdir "$work/root/usr/bin/shadermachine" --version
fi
