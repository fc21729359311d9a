#!/usr/bin/env bash
# fetch-kernel.sh ARCH [DEST]: Debian's kernel for ARCH (amd64 or arm64), and what it takes to build
# modules for it here and to boot it, in DEST (.deps/kernel/ARCH below the repository by default):
#
#   release   the kernel's release, one line
#   vmlinuz   the kernel
#   config    its configuration
#   build/    for make -C: headers, and kbuild's programs for this machine
#   busybox   a static busybox for ARCH
#
# Packages come from the machine's own sources, nothing is installed, and no privilege is needed.
# DEST appears whole or not at all, and a copy that is there already is kept: remove it to get the
# archive's newest kernel.
set -euo pipefail
export LC_ALL=C

fail() {
  printf 'fetch-kernel.sh: %s\n' "$*" >&2
  exit 1
}

is_copy() { [ -s "$1/release" ] && [ -s "$1/vmlinuz" ] && [ -s "$1/build/Makefile" ] && [ -x "$1/busybox" ]; }

if [ $# -lt 1 ] || [ $# -gt 2 ]; then fail "usage: fetch-kernel.sh amd64|arm64 [DEST]"; fi
arch=$1
case $arch in
  amd64 | arm64) ;;
  *) fail "no kernel for $arch; there is amd64 and arm64" ;;
esac
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
# shellcheck source=scripts/apt-private.sh
. "$root/scripts/apt-private.sh"
dest=${2:-$root/.deps/kernel/$arch}
[ -n "$dest" ] || fail "the destination is empty"
is_copy "$dest" && exit 0

for tool in apt-get apt-cache dpkg dpkg-deb tar; do
  command -v "$tool" >/dev/null || fail "$tool is missing; install apt and dpkg"
done

parent=$(dirname "$dest")
mkdir -p "$parent" || fail "cannot make $parent"
parent=$(cd "$parent" && pwd)
dest=$parent/$(basename "$dest")
if [ -e "$dest" ] || [ -L "$dest" ]; then
  rmdir "$dest" 2>/dev/null || fail "$dest holds something else than a kernel; remove it first"
fi

# mktemp gives a folder of ours alone: source lists may hold passwords.
work=$(mktemp -d "$parent/.fetch-kernel.XXXXXX") || fail "cannot write below $parent"
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

# The first package of that name pattern that PACKAGE depends on; nothing when there is none.
dependency() { # package, pattern
  apt-cache -c "$apt_private_conf" depends --important --no-recommends "$1" 2>/dev/null |
    awk -v wanted="^$2\$" '$1 == "Depends:" { sub(/:.*/, "", $2); if ($2 ~ wanted) { print $2; exit } }'
}

apt_private_open "$work" deb "$arch"
image=
for sources in "${apt_private_sources[@]}"; do
  apt_private_update "$sources"
  image=$(dependency "linux-image-$arch" 'linux-image-[0-9].*')
  [ -z "$image" ] || break
done
[ -n "$image" ] || fail "apt finds no kernel for $arch on this machine$(apt_private_reason)"
release=${image#linux-image-}
headers=linux-headers-$release
common=$(dependency "$headers" 'linux-headers-.*-common')
kbuild=$(dependency "$headers" 'linux-kbuild-.*')
if [ -z "$common" ] || [ -z "$kbuild" ]; then fail "apt finds no headers for the kernel $release"; fi

mkdir "$work/packages" "$work/tree" "$work/kernel"
own=$(dpkg --print-architecture)
if ! (cd "$work/packages" && apt-get -q -c "$apt_private_conf" download \
  "$image" "$headers" "$common" "$kbuild:$own" busybox-static) >"$work/download.log" 2>&1; then
  reason=$(grep -m1 '^E:' "$work/download.log" || tail -n 1 "$work/download.log")
  fail "cannot download the kernel $release ($reason)"
fi

unpack() { # package, patterns of what to take; everything by default
  local file=("$work/packages/${1%%:*}"_*.deb)
  [ -s "${file[0]}" ] || fail "no package file of $1"
  dpkg-deb --fsys-tarfile "${file[0]}" | tar -x -C "$work/tree" --wildcards "${@:2}" ||
    fail "cannot unpack $1"
}
unpack "$image" "./boot/vmlinuz-$release" "./boot/config-$release"
unpack busybox-static ./bin/busybox
unpack "$headers"
unpack "$common"
unpack "$kbuild"

# The packages expect to lie below /; here they find each other from where they are.
mkdir -p "$work/kernel/usr"
mv "$work/tree/usr/src" "$work/tree/usr/lib" "$work/kernel/usr"
makefile=$work/kernel/usr/src/$headers/Makefile
[ -s "$makefile" ] || fail "$headers holds no Makefile"
# shellcheck disable=SC2016 # make expands it
sed -i 's|/usr/src/|$(dir $(realpath $(lastword $(MAKEFILE_LIST))))../|' "$makefile"
ln -s "usr/src/$headers" "$work/kernel/build"
mv "$work/tree/boot/vmlinuz-$release" "$work/kernel/vmlinuz"
mv "$work/tree/boot/config-$release" "$work/kernel/config"
mv "$work/tree/bin/busybox" "$work/kernel/busybox"
printf '%s\n' "$release" >"$work/kernel/release"
is_copy "$work/kernel" || fail "the packages of $release lack something"

# Another run may have been faster; its copy is as good.
mv -T "$work/kernel" "$dest" 2>/dev/null || is_copy "$dest" || fail "cannot place the kernel in $dest"
printf 'Linux %s: %s\n' "$release" "$dest"
