#!/usr/bin/env bash
# dkms.sh ARCH: the DKMS source tree builds by itself, as its dkms.conf says, and gives the modules
# that the tree gives. Nothing is fetched for it.
set -euo pipefail
export LC_ALL=C
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
out=$root/build-kernel/$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

failed() {
  printf 'FAILED  DKMS: %s\n' "$*"
  exit 1
}

"$root/platform/linux/dkms-source.sh" "$work" >/dev/null || failed "no source tree"
cd "$work"/vexil-*
# shellcheck disable=SC2034 # dkms.conf uses it
kernel_source_dir=$(cd "$root/.deps/kernel/$1/build" && pwd)
# shellcheck source=platform/linux/dkms.conf
. ./dkms.conf
case $PWD in */"$PACKAGE_NAME-$PACKAGE_VERSION") ;; *) failed "$PACKAGE_NAME $PACKAGE_VERSION lies in $PWD" ;; esac
# As dkms runs it: words, no shell.
# shellcheck disable=SC2086
${MAKE[0]} -j"$(nproc)" >"$work/log" 2>&1 || { tail -n 20 "$work/log"; failed "it does not build"; }
for index in "${!BUILT_MODULE_NAME[@]}"; do
  module=${BUILT_MODULE_NAME[index]}.ko
  built=${BUILT_MODULE_LOCATION[index]}/$module
  [ -s "$built" ] || failed "no $built"
  [ "$(modinfo -F version "$built")" = "$PACKAGE_VERSION" ] || failed "$module is of another version"
  cmp -s <(nm "$built" | awk '{ print $(NF - 1), $NF }' | sort) <(nm "$out/$module" | awk '{ print $(NF - 1), $NF }' | sort) ||
    failed "$module has other symbols than in build-kernel"
done
# shellcheck disable=SC2086
$CLEAN >"$work/log" 2>&1 || failed "it cannot be cleaned"
left=$(find . -name '*.o' -o -name '*.ko' -o -name '*.cmd' | head -n 5)
[ -z "$left" ] || failed "cleaning leaves $left"
echo "ok      DKMS: $PACKAGE_NAME $PACKAGE_VERSION builds from its own source tree"
