#!/usr/bin/env bash
# kernel.sh [DEST]: the checking kernel, built from Debian's linux-source, in DEST
# (.deps/kernel/checking below the repository by default):
#
#   version   of the source package, one line
#   bzImage   the kernel
#   build/    for make -C: what its modules are built with
#   made-of   what it was built with and from, besides the source
#
# The package comes from the machine's own sources, nothing is installed, and no privilege is needed.
# DEST appears whole or not at all. A copy that is there already is kept unless kernel.config, this
# script or the compiler changed; remove it to get the archive's newest kernel.
set -euo pipefail
export LC_ALL=C

fail() {
  printf 'kernel.sh: %s\n' "$*" >&2
  exit 1
}

[ $# -le 1 ] || fail "usage: kernel.sh [DEST]"
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../../.." && pwd)
# shellcheck source=scripts/apt-private.sh
. "$root/scripts/apt-private.sh"
dest=${1:-$root/.deps/kernel/checking}
[ -n "$dest" ] || fail "the destination is empty"

make=(make -s ARCH=x86_64)
compiler=gcc
if [ "$(dpkg --print-architecture)" != amd64 ]; then
  compiler=x86_64-linux-gnu-gcc
  make+=("CROSS_COMPILE=x86_64-linux-gnu-")
fi
for tool in "$compiler" apt-get apt-cache dpkg-deb tar xz flex bison bc; do
  command -v "$tool" >/dev/null || fail "$tool is missing; scripts/setup.sh installs it"
done
made_of=$(
  "$compiler" -dumpfullversion
  sha256sum <"$here/kernel.config"
  sha256sum <"$here/kernel.sh"
)
is_copy() { [ -s "$1/bzImage" ] && [ -s "$1/build/Module.symvers" ] && [ "$(cat "$1/made-of" 2>/dev/null)" = "$made_of" ]; }
is_copy "$dest" && exit 0

parent=$(dirname "$dest")
mkdir -p "$parent" || fail "cannot make $parent"
parent=$(cd "$parent" && pwd)
dest=$parent/$(basename "$dest")
if [ -e "$dest/made-of" ]; then
  rm -rf "$dest"
elif [ -e "$dest" ] || [ -L "$dest" ]; then
  rmdir "$dest" 2>/dev/null || fail "$dest holds something else than a checking kernel; remove it first"
fi

# mktemp gives a folder of ours alone: source lists may hold passwords.
work=$(mktemp -d "$parent/.checking-kernel.XXXXXX") || fail "cannot write below $parent"
trap 'rm -rf "$work"' EXIT
trap 'exit 1' HUP INT TERM

apt_private_open "$work" deb
package=
for sources in "${apt_private_sources[@]}"; do
  apt_private_update "$sources"
  package=$(apt-cache -c "$apt_private_conf" depends --important --no-recommends linux-source 2>/dev/null |
    awk '$1 == "Depends:" && $2 ~ /^linux-source-[0-9.]+$/ { print $2; exit }')
  [ -z "$package" ] || break
done
[ -n "$package" ] || fail "apt finds no linux-source on this machine$(apt_private_reason)"
if ! (cd "$work" && apt-get -q -c "$apt_private_conf" download "$package") >"$work/download.log" 2>&1; then
  fail "cannot download $package ($(grep -m1 '^E:' "$work/download.log" || tail -n 1 "$work/download.log"))"
fi
file=("$work/$package"_*.deb)
version=$(dpkg-deb --field "${file[0]}" Version)

# Configuring reads every Kconfig, and building one architecture's sources and few drivers.
mkdir -p "$work/kernel/build"
dpkg-deb --fsys-tarfile "${file[0]}" | tar -x -O --wildcards "./usr/src/$package.tar.xz" | xz -dc -T0 |
  tar -x -C "$work/kernel/build" --strip-components=1 --wildcards-match-slash \
    --exclude='*/arch/[!x]*/*.[chS]' --exclude='*/tools/testing/*' --exclude='*/tools/perf/*' \
    --exclude='*.rst' --exclude='*.yaml' --exclude='*.dts*' --exclude='*/sound/*.[ch]' \
    --exclude='*/drivers/gpu/*.[ch]' --exclude='*/drivers/net/*.[ch]' --exclude='*/drivers/media/*.[ch]' \
    --exclude='*/drivers/staging/*.[ch]' ||
  fail "cannot unpack $package"
rm "${file[0]}"

log=$work/build.log
run() {
  (cd "$work/kernel/build" && "$@") >>"$log" 2>&1 || {
    tail -n 30 "$log" >&2
    fail "the checking kernel of $version does not build"
  }
}
run "${make[@]}" tinyconfig
run ./scripts/kconfig/merge_config.sh -m .config "$here/kernel.config"
run "${make[@]}" olddefconfig
# What the configuration asks for and does not get would not be checked.
refused=$(grep -vE '^(#.*)?$' "$here/kernel.config" | grep -vxF -f "$work/kernel/build/.config" || true)
[ -z "$refused" ] || fail "$version cannot be configured with ${refused//$'\n'/ }"
run "${make[@]}" -j"$(nproc)" bzImage modules
mv "$work/kernel/build/arch/x86/boot/bzImage" "$work/kernel/bzImage"

# Modules need headers, scripts and programs.
(cd "$work/kernel/build" &&
  find . \( -path ./scripts -o -path ./tools/objtool \) -prune -o -type f \
    \( -name '*.o' -o -name '*.a' -o -name '*.[cS]' -o -name '.*.cmd' -o -name 'vmlinux*' -o -name '*.bin' \) \
    -exec rm -f {} +)
printf '%s\n' "$version" >"$work/kernel/version"
printf '%s\n' "$made_of" >"$work/kernel/made-of"
is_copy "$work/kernel" || fail "the checking kernel of $version lacks something"

# Another run may have been faster; its copy is as good.
mv -T "$work/kernel" "$dest" 2>/dev/null || is_copy "$dest" || fail "cannot place the kernel in $dest"
printf 'Linux %s, checking: %s\n' "$version" "$dest"
