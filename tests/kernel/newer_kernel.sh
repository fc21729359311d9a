#!/usr/bin/env bash
# newer_kernel.sh ARCH: glue.c, compiled once more as build-module.sh did, but with kvmalloc_node as
# newer kernels have it: a macro. The module's sources need a function of that name all the same.
set -euo pipefail
export LC_ALL=C
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
out=$root/build-kernel/$1

failed() {
  printf 'FAILED  glue.c for newer kernels: %s\n' "$*"
  exit 1
}

command=$(sed -nE '1s/^[^=]*:= //p' "$out/.glue.o.cmd" | sed -E 's/ ; .*//; s/ -c -o .*//')
case $command in *-D__KERNEL__*) ;; *) failed "no compiler command in $out/.glue.o.cmd" ;; esac
symbols() { nm "$1" | awk '$NF ~ /^kvmalloc_node/ { print $(NF - 1), $NF }' | sort | tr '\n' ' '; }
cd "$root/.deps/kernel/$1/build"
eval "$command -Werror -include '$root/tests/kernel/newer_kernel.h' -c -o '$out/newer.o' '$root/platform/linux/glue.c'" ||
  failed "it does not compile"
[ "$(symbols "$out/newer.o")" = "T kvmalloc_node U kvmalloc_node_noprof " ] ||
  failed "it has $(symbols "$out/newer.o")"
[ -z "$(symbols "$out/glue.o")" ] || failed "for this kernel it has $(symbols "$out/glue.o")"
rm "$out/newer.o"
echo "ok      glue.c gives kvmalloc_node a function where it is a macro, and only there"
