#!/bin/sh
# SPDX-License-Identifier: MIT
#
# initramfs.sh OUT BUSYBOX INIT CONFIG MODULE...: the guest's root, as an archive OUT for the kernel.
set -eu

out=$1
busybox=$2
init=$3
config=$4
shift 4

root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir "$root/modules" "$root/dev"
cp "$busybox" "$root/busybox"
cp "$init" "$root/init"
cp "$config" "$root/config"
cp "$@" "$root/modules/"
chmod 755 "$root/busybox" "$root/init"
(cd "$root" && find . | sort | cpio -o -H newc -R 0:0 --quiet) >"$out"
