#!/bin/sh
# SPDX-License-Identifier: MIT
#
# dkms-source.sh FOLDER: the module's sources as DKMS wants them, in FOLDER/vexil-<version>; FOLDER is
# /usr/src for those that DKMS is to find. Complete: building them fetches nothing. They need make and
# the C++ compiler beside the kernel's C compiler.
#
#   dkms add vexil/<version> && dkms install vexil/<version>
set -eu
export LC_ALL=C

[ $# -eq 1 ] || {
	echo "usage: dkms-source.sh FOLDER" >&2
	exit 2
}
root=$(cd "$(dirname "$0")/../.." && pwd)
version=$(sed -n 's/^project.vexil VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
[ -n "$version" ]
mkdir -p "$1"
out=$(cd "$1" && pwd)/vexil-$version
[ ! -e "$out" ] || {
	echo "dkms-source.sh: $out is there already" >&2
	exit 1
}
work=$(mktemp -d "$1/.vexil.XXXXXX")
trap 'rm -rf "$work"' EXIT

cd "$root"
files="CMakeLists.txt LICENSE tests/abi/functions.txt platform/platform.h third_party/cjson/README.md
	third_party/cjson/number_model.h third_party/cjson/number-model.patch third_party/cjson/include/*.h
	platform/linux/Kbuild platform/linux/Makefile platform/linux/*.c platform/linux/*.sh platform/linux/pubif/*.[ch]
	include/vexil/*.h"
for folder in core extmem pim rm presetdb verify module; do
	files="$files $folder/*.h $folder/*.cpp"
done
for file in $files; do
	# What kbuild makes for itself in its own folder stays here.
	case $file in *.mod.c) continue ;; esac
	mkdir -p "$work/$(dirname "$file")"
	cp -p "$file" "$work/$file"
done
mkdir "$work/third_party/cjson/changed"
sh platform/linux/cjson.sh "$root" "$work/third_party/cjson/changed"
sed "s/#MODULE_VERSION#/$version/" platform/linux/dkms.conf >"$work/dkms.conf"
chmod 755 "$work"
mv "$work" "$out"
echo "$out"
