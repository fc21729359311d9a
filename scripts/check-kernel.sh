#!/usr/bin/env bash
# check-kernel.sh: vexil.ko in a kernel that watches every access: KASAN, UBSAN, kmemleak, failing
# allocations. Builds that kernel once (some three minutes, kept in .deps/kernel/checking), boots it in
# QEMU without KVM, two at a time:
#
#   plain    runs the scenarios: nothing may be noticed
#   starved  runs them with allocations refused at random, and once more as before: nothing may be noticed
#   swept    calls every slot with each of its allocations refused in turn, and with all from each on:
#            nothing may be noticed, and what was there before is there
#   faults   commits faults in C++, each of which must be noticed
#
# Ends with "N passed, N failed". VEXIL_STARVED (3) says how often each degree of starvation is tried,
# VEXIL_GUEST_SECONDS (300) after which silence a guest is given up. What a run leaves is in
# build-kernel/checking/: NAME.log, NAME.console.
set -uo pipefail
export LC_ALL=C
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1
root=$PWD
starved=${VEXIL_STARVED:-3}
seconds=${VEXIL_GUEST_SECONDS:-300}
out=$root/build-kernel/checking
kernel=$root/.deps/kernel/checking
here=tests/kernel/checking
stack_bytes=32768 # of this kernel: instrumented frames are larger

passed=0
failed=0
ok() {
  passed=$((passed + 1))
  printf 'ok      %s\n' "$*"
}
bad() {
  failed=$((failed + 1))
  printf 'FAILED  %s\n' "$*"
}
end() {
  printf '\n%d passed, %d failed\n' "$passed" "$failed"
  [ "$passed" -gt 0 ] && [ "$failed" -eq 0 ]
  exit
}
took() { # what, seconds since the epoch
  printf '        %s: %d s\n' "$1" $(($(date +%s) - $2))
}

# ---- What to boot

printf '== build ==\n'
scripts/setup.sh || exit 1
begin=$(date +%s)
[ -s "$kernel/made-of" ] || echo "        building the kernel: some minutes, the first time"
if ! nice "$here/kernel.sh"; then
  bad "the checking kernel"
  end
fi
# Busybox for the guest comes with Debian's kernel.
if ! scripts/fetch-kernel.sh amd64; then
  bad "busybox for the guest"
  end
fi
took "checking kernel, Linux $(cat "$kernel/version")" "$begin"

begin=$(date +%s)
mkdir -p "$out"
# shellcheck disable=SC2016 # make expands it
printf 'vexil := %s\ninclude $(vexil)/%s/Kbuild\n' "$root" "$here" >"$out/Kbuild.new"
cmp -s "$out/Kbuild.new" "$out/Kbuild" || cp "$out/Kbuild.new" "$out/Kbuild"
rm -f "$out/Kbuild.new"
make=(make ARCH=x86_64)
[ "$(dpkg --print-architecture)" = amd64 ] || make+=("CROSS_COMPILE=x86_64-linux-gnu-")
# Both handlers are in every kernel with UBSAN; only its configuration leaves these two out.
if nice "${make[@]}" -C "$kernel/build" M="$out" KCFLAGS="-fsanitize=alignment,null -Werror" -j"$(nproc)" \
  modules >"$out/build.log" 2>&1 && ! grep -i warning "$out/build.log"; then
  ok "the modules build without warnings"
else
  grep -vE '^ +(CC|CXX|LD|AS|GEN|UPD|MODPOST)\b|^make' "$out/build.log" | tail -n 40
  find "$out" -name '*.o' -delete
  bad "the modules build without warnings"
  end
fi
took modules "$begin"

# The compiler's own word for it, besides what the faults show. Wrappers forward, and touch no memory.
plain=$(find "$out"/{core,extmem,pim,rm,presetdb,verify,module} -name '*.o' ! -path '*/module/wrappers.o' |
  while read -r object; do nm "$object" | grep -q ' U __asan_' || printf '%s ' "${object#"$out"/}"; done)
if [ -z "$plain" ]; then ok "the library's objects are instrumented"; else bad "not instrumented: $plain"; fi

# ---- Guests

boot() { # name of the check, parameters of the kernel
  printf 'LOG=ttyS1\nCHECK=%s\nSTARVED=%s\n' "$1" "$starved" >"$out/$1.config"
  tests/kernel/initramfs.sh "$out/$1.initramfs" .deps/kernel/amd64/busybox "$here/init" "$out/$1.config" \
    "$out/vexil.ko" "$out/vexil_pubif.ko" "$out/vexil_scenario.ko" "$out/vexil_faults.ko" || return
  nice tests/kernel/boot.sh amd64 "$kernel/bzImage" "$out/$1.initramfs" "$out/$1.log" "$out/$1.console" \
    "$seconds" printk.devkmsg=on log_buf_len=16M "${@:2}"
}
begin=$(date +%s)
boot starved &
starving=$!
boot plain
plain=$?
boot swept
swept=$?
boot faults kasan_multi_shot # elsewhere, the first report is one too many
faults=$?
wait "$starving"
starving=$?

# A guest that did not come to its end has told less than it should.
came_to_end() { # name, result of QEMU
  if [ "$2" -eq 0 ] && grep -aq 'vexil check: finished$' "$out/$1.log"; then
    ok "guest $1 came to its end, $(sed -n 's/.*vexil check: \(booted at [0-9.]*\).*/\1 s/p' "$out/$1.log")"
  else
    bad "guest $1 came to its end: result $2"
    tail -n 20 "$out/$1.log" "$out/$1.console"
  fi
}

# The lines of a guest's log between "begin NAME" and "end NAME"; nothing when one of them is missing.
part() { # guest, name
  awk -v begin="vexil check: begin $2" -v end="vexil check: end $2" '
    function is(line, mark) { return substr(line, length(line) - length(mark) + 1) == mark }
    is($0, begin) { on = 1; next }
    on && is($0, end) { for (i = 1; i <= count; i++) print text[i]; exit }
    on { text[++count] = $0 }' "$out/$1.log"
}

readonly alarms='BUG: |KASAN: |UBSAN: |Oops|WARNING: |general protection|vexil check: leak: (unreferenced|mapped)|double fault|Unable to handle|Kernel panic|leak detector disabled|detected stall|blocked for more than|vexil check: FAILED'
# What the kernel complains of, from standard input. Starved, it tells of memory that it did not give, with
# a trace of its calls, and the scenarios see results that nobody would expect.
complaints() { # "starved", or nothing
  if [ "${1:-}" = starved ]; then
    grep -aE "$alarms"
  else
    grep -aE "$alarms|Call Trace:|vexil scenario: FAILED"
  fi
}

# ---- Scenarios: nothing may be noticed

printf '\n== scenarios ==\n'
came_to_end plain "$plain"
came_to_end starved "$starving"

quiet() { # guest, part, "starved"
  local text found
  text=$(part "$1" "$2")
  shift
  found=$(complaints "${2:-}" <<<"$text")
  if [ -n "$text" ] && [ -z "$found" ]; then
    ok "$1: nothing is noticed, no memory is lost"
  else
    bad "$1: nothing is noticed, no memory is lost"
    head -n 10 <<<"$found" | cut -c 1-200
    # The first report whole.
    grep -aE -m 1 -A 40 "$alarms" <<<"$text" | cut -c 1-160
  fi
}
passes() { # guest, part
  local told
  told=$(part "$1" "$2" | sed -n 's/.*vexil scenario: \(failed [0-9]*\|end [0-9]* checks\)$/\1/p' | paste -sd ' ')
  case $told in
    'failed 0 end '[1-9]*' checks') ok "$2: every check of the scenarios holds: ${told#failed 0 end }" ;;
    *) bad "$2: every check of the scenarios holds: ${told:-nothing is told}" ;;
  esac
}
starves() { # how much
  local refusals
  refusals=$(part starved starved | sed -n "s/.*vexil check: starved $1: refused \([1-9][0-9]*\) in \([0-9]*\) runs.*/\1 allocations refused, runs: \2/p")
  if [ -n "$refusals" ]; then
    ok "starved $1: $refusals"
  else
    bad "starved $1: no allocation was refused"
  fi
}
passes plain plain
quiet plain plain
starves 1-in-2
starves 1-in-20
starves 1-in-500
if [ "$(part starved starved | grep -ac 'vexil scenario: end')" -gt 0 ]; then
  ok "starved: the scenarios came to their end at least once"
else
  bad "starved: the scenarios came to their end at least once"
fi
quiet starved starved starved
passes starved again
quiet starved again

printf '\n== every slot, each allocation refused in turn ==\n'
came_to_end swept "$swept"
sum=$(part swept swept | sed -n 's/.*vexil sweep: \([0-9]* slots, .* refusals, failed [0-9]*\)$/\1/p')
case $sum in
  '57 slots, '[1-9]*' ask for memory, '[1-9]*' refusals, failed 0') ok "swept: ${sum%, failed 0}" ;;
  *) bad "swept: ${sum:-nothing is told}" ;;
esac
refusals=$(part swept swept | sed -n 's/.*vexil check: swept: refused \([1-9][0-9]*\), result 0$/\1/p')
if [ -n "$refusals" ]; then ok "swept: $refusals allocations refused in all"; else bad "swept: no allocation was refused"; fi
quiet swept swept starved

# ---- Faults: each must be noticed, by what and where

printf '\n== faults, which must be noticed ==\n'
came_to_end faults "$faults"
noticed() { # fault, what a line of its part says, and another, and so on
  local fault=$1 text wanted
  shift
  text=$(part faults "$fault")
  for wanted in '' "$@"; do
    if ! complaints <<<"$text" >/dev/null || ! grep -aqE "$wanted" <<<"$text"; then
      bad "$fault is noticed${wanted:+: $wanted}"
      cut -c 1-160 <<<"$text" | head -n 20
      return
    fi
  done
  ok "$fault is noticed"
}

text=$(part faults none)
if [ -n "$text" ] && ! complaints <<<"$text" >/dev/null; then
  ok "nothing is noticed where there is no fault"
else
  bad "nothing is noticed where there is no fault"
  complaints <<<"$text"
fi
noticed heap_overrun 'KASAN: slab-out-of-bounds in fault_heap_overrun\+'
noticed mapped_overrun 'KASAN: vmalloc-out-of-bounds in fault_mapped_overrun\+'
noticed stack_overrun 'KASAN: stack-out-of-bounds in fault_stack_overrun\+'
noticed global_overrun 'KASAN: global-out-of-bounds in fault_global_overrun\+'
noticed use_after_free 'KASAN: use-after-free in fault_use_after_free\+'
noticed index 'UBSAN: array-index-out-of-bounds in .*/faults\.cpp:'
noticed shift 'UBSAN: shift-out-of-bounds in .*/faults\.cpp:'
noticed bool 'UBSAN: invalid-load in .*/faults\.cpp:'
noticed misaligned 'UBSAN: misaligned-access in .*/faults\.cpp:'
noticed leak 'leak: unreferenced object .*size 64\)' 'leak: .*fault_leak\+' 'leak: mapped block .*fault_mapped_leak\+'
refusals=$(part faults starve | sed -n 's/.*refused \([1-9][0-9]*\) small blocks and \([1-9][0-9]*\) large ones of.*/\1 + \2/p')
if [ -n "$refusals" ]; then
  ok "allocations are refused where asked for: $refusals of 50 + 50"
else
  bad "allocations are refused where asked for"
  part faults starve | tail -n 5
fi
refusals=$(part faults fed | sed -n 's/.*refused \([0-9]*\) small blocks and \([0-9]*\) large ones of.*/\1 + \2/p')
if [ "$refusals" = "0 + 0" ]; then
  ok "no allocation is refused elsewhere"
else
  bad "no allocation is refused elsewhere: ${refusals:-nothing is told}"
fi

took "all guests" "$begin"
sed -n 's/.*vexil check: \([a-z0-9 -]*\): .*from \([0-9.]*\) to \([0-9.]*\)$/\2 \3 \1/p' "$out/plain.log" "$out/starved.log" "$out/swept.log" |
  awk '{ printf "        %s:", $3; for (i = 4; i <= NF; i++) printf " %s", $i; printf " %.1f s\n", $2 - $1 }'
left=$(sed -n 's/.* insmod ([0-9]*) used greatest stack depth: \([0-9]*\) bytes left.*/\1/p' "$out/plain.log" "$out/starved.log" |
  sort -n | head -n 1)
if [ -n "$left" ]; then
  echo "        stack used by the scenarios, instrumented, with the system call: $((stack_bytes - left)) of $stack_bytes bytes"
fi
end
