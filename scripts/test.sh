#!/usr/bin/env bash
# test.sh [PRESET...]: every test, from a fresh machine: a release build, one with address and
# undefined-behaviour checks, and the threaded tests with thread checks. Ends with
# "N passed, N failed".
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
scripts/setup.sh || exit 1

passed=0
failed=0
broken=0
run() { # preset
  local log target=all only=.
  # Other tests have one thread, and would only take their time.
  if [ "$1" = tsan ]; then target=vexil_thread_tests only='^threads\.'; fi
  log=$(mktemp)
  printf '\n== %s ==\n' "$1"
  if cmake --preset "$1" >"$log" 2>&1 && cmake --build --preset "$1" --target "$target" -j"$(nproc)" >>"$log" 2>&1; then
    ctest --preset "$1" -R "$only" -j"$(nproc)" 2>&1 | tee "$log" | grep -vE '^ *(Start +[0-9]+:|[0-9]+/[0-9]+ Test .* Passed )'
    local total bad
    total=$(sed -n 's/.*tests failed out of \([0-9]*\).*/\1/p' "$log")
    bad=$(sed -n 's/.* \([0-9]*\) tests failed out of .*/\1/p' "$log")
    if [ -z "$total" ] || [ "$total" -eq 0 ]; then
      echo "no test ran"
      broken=1
    else
      passed=$((passed + total - bad))
      failed=$((failed + bad))
    fi
  else
    tail -n 60 "$log"
    echo "the $1 build failed"
    broken=1
  fi
  rm -f "$log"
}

if [ $# -gt 0 ]; then presets=("$@"); else presets=(release asan tsan); fi
for preset in "${presets[@]}"; do run "$preset"; done
scripts/check-tree.sh || broken=1

echo
echo "$passed passed, $((failed + broken)) failed"
[ $((failed + broken)) -eq 0 ]
