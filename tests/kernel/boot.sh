#!/usr/bin/env bash
# boot.sh ARCH KERNEL INITRAMFS LOG CONSOLE SECONDS [PARAMETER...]: boots a guest without KVM.
#
# LOG receives what the guest writes to its second serial port, CONSOLE what comes over the first: the
# kernel's alarms. PARAMETERs go to the kernel. A guest that has written nothing for SECONDS is given
# up, and the result is 124.
set -euo pipefail

[ $# -ge 6 ] || { echo "usage: boot.sh ARCH KERNEL INITRAMFS LOG CONSOLE SECONDS [PARAMETER...]" >&2; exit 2; }
arch=$1 kernel=$2 initramfs=$3 log=$4 console=$5 seconds=$6
shift 6
# A panic ends the run, and so does what might go on in a broken state.
parameters="loglevel=4 panic=-1 oops=panic log_buf_len=64M rdinit=/init $*"
case $arch in
  amd64)
    machine=(qemu-system-x86_64 -machine q35 -cpu max -serial "file:$console" -serial "file:$log")
    # On a busy machine the guest's clock may stand still for as long as its kernel tries it.
    parameters="console=ttyS0 no_timer_check $parameters" ;;
  arm64)
    # This machine has one serial port of its own; the second is a card.
    machine=(qemu-system-aarch64 -machine virt -cpu cortex-a57
      -serial "file:$console" -chardev "file,id=log,path=$log" -device "pci-serial,chardev=log")
    parameters="console=ttyAMA0 $parameters" ;;
  *) echo "boot.sh: no machine for $arch" >&2; exit 2 ;;
esac
: >"$log"
: >"$console"
"${machine[@]}" -accel tcg -m 1024 -smp 1 -nodefaults -display none -no-reboot \
  -kernel "$kernel" -initrd "$initramfs" -append "$parameters" </dev/null &
guest=$!
trap 'kill "$guest" 2>/dev/null || true' EXIT
trap 'exit 1' HUP INT TERM
size=0
idle=0
while kill -0 "$guest" 2>/dev/null; do
  sleep 1
  now=$(stat -c %s "$log" "$console" | paste -sd +)
  if [ "$now" = "$size" ]; then idle=$((idle + 1)); else idle=0; fi
  size=$now
  [ "$idle" -lt "$seconds" ] || exit 124
done
wait "$guest"
