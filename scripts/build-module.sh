#!/usr/bin/env bash
# build-module.sh ARCH [KDIR [OUT]]: vexil.ko, vexil_pubif.ko and the test module vexil_scenario.ko for
# ARCH (amd64 or arm64), in OUT (build-kernel/ARCH below the repository by default).
#
# KDIR is the build folder of the kernel to build for; Debian's kernel of that architecture by default,
# fetched when it is not there. Any warning, of compiler, modpost or objtool, is an error.
set -euo pipefail
export LC_ALL=C

fail() {
  printf 'build-module.sh: %s\n' "$*" >&2
  exit 1
}

if [ $# -lt 1 ] || [ $# -gt 3 ]; then fail "usage: build-module.sh amd64|arm64 [KDIR [OUT]]"; fi
arch=$1
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
kernel=${2:-$root/.deps/kernel/$arch/build}
out=${3:-$root/build-kernel/$arch}
case $arch in
  amd64) gnu=x86_64-linux-gnu make=(make ARCH=x86_64) ;;
  arm64) gnu=aarch64-linux-gnu make=(make ARCH=arm64) ;;
  *) fail "no kernel for $arch; there is amd64 and arm64" ;;
esac
[ $# -ge 2 ] || "$root/scripts/fetch-kernel.sh" "$arch"
[ "$arch" = "$(dpkg --print-architecture)" ] || make+=("CROSS_COMPILE=$gnu-")

mkdir -p "$out"
out=$(cd "$out" && pwd)
kernel=$(cd "$kernel" && pwd)
# shellcheck disable=SC2016 # make expands it
printf 'vexil := %s\ninclude $(vexil)/tests/kernel/Kbuild\n' "$root" >"$out/Kbuild.new"
cmp -s "$out/Kbuild.new" "$out/Kbuild" || cp "$out/Kbuild.new" "$out/Kbuild"
rm "$out/Kbuild.new"

log=$out/build.log
status=0
"${make[@]}" -C "$kernel" M="$out" KCFLAGS="${KCFLAGS:-} -Werror" -j"$(nproc)" modules >"$log" 2>&1 || status=$?
if [ $status -ne 0 ] || grep -qi 'warning' "$log"; then
  grep -vE '^ +(CC|CXX|LD|AS|GEN|UPD|BTF|MODPOST)\b|^make|^Skipping BTF' "$log" | tail -n 60 >&2
  # What was warned of is warned of again.
  find "$out" -name '*.o' -delete
  fail "the modules for $arch do not build without warnings; all of it is in $log"
fi
