#!/bin/sh
# SPDX-License-Identifier: MIT
#
# cjson.sh ROOT OUT: cJSON.c and cJSON.h with the integer number model, into OUT.
#
# ROOT is vexil's tree. A source package of the kernel module brings both files along, changed
# already; elsewhere Debian's are fetched and changed.
set -eu

root=$1
out=$2
ours=$root/third_party/cjson

if [ -s "$ours/changed/cJSON.c" ]; then
	cp "$ours/changed/cJSON.c" "$ours/changed/cJSON.h" "$out/"
	exit 0
fi
source=$root/.deps/cjson
[ -s "$source/cJSON.c" ] || "$root/scripts/fetch-cjson.sh" "$source" >&2
scratch=$(mktemp -d "$out/.cjson.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
cp "$source/cJSON.c" "$source/cJSON.h" "$scratch/"
patch --fuzz=0 --batch --forward --no-backup-if-mismatch --silent -p1 -d "$scratch" -i "$ours/number-model.patch"
mv "$scratch/cJSON.c" "$scratch/cJSON.h" "$out/"
