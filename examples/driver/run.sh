#!/usr/bin/env bash
# run.sh ARCH [MODULES]: builds this driver and its images, and runs both in a guest of ARCH (amd64 or
# arm64); the guest's lines must be those of expected.txt.
#
# MODULES is the folder of vexil.ko and vexil_pubif.ko, built for Debian's kernel of that architecture;
# without it, scripts/build-module.sh builds them. VEXIL_TOOL names the tool vexil, build/vexil by default.
set -euo pipefail
export LC_ALL=C

fail() {
  printf 'run.sh: %s\n' "$*" >&2
  exit 1
}

if [ $# -lt 1 ] || [ $# -gt 2 ]; then fail "usage: run.sh amd64|arm64 [MODULES]"; fi
arch=$1
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
root=$(cd "$here/../.." && pwd)
modules=${2:-$root/build-kernel/$arch}
tool=${VEXIL_TOOL:-$root/build/vexil}
kernel=$root/.deps/kernel/$arch
case $arch in
  amd64) gnu=x86_64-linux-gnu make=(make ARCH=x86_64) ;;
  arm64) gnu=aarch64-linux-gnu make=(make ARCH=arm64) ;;
  *) fail "no kernel for $arch; there is amd64 and arm64" ;;
esac
[ "$arch" = "$(dpkg --print-architecture)" ] || make+=("CROSS_COMPILE=$gnu-")
[ $# -eq 2 ] || "$root/scripts/build-module.sh" "$arch"
modules=$(cd "$modules" && pwd)
if [ -z "${VEXIL_TOOL:-}" ]; then
  cmake -S "$root" -B "$root/build" >/dev/null
  cmake --build "$root/build" --target vexil_tool -j"$(nproc)" >/dev/null
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/driver" "$work/guest/modules" "$work/guest/lib/firmware/vexil"

# shellcheck disable=SC2016 # make expands it
printf 'vexil := %s\ninclude $(vexil)/examples/driver/Kbuild\n' "$root" >"$work/driver/Kbuild"
"${make[@]}" -C "$kernel/build" M="$work/driver" KBUILD_EXTRA_SYMBOLS="$modules/Module.symvers" \
  KCFLAGS=-Werror modules >"$work/build.log" 2>&1 || { cat "$work/build.log" >&2; fail "the driver does not build"; }
if grep -i warning "$work/build.log" >&2; then fail "the driver does not build without warnings"; fi

"$tool" build "$here/product" -o "$work/guest/lib/firmware/vexil/pq_pipeline.pim" >/dev/null
cp "$modules/vexil_pubif.ko" "$modules/vexil.ko" "$work/driver/pq_pipeline.ko" "$work/guest/modules/"
cp "$here/session.txt" "$work/guest/"
install -m 755 "$here/init" "$work/guest/init"
install -m 755 "$kernel/busybox" "$work/guest/busybox"
(cd "$work/guest" && find . | sort | cpio -o -H newc -R 0:0 --quiet) >"$work/initramfs"

"$root/tests/kernel/boot.sh" "$arch" "$kernel/vmlinuz" "$work/initramfs" "$work/log" "$work/console" 120 ||
  { tail -n 40 "$work/console" >&2; fail "the guest did not end by itself"; }
tr -d '\r' <"$work/console" >"$work/lines"
sed -n '/^example: begin$/,/^example: end$/p' "$work/lines" >"$work/told"
if grep '^FAILED' "$work/lines" >&2 || ! grep -qx 'example: off' "$work/lines" ||
  ! diff -u "$here/expected.txt" "$work/told" >&2; then
  fail "the driver does not do what it should"
fi
printf 'run.sh: %s, the driver writes what it should\n' "$arch"
