#!/usr/bin/env bash
# judge_test.sh: the judge sees what it must see. Prints one line: "ok ..." or "FAILED ...".
set -euo pipefail
export LC_ALL=C
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cases=0

wrong() {
  printf 'FAILED  the judge %s\n' "$1"
  cat "$work/said"
  exit 1
}
accepts() {
  cases=$((cases + 1))
  "$here/judge.sh" "$@" >"$work/said" 2>&1 || wrong "refuses: $*"
  grep -q '^ok  ' "$work/said" || wrong "does not say ok: $*"
}
refuses() { # what it must say, then the command
  local what=$1
  shift
  cases=$((cases + 1))
  if "$here/judge.sh" "$@" >"$work/said" 2>&1; then wrong "accepts: $*"; fi
  grep -q '^FAILED  ' "$work/said" || wrong "does not say FAILED: $*"
  grep -qF -- "$what" "$work/said" || wrong "does not say \"$what\": $*"
}

# A host's transcript, and the log of a guest that did the same twice.
printf '%s\n' 'vexil scenario: begin' 'a line' '---[1] tag=IP' '[1.5] is text' '' 'vexil scenario: end 3 checks' >"$work/host"
{
  echo '<5>[    0.000000] Linux version'
  echo '<4>[    0.100000] vexil: loading out-of-tree module taints kernel.'
  echo '<12>[    1.250000] vexil guest: begin at 1.20, Linux, x86_64'
  for turn in 1 2; do
    sed 's/^/<6>[    2.000000] /' "$work/host"
    echo "<12>[    3.000000] vexil guest: scenarios, 1 rounds: result 0, from 1 to $turn"
    echo '<12>[    3.000001] vexil guest: memory before 1 rounds: slab 1000 kB, 0 objects of ours, 2 blocks, mapped 500 kB in 9 areas'
  done | sed '$s/before/after/'
  echo '<12>[    3.900000] vexil guest: tainted 12288'
  echo '<12>[    4.000000] vexil guest: end'
} >"$work/log"

accepts transcript "$work/log" 1 "$work/host"
accepts transcript "$work/log" 2 "$work/host"
accepts faults "$work/log"
accepts ended "$work/log"
accepts memory "$work/log" '1 rounds' 0 0
accepts memory "$work/log" '1 rounds' 0 0 traced

# Records with the caller's number, and without a level.
sed -E 's/^<[0-9]+>(\[[^]]*\])/\1[   T87]/' "$work/log" >"$work/callers"
accepts transcript "$work/callers" 1 "$work/host"
accepts ended "$work/callers"

edit() { sed -E "$1" "$work/log" >"$work/edited"; cmp -s "$work/log" "$work/edited" && wrong "test: nothing edited by $1"; true; }
edit 's/a line$/another line/'
refuses '> another line' transcript "$work/edited" 1 "$work/host"
edit 's/a line$/a line /'
refuses '> a line ' transcript "$work/edited" 1 "$work/host"
edit '0,/a line/{/a line/d}'
refuses '< a line' transcript "$work/edited" 1 "$work/host"
accepts transcript "$work/edited" 2 "$work/host"
edit 's/(.*)a line$/&\n\1a line/'
refuses '> a line' transcript "$work/edited" 1 "$work/host"
edit 's/a line$/a\xffline/'
refuses 'differs' transcript "$work/edited" 1 "$work/host"
refuses 'differs' transcript "$work/log" 3 "$work/host"
edit 's/(.*)a line$/&\n\1tsc: Refined TSC clocksource calibration: 2599.973 MHz/'
accepts transcript "$work/edited" 1 "$work/host"
# shellcheck disable=SC2016
edit '/end 3 checks/,$d'
refuses '< vexil scenario: end 3 checks' transcript "$work/edited" 1 "$work/host"
: >"$work/empty"
refuses 'holds no transcript' transcript "$work/log" 1 "$work/empty"

alarm() {
  { sed '5q' "$work/log"; echo "<4>[    2.500000] $1"; sed '1,5d' "$work/log"; } >"$work/edited"
  refuses "$1" faults "$work/edited"
  refuses "$1" faults "$work/log" "$work/edited"
}
alarm 'BUG: kernel NULL pointer dereference, address: 0000000000000000'
alarm 'BUG kmalloc-64 (Tainted: G           OE): Right Redzone overwritten'
alarm 'kernel BUG at mm/slub.c:1!'
alarm 'WARNING: CPU: 0 PID: 1 at mm/util.c:596 kvmalloc_node+0x1/0x2'
alarm 'Oops: 0002 [#1] PREEMPT SMP NOPTI'
alarm 'Internal error: Oops: 0000000096000006 [#1] SMP'
alarm 'Call Trace:'
alarm 'Call trace:'
alarm 'UBSAN: array-index-out-of-bounds in a.c:1:2'
alarm 'Kernel panic - not syncing: Fatal exception'
alarm 'general protection fault, probably for non-canonical address'
alarm 'Unable to handle kernel paging request at virtual address 0000000000000008'
alarm 'INFO: possible circular locking dependency detected'
alarm 'INFO: task insmod:12 blocked for more than 120 seconds.'
alarm 'watchdog: BUG: soft lockup - CPU#0 stuck for 26s!'
alarm 'rcu: INFO: rcu_sched self-detected stall on CPU'
alarm 'refcount_t: underflow; use-after-free.'
alarm 'insmod: page allocation failure: order:4'
alarm 'vexil: Unknown symbol vexil_CBRegister (err -2)'
alarm 'Objects remaining in vexil on __kmem_cache_shutdown()'
refuses 'is empty' faults "$work/empty"
refuses 'is empty' faults "$work/log" "$work/empty"

edit 's/(after.*slab )1000/\11001/'
refuses 'slab 1000 -> 1001' memory "$work/edited" '1 rounds' 0 0
accepts memory "$work/edited" '1 rounds' 1 0
edit 's/(after.*) 0 objects/\1 1 objects/'
refuses 'objects of ours 0 -> 1' memory "$work/edited" '1 rounds' 99 99
edit 's/(before.*|after.*) 0 objects/\1 1 objects/'
refuses 'objects of ours 1 -> 1' memory "$work/edited" '1 rounds' 99 99
edit 's/(after.*) 2 blocks/\1 3 blocks/'
refuses 'blocks 2 -> 3' memory "$work/edited" '1 rounds' 99 99
edit 's/(after.*mapped )500/\1599/'
refuses 'mapped 500 -> 599' memory "$work/edited" '1 rounds' 99 98
accepts memory "$work/edited" '1 rounds' 99 99
edit 's/0 objects/untraced objects/'
accepts memory "$work/edited" '1 rounds' 0 0
refuses 'not traced' memory "$work/edited" '1 rounds' 0 0 traced
refuses 'no memory figures' memory "$work/log" '2 rounds' 0 0
edit '/memory after/d'
refuses 'no memory figures' memory "$work/edited" '1 rounds' 0 0

edit 's/tainted 12288/tainted 12800/'
refuses 'tainted: 12800' ended "$work/edited"
edit '/guest: tainted/d'
refuses 'tainted: not said' ended "$work/edited"
edit '/guest: end/d'
refuses 'did not come to its end' ended "$work/edited"
edit '0,/result 0/s/result 0/result 1/'
refuses 'scenarios failed' ended "$work/edited"
edit '/result 0/d'
refuses 'no scenario ran' ended "$work/edited"
edit 's/begin at .*/FAILED: cannot load vexil/'
refuses 'cannot load vexil' ended "$work/edited"

echo "ok      the judge: $cases cases, good logs and bad ones"
