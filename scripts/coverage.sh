#!/usr/bin/env bash
# coverage.sh: how much of the library its tests run, in lines and branches, per file and in all.
#
# Builds the library's tests with the preset "coverage" (gcc's --coverage, no optimisation), runs
# them, and reads what gcov counted. Fails below 97 % of the lines or 90 % of the branches, and when
# docs/coverage.md does not explain exactly what is not covered. BUILD and JOBS may be set: where to
# build, and how many processes to use. Ends with "N passed, N failed".
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."
build=${BUILD:-build-coverage}
jobs=${JOBS:-$(nproc)}

give_up() { # reason
  echo "coverage.sh: $1" >&2
  echo "0 passed, 1 failed"
  exit 1
}

scripts/setup.sh || give_up "the setup failed"
log=$(mktemp)
trap 'rm -f "$log"*' EXIT
if ! { cmake --preset coverage -B "$build" && cmake --build "$build" --target vexil_tests -j"$jobs"; } >"$log" 2>&1; then
  tail -n 60 "$log"
  give_up "the build failed"
fi

# Counts of earlier runs would be added to; those of the processes started here are, and should be.
find "$build" -name '*.gcda' -delete
running=()
for ((i = 0; i < jobs; ++i)); do
  GTEST_TOTAL_SHARDS=$jobs GTEST_SHARD_INDEX=$i "$build/tests/vexil_tests" --gtest_brief=1 >"$log.$i" 2>&1 &
  running+=($!)
done
broken=
for ((i = 0; i < jobs; ++i)); do
  wait "${running[i]}" || broken+=" $i"
  tail -n 2 "$log.$i"
done
if [ -n "$broken" ]; then
  for i in $broken; do grep -v '^\[==' "$log.$i" | head -n 60; done
  give_up "tests failed: what they ran counts for nothing"
fi

scripts/coverage.py "$build" --list docs/coverage.md "$@"
