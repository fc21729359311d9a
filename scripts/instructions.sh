#!/usr/bin/env bash
# instructions.sh: what parsing, building and loading cost, in instructions counted by callgrind.
# Counts are the same on every run of one build; times are not.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup.sh
cmake -B build-bench -DCMAKE_BUILD_TYPE=Release -DVEXIL_BENCH=ON -DVEXIL_TESTS=OFF >/dev/null
cmake --build build-bench -j"$(nproc)" --target cost | tail -n 1

count() { # section, arguments of the cost program
  valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect="measured_$1" \
    build-bench/bench/cost "$@" 2>&1 >/dev/null | sed -n 's/.*refs: *//p' | tr -d ,
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.2f", a / b }'; }

parse=$(count parse examples/tv)
build=$(count build examples/tv)
printf '%-34s %14s\n' "example: parse" "$parse" "example: parse and build" "$build"
printf '%-34s %14s   (at most 2.0)\n' "  ratio" "$(ratio "$build" "$parse")"

printf '\n%-34s %14s %8s\n' "made-up documents: blocks" "build" "growth"
before=
for blocks in 32 64 128 256 512; do
  now=$(count build made-up "$blocks")
  printf '%-34s %14s %8s\n' "  $blocks" "$now" "${before:+$(ratio "$now" "$before")}"
  before=$now
done

printf '\n%-34s %14s %8s\n' "made-up rules: alternatives" "compile" "growth"
before=
for side in 8 16 32 64; do
  now=$(count compile made-up-rules "$side")
  printf '%-34s %14s %8s\n' "  $((side * side))" "$now" "${before:+$(ratio "$now" "$before")}"
  before=$now
done

# A state of the example: every rule is triggered. An alternative costs three nodes and a record,
# each checked, and the compare; what lies above that is the price of cases, outcomes and children.
state='Input:HDMI1;Timing:2160p60;Luma:812'
trigger=$(count trigger examples/tv "$state")
looked=$(build-bench/bench/cost trigger examples/tv "$state" 2>/dev/null | sed -n 's/^alternatives \([0-9]*\) .*/\1/p')
printf '\n%-34s %14s\n' "example: trigger every rule" "$trigger" "  alternatives looked at" "$looked" \
  "  instructions for each" "$(ratio "$trigger" "$looked")"
