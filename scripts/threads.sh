#!/usr/bin/env bash
# threads.sh [--triggers N]: eight handlers in eight threads over one rule context, N triggers in all
# (4,000,000 without a number), and maps and rule contexts of their own in eight threads, in the build
# with thread checks. Every answer is compared with that of the same call made alone; the run says how
# many were. Minutes for millions. Ends with "N passed, N failed"; a race is a failure.
set -uo pipefail
export LC_ALL=C
cd "$(dirname "${BASH_SOURCE[0]}")/.." || exit 1

triggers=4000000
while [ $# -gt 0 ]; do
  case $1 in
    --triggers) triggers=${2-} && shift ;;
    --triggers=*) triggers=${1#*=} ;;
    -h | --help) sed -n '2,5s/^# //p' "$0"; exit 0 ;;
    *) echo "threads.sh: what is $1?" >&2; exit 2 ;;
  esac
  shift
done
case $triggers in
  '' | *[!0-9]*) echo "threads.sh: --triggers takes a number" >&2; exit 2 ;;
esac
if [ "$triggers" -lt 10000 ]; then
  echo "threads.sh: fewer than 10000 triggers show nothing" >&2
  exit 2
fi

log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { cmake --preset tsan && cmake --build --preset tsan --target vexil_thread_tests -j"$(nproc)"; } >"$log" 2>&1; then
  tail -n 60 "$log"
  echo "the tsan build failed"
  echo "0 passed, 1 failed"
  exit 1
fi

began=$SECONDS
VEXIL_THREAD_TRIGGERS=$triggers build-tsan/tests/vexil_thread_tests 2>&1 | tee "$log" |
  grep --line-buffered -vE '^\[( RUN|---|===)|^$'
status=${PIPESTATUS[0]}
passed=$(grep -c '^\[       OK \]' "$log")
failed=$(grep -c '^\[  FAILED  \] .*([0-9]* ms)$' "$log")
# A race ends the program: whatever had not ended by then has failed.
if [ "$status" -ne 0 ] && [ "$failed" -eq 0 ]; then failed=1; fi

echo
sum() { # field before this word
  awk -v word="$1" '{ for (i = 2; i <= NF; ++i) if (index($i, word) == 1) { n += $(i - 1); break } } END { print n + 0 }' <(grep ' answers compared,' "$log")
}
echo "$(sum triggers) triggers, $(sum answers) answers compared, $(sum different) different," \
  "$(grep -c 'WARNING: ThreadSanitizer' "$log") races, $((SECONDS - began)) s"
echo "$passed passed, $failed failed"
[ "$passed" -gt 0 ] && [ "$failed" -eq 0 ]
