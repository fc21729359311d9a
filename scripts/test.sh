#!/usr/bin/env bash
# test.sh [PART...]: every test, from a fresh machine: a release build, one with address and
# undefined-behaviour checks, the threaded tests with thread checks, a short run of each fuzzer, what the
# tests cover, a few faults that they must notice, the module in Debian's kernels and in one that checks
# every access. PARTs are presets (release, asan, tsan), fuzz, coverage, mutation, kernel and checking.
# Ends with "N passed, N failed".
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

# A script that ends with "N passed, N failed".
run_script() { # command
  local log last
  log=$(mktemp)
  printf '\n== %s ==\n' "$*"
  "$@" 2>&1 | tee "$log"
  last=$(grep -E '^[0-9]+ passed, [0-9]+ failed$' "$log" | tail -n 1)
  rm -f "$log"
  if [ -z "$last" ]; then
    echo "$1 came to no end"
    broken=$((broken + 1))
    return
  fi
  passed=$((passed + ${last%% passed*}))
  last=${last#*, }
  failed=$((failed + ${last% failed}))
}

# A script whose result is all.
run_check() { # command
  printf '\n== %s ==\n' "$*"
  if "$@"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
}

run_kernel() {
  run_script scripts/kernel-test.sh
  for arch in amd64 arm64; do run_check examples/driver/run.sh "$arch"; done
}

if [ $# -gt 0 ]; then parts=("$@"); else parts=(release asan tsan fuzz coverage mutation kernel checking); fi
for part in "${parts[@]}"; do
  case $part in
    fuzz) run_script scripts/fuzz.sh --runs 3000 --seed 1 ;;
    coverage) run_script scripts/coverage.sh ;;
    mutation) run_script scripts/mutation.py --count 60 ;;
    kernel) run_kernel ;;
    checking) run_script scripts/check-kernel.sh ;;
    *) run "$part" ;;
  esac
done
scripts/check-tree.sh || broken=1

echo
echo "$passed passed, $((failed + broken)) failed"
[ $((failed + broken)) -eq 0 ]
