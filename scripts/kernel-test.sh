#!/usr/bin/env bash
# kernel-test.sh [ARCH...]: vexil.ko in Debian's kernels, amd64 and arm64 by default, in QEMU without
# KVM. Boots each, loads the modules, runs the scenarios once and in a loop, compares what the kernel
# logged with the transcript of the same scenarios on this machine, loads and unloads the modules, and
# weighs the kernel's memory; then once more with every allocation traced and its surroundings
# checked. Ends with "N passed, N failed".
#
# VEXIL_ROUNDS (20) and VEXIL_RELOADS (100) say how often; VEXIL_GUEST_SECONDS (240) after which silence
# a guest is given up. What a run leaves is in build-kernel/ARCH/: log, console, transcripts.
# shellcheck disable=SC2317 # functions are called through check
set -uo pipefail
export LC_ALL=C
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
root=$PWD
rounds=${VEXIL_ROUNDS:-20}
reloads=${VEXIL_RELOADS:-100}
seconds=${VEXIL_GUEST_SECONDS:-240}
# The kernel's own coming and going between two weighings, in kB: pages of slabs, stacks of processes.
readonly slab_noise=128 mapped_noise=64
# The same over the first round, when the kernel itself fills its caches; objects of ours are counted.
readonly first_slab_noise=1024

if [ $# -gt 0 ]; then architectures=("$@"); else architectures=(amd64 arm64); fi
for arch in "${architectures[@]}"; do
  case $arch in amd64 | arm64) ;; *) echo "kernel-test.sh: no kernel for $arch" >&2; exit 2 ;; esac
done

# Every check prints one line that begins with "ok" or "FAILED", then what else there is to see.
check() { # command
  local said status=0
  said=$("$@" 2>&1) || status=$?
  case $status,$said in
    0,'ok  '* | [1-9]*,'FAILED  '*) printf '%s\n' "$said" ;;
    *) printf 'FAILED  %s: result %d\n%s\n' "$*" "$status" "$said" ;;
  esac
}
count() { grep -acE "^$1  " "$report"; }
end() {
  echo
  echo "$(count ok) passed, $(count FAILED) failed"
  [ "$(count ok)" -gt 0 ] && [ "$(count FAILED)" -eq 0 ]
  exit
}
mkdir -p build-kernel/host
report=$root/build-kernel/report
: >"$report"

# ---- The judge itself, and the transcripts of this machine

host=$root/build-kernel/host
transcribe() { # rounds
  if ! "$runner" --rounds "$1" >"$host/transcript-$1"; then
    echo "FAILED  $1 rounds of the scenarios on this machine"
    grep '^vexil scenario: FAILED' "$host/transcript-$1" | sort -u | head -n 20
    return 1
  fi
  echo "ok      $1 rounds of the scenarios on this machine: $(wc -l <"$host/transcript-$1") lines"
}

prepare() {
  printf '== the rig ==\n'
  check tests/kernel/judge_test.sh
  if ! { cmake --preset release && cmake --build --preset release --target vexil_scenario -j"$(nproc)"; } >"$host/build.log" 2>&1; then
    echo "FAILED  the scenarios do not build for this machine"
    tail -n 30 "$host/build.log"
    return
  fi
  runner=$(find build -type f -name vexil_scenario -perm -u+x | head -n 1)
  if [ -z "$runner" ]; then
    echo "FAILED  no program vexil_scenario in build/"
    return
  fi
  check transcribe 1
  check transcribe "$rounds"
}

# ---- A guest

# Name, warm rounds, rounds, reloads, then parameters of the kernel. Leaves NAME.log, NAME.console.
boot() {
  local name=$1 tty=ttyS1 start end
  [ "$arch" = amd64 ] || tty=ttyS0
  printf 'LOG=%s\nWARM=%s\nROUNDS=%s\nRELOADS=%s\n' "$tty" "$2" "$3" "$4" >"$out/config"
  shift 4
  if ! tests/kernel/initramfs.sh "$out/initramfs" "$kernel/busybox" tests/kernel/init "$out/config" \
    "$out/vexil_pubif.ko" "$out/vexil.ko" "$out/vexil_scenario.ko"; then
    echo "FAILED  no initramfs for $arch"
    return 1
  fi
  start=$(date +%s)
  local status=0
  tests/kernel/boot.sh "$arch" "$kernel/vmlinuz" "$out/initramfs" "$out/$name.log" "$out/$name.console" \
    "$seconds" "$@" 2>"$out/$name.qemu" || status=$?
  end=$(date +%s)
  if [ "$status" -ne 0 ] || ! grep -aq 'vexil guest: end$' "$out/$name.log"; then
    if [ "$status" -eq 124 ]; then
      echo "FAILED  $arch, $name run: the guest was given up after $seconds s of silence; its last lines:"
    else
      echo "FAILED  $arch, $name run: the guest ended early (result $status); its last lines:"
    fi
    tail -n 12 "$out/$name.log" | cut -c 1-200
    echo "-- and on its console:"
    cat "$out/$name.console" "$out/$name.qemu" | tail -n 40 | cut -c 1-200
    return 1
  fi
  said() { sed -nE "s/.*vexil guest: $1/\\1/p" "$out/$name.log" | head -n 1; }
  echo "ok      $arch, $name run: $(said '(begin at .*)')"
  grep -a 'vexil guest: \(scenarios\|reloads\|tainted\)' "$out/$name.log" | sed 's/.*vexil guest: /        /'
  echo "        whole run $((end - start)) s, log of $(wc -l <"$out/$name.log") lines"
}

sizes() { # what integrators pay
  local module
  for module in vexil vexil_pubif; do
    "${binutils}strip" -g -o "$out/$module.stripped" "$out/$module.ko"
    "${binutils}size" "$out/$module.ko" | awk -v module="$module.ko" -v file="$(stat -c %s "$out/$module.stripped")" '
      NR == 2 { printf "        %s: code and constants %d bytes, data %d, zeroed %d; file without debug information %d\n",
        module, $1, $2, $3, file }'
  done
}

depth() { # how deep calls go
  local said
  if said=$(scripts/stack-depth.py --kbuild "$out" --kernel "$kernel/build" --brief 2>&1); then
    echo "ok      $(printf '%s\n' "$said" | tail -n 1)"
    printf '%s\n' "$said" | tail -n 4 | sed '$d; s/^/        /'
  else
    printf 'FAILED  call depths\n%s\n' "$said"
    return 1
  fi
}

in_module() { # a check of tests/abi/symbols.sh
  local said
  if said=$(tests/abi/symbols.sh "$1" "$out/vexil.ko" tests/abi/functions.txt 2>&1); then
    echo "ok      vexil.ko, symbols: $1"
  else
    printf 'FAILED  vexil.ko, symbols: %s\n%s\n' "$1" "$said"
    return 1
  fi
}

judge() { check tests/kernel/judge.sh "$@"; }

in_kernel() { # architecture
  local name
  arch=$1
  kernel=$root/.deps/kernel/$arch
  out=$root/build-kernel/$arch
  binutils=
  printf '\n== %s ==\n' "$arch"
  if [ "$arch" != "$(dpkg --print-architecture)" ]; then
    case $arch in amd64) binutils=x86_64-linux-gnu- ;; arm64) binutils=aarch64-linux-gnu- ;; esac
  fi
  export NM=${binutils}nm OBJDUMP=${binutils}objdump READELF=${binutils}readelf
  if ! scripts/build-module.sh "$arch" 2>&1; then
    echo "FAILED  the modules for $arch do not build"
    return
  fi
  echo "ok      modules for Linux $(cat "$kernel/release"), without warnings"
  sizes
  judge module "$out/vexil.ko" "$out/Module.symvers" tests/abi/functions.txt
  judge code "$out/vexil.ko" "$kernel/config"
  for name in runtime constructors registers unique functions; do check in_module $name; done
  check depth
  check tests/kernel/newer_kernel.sh "$arch"
  [ -n "$binutils" ] || check tests/kernel/dkms.sh "$arch"

  check boot plain 1 "$rounds" "$reloads"
  judge ended "$out/plain.log"
  judge faults "$out/plain.log" "$out/plain.console"
  judge transcript "$out/plain.log" 1 "$host/transcript-1"
  judge transcript "$out/plain.log" 2 "$host/transcript-$rounds"
  judge memory "$out/plain.log" "$rounds rounds" $slab_noise $mapped_noise
  judge memory "$out/plain.log" "$reloads reloads" $slab_noise $mapped_noise

  check boot traced 0 1 0 'slub_debug=FZPU,kmalloc-*'
  judge ended "$out/traced.log"
  judge faults "$out/traced.log" "$out/traced.console"
  judge transcript "$out/traced.log" 1 "$host/transcript-1"
  judge memory "$out/traced.log" "1 rounds" $first_slab_noise $mapped_noise traced
}

# ---- All of it: the architectures side by side, for a guest uses one processor

prepare 2>&1 | tee -a "$report"
[ "$(count FAILED)" -eq 0 ] || end
for arch in "${architectures[@]}"; do
  mkdir -p "build-kernel/$arch"
  in_kernel "$arch" >"build-kernel/$arch/report" 2>&1 &
done
wait
for arch in "${architectures[@]}"; do tee -a "$report" <"build-kernel/$arch/report"; done
end
