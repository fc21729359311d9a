#!/usr/bin/env bash
# judge.sh: what a guest's log says. Each command prints one line, "ok ..." or "FAILED ..." with what
# was seen below it, and succeeds or fails accordingly.
#
#   judge.sh transcript LOG NUMBER EXPECTED
#       the NUMBERth transcript in the kernel's log LOG is EXPECTED, line for line
#   judge.sh faults LOG...
#       no alarm of the kernel in any of the files
#   judge.sh memory LOG NAME SLAB_KB MAPPED_KB [traced]
#       between "before NAME" and "after NAME" no more growth than that, and no large block more;
#       afterwards no object of ours; with "traced", objects must have been counted
#   judge.sh ended LOG
#       the guest came to its end and nothing in it failed
#   judge.sh module MODULE SYMVERS FUNCTIONS
#       vexil.ko exports the functions of the list, takes nothing from outside that it should not,
#       and says what it is
#   judge.sh code MODULE CONFIG
#       its code has what the kernel with that configuration protects itself with, and is known to
#       its unwinder
set -euo pipefail
export LC_ALL=C

ok() {
  printf 'ok      %s\n' "$*"
  exit 0
}

failed() {
  printf 'FAILED  %s\n' "$*"
  exit 1
}

usage() {
  sed -n 's/^#   \(judge.sh .*\)/\1/p' "${BASH_SOURCE[0]}" >&2
  exit 2
}

# The text of records: without level, time and, where the kernel adds it, caller.
texts() { # log
  sed -E 's/^(<[0-9]+>)?\[ *[0-9]+\.[0-9]+\](\[ *[TC][0-9]+\])? ?//' "$1"
}

# What the kernel says on its own account, late after its start or on a busy machine.
readonly chatter='^(tsc|clocksource|sched_clock|workqueue): |^random: crng|^hrtimer: interrupt took|^perf: interrupt took'

# From "begin" to "end N checks", the NUMBERth time.
transcript() { # number; reads texts
  awk -v number="$1" '
    $0 == "vexil scenario: begin" { seen++ }
    seen == number { print }
    seen == number && /^vexil scenario: end [0-9]+ checks$/ { exit }'
}

# What kernels say when something is wrong. Taints by modules built elsewhere are no fault.
readonly alarms='\bBUG\b|\bWARNING\b|\bOops\b|Call [Tt]race|UBSAN|KASAN|KFENCE|\bSLUB\b.*corrupt|Kernel panic|general protection fault'\
'|Unable to handle kernel|possible (circular|recursive|irq lock)|INFO: (possible|task|rcu|suspicious|trying)|suspicious RCU'\
'|soft lockup|hard LOCKUP|detected stall|refcount_t:|scheduling while atomic|sleeping function called|stack-protector'\
'|unreferenced object|new suspected memory leaks|page allocation failure|Out of memory|segfault|nobody cared'\
'|Unknown symbol|disagrees about version|version magic|Redzone overwritten|Poison overwritten|Objects remaining'

# What a module may take from outside, one pattern for whole names.
boundary='_printk|kstrto(ull|ll)|kvfree|kvmalloc_node|vexil_CBRegister'
bytes_and_text='mem(chr|cmp|cpy|move|set)|str(chr|cmp|cpy|len|ncmp|ncpy)|sprintf'
support='__fentry__|_mcount|__stack_chk_(fail|guard)|__x86_(return_thunk|indirect_(thunk|call_thunk|jump_thunk)_[a-z0-9]+)|__tracepoint_.*'
readonly boundary bytes_and_text support

[ $# -ge 2 ] || usage
command=$1
shift
case $command in
  transcript)
    [ $# -eq 3 ] || usage
    lines=$(wc -l <"$3")
    [ "$lines" -gt 2 ] || failed "$3 holds no transcript"
    if ! difference=$(diff --text <(transcript 1 <"$3") <(texts "$1" | grep -avE "$chatter" | transcript "$2")); then
      failed "transcript $2 differs from the host's (< host, > guest):
$(printf '%s\n' "$difference" | cut -c 1-240 | head -n 20)"
    fi
    ok "transcript $2: $(transcript 1 <"$3" | wc -l) lines as on the host, $(sed -n \
      's/^vexil scenario: end \([0-9]*\) checks$/\1/p' "$3") checks" ;;
  faults)
    for log in "$@"; do [ -s "$log" ] || failed "$log is empty"; done
    if seen=$(grep -aHnE "$alarms" "$@" | sed -E 's|^[^:]*/||' | head -n 20); then
      failed "the kernel reports:
$seen"
    fi
    ok "no alarm of the kernel in $(cat "$@" | wc -l) lines" ;;
  memory)
    if [ $# -lt 4 ] || [ $# -gt 5 ]; then usage; fi
    figures=$(texts "$1" | sed -nE "s/^vexil guest: memory (before|after) $2: slab ([0-9]+) kB, ([0-9]+|untraced) objects of ours, ([0-9]+) blocks, mapped ([0-9]+) kB in ([0-9]+) areas\$/\1 \2 \3 \4 \5 \6/p")
    printf '%s\n' "$figures" | awk -v name="$2" -v slab="$3" -v mapped="$4" -v traced="${5:-}" '
      $1 == "before" { seen++; for (i = 2; i <= 6; i++) was[i] = $i }
      $1 == "after" { seen++; for (i = 2; i <= 6; i++) is[i] = $i }
      END {
        if (seen != 2) { print "FAILED  no memory figures before and after " name; exit 1 }
        if (traced != "" && is[3] !~ /^[0-9]/) { print "FAILED  objects were not traced over " name; exit 1 }
        bad = is[2] - was[2] > slab || is[3] + 0 > 0 || is[4] > was[4] || is[5] - was[5] > mapped
        printf "%s  memory over %s: slab %d -> %d kB, objects of ours %s -> %s, blocks %d -> %d, mapped %d -> %d kB\n",
          bad ? "FAILED" : "ok    ", name, was[2], is[2], was[3], is[3], was[4], is[4], was[5], is[5]
        exit bad
      }' ;;
  ended)
    [ $# -eq 1 ] || usage
    if seen=$(texts "$1" | grep -aE '^vexil guest: FAILED'); then failed "in the guest: $seen"; fi
    texts "$1" | grep -aqx 'vexil guest: end' || failed "the guest did not come to its end"
    rounds=$(texts "$1" | grep -acE '^vexil guest: scenarios, .*: result ' || true)
    bad=$(texts "$1" | grep -aE '^vexil guest: scenarios, ' | grep -avE ': result 0,' || true)
    [ "$rounds" -gt 0 ] || failed "no scenario ran in the guest"
    [ -z "$bad" ] || failed "scenarios failed in the guest: $bad
$(texts "$1" | grep -a '^vexil scenario: FAILED' | sort -u | head -n 20)"
    # Built elsewhere, and not signed: all that may be held against the kernel.
    tainted=$(texts "$1" | sed -nE 's/^vexil guest: tainted ([0-9]+)$/\1/p')
    if [ -z "$tainted" ] || [ $((tainted & ~12288)) -ne 0 ]; then
      failed "the kernel is tainted: ${tainted:-not said}"
    fi
    ok "the guest came to its end, $rounds runs of the scenarios held" ;;
  module)
    [ $# -eq 3 ] || usage
    exported=$(awk -F '\t' '$3 ~ /(^|\/)vexil$/ { print $2 }' "$2" | sort)
    listed=$(grep -vE '^(#|$|(init|cleanup)_module$)' "$3" | sort)
    [ -n "$listed" ] || failed "$3 names no function"
    [ "$exported" = "$listed" ] || failed "what vexil.ko exports is not what $3 lists:
$(diff <(printf '%s\n' "$listed") <(printf '%s\n' "$exported"))"
    defined=$("${NM:-nm}" "$1" | awk '$2 == "T" { print $3 }')
    for name in init_module cleanup_module; do
      printf '%s\n' "$defined" | grep -qx "$name" || failed "vexil.ko has no $name"
    done
    taken=$("${NM:-nm}" -u "$1" | awk '{ print $NF }' | grep -vxE "$boundary|$bytes_and_text|$support" || true)
    [ -z "$taken" ] || failed "vexil.ko takes from outside: ${taken//$'\n'/ }"
    for key in description:. version:[0-9.]+ 'license:Dual MIT/GPL' depends:vexil_pubif; do
      modinfo -F "${key%%:*}" "$1" | grep -qE "^${key#*:}" || failed "modinfo of vexil.ko: no ${key%%:*} as wanted"
    done
    ok "vexil.ko $(modinfo -F version "$1") exports $(printf '%s\n' "$listed" | wc -l) functions, takes the boundary only, $(modinfo -F license "$1")" ;;
  code)
    [ $# -eq 2 ] || usage
    has() { grep -qx "CONFIG_$1=y" "$config"; }
    config=$2
    listing=$("${OBJDUMP:-objdump}" -d --no-show-raw-insn "$1")
    sections=$("${READELF:-readelf}" -SW "$1")
    functions=$(printf '%s\n' "$listing" | grep -cE '^[0-9a-f]+ <.*>:$' || true)
    [ "$functions" -gt 100 ] || failed "$1 holds $functions functions only"
    protected=
    none() { # what, pattern of instructions
      local seen
      seen=$(printf '%s\n' "$listing" | grep -E -- "$2" | head -n 5 || true)
      [ -z "$seen" ] || failed "$1 in $module:
$seen"
    }
    module=$(basename "$1")
    if has RETPOLINE || has MITIGATION_RETPOLINE; then
      none "an indirect jump or call without retpoline" '\s(call|jmp) +\*'
      protected="$protected retpolines"
    fi
    if has RETHUNK || has MITIGATION_RETHUNK; then
      none "a return without thunk" '\sret[lq]?\b'
      protected="$protected return-thunks"
    fi
    if has X86_KERNEL_IBT; then
      printf '%s\n' "$listing" | grep -q endbr64 || failed "no landing place for indirect calls"
      protected="$protected endbr64"
    fi
    if has UNWINDER_ORC; then
      printf '%s\n' "$sections" | grep -q ' \.orc_unwind_ip ' || failed "no unwind table"
      protected="$protected unwind-table"
    fi
    if has ARM64_PTR_AUTH_KERNEL; then
      bare=$(printf '%s\n' "$listing" | awk -F '\t' '
        /^[0-9a-f]+ <.*>:$/ { if (saves && !signs) bare++; sign += signs; saves = signs = 0 }
        $2 == "stp" && $3 ~ /^x29, x30,/ { saves = 1 }
        $2 == "paciasp" { signs = 1 }
        END { print bare + (saves && !signs), sign + signs }')
      if [ "${bare% *}" -ne 0 ] || [ "${bare#* }" -le 100 ]; then
        failed "functions that keep their return address without and with signature: $bare"
      fi
      protected="$protected signed-returns"
    fi
    if has STACKPROTECTOR_STRONG; then
      "${NM:-nm}" -u "$1" | grep -q ' __stack_chk_fail$' || failed "no stack protector"
      protected="$protected stack-protector"
    fi
    [ -n "$protected" ] || failed "$config names no protection that is known here"
    ok "$module: $functions functions with$protected" ;;
  *) usage ;;
esac
