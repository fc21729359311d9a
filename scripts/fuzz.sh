#!/usr/bin/env bash
# fuzz.sh [--runs N | --seconds S] [--seed N] [--jobs J] [--keep] [--build DIR] [NAME...]: fuzzers (all of
# tests/fuzz/*_fuzz.cpp, or those that are named), built with clang and address and
# undefined-behaviour checks, each from its kept inputs. By default 10 seconds each, two at a time.
#
#   --seconds 3600  a long run
#   --runs N        a fixed number of executions instead of a time
#   --seed N        the same way every time, where --runs says how far
#   --keep          then adds what reached new code to tests/fuzz/corpus/NAME, at most 128 KiB there
#
# What a run finds stays in out/fuzz/NAME/corpus, and the next run goes on from there; an input that
# failed stays beside it, as does the log. One that takes 10 seconds or 1 GiB has failed as well.
# Run it again with the fuzzer, which stands in the build directory, as in:
#   build-fuzz/vexil_fuzz_NAME out/fuzz/NAME/crash-...
# Ends with "N passed, N failed".
set -uo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

limit=-max_total_time=10
seed=0 # by the clock
jobs=2
keep=
build="build-fuzz"
names=()
while [ $# -gt 0 ]; do
  case $1 in
    --runs | --seconds | --seed | --jobs | --build)
      if [ $# -lt 2 ]; then
        echo "fuzz.sh: $1 needs a value" >&2
        exit 2
      fi
      case $1 in
        --runs) limit=-runs=$2 ;;
        --seconds) limit=-max_total_time=$2 ;;
        --seed) seed=$2 ;;
        --jobs) jobs=$2 ;;
        --build) build=$2 ;;
      esac
      shift
      ;;
    --keep) keep=1 ;;
    -*)
      echo "fuzz.sh: unknown option $1" >&2
      exit 2
      ;;
    *) names+=("$1") ;;
  esac
  shift
done
if [ ${#names[@]} -eq 0 ]; then
  for source in tests/fuzz/*_fuzz.cpp; do
    name=${source##*/}
    names+=("${name%_fuzz.cpp}")
  done
fi

export ASAN_OPTIONS=detect_leaks=0:malloc_context_size=10:quarantine_size_mb=32:detect_stack_use_after_return=1
export UBSAN_OPTIONS=print_stacktrace=1 # leaks are counted by the fuzzers themselves
limits=(-timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=256 -max_len=4096)

targets=(vexil_fuzz_seeds)
for name in "${names[@]}"; do
  if [ ! -f "tests/fuzz/${name}_fuzz.cpp" ]; then
    echo "fuzz.sh: there is no fuzzer $name" >&2
    exit 2
  fi
  targets+=("vexil_fuzz_$name")
done
mkdir -p out/fuzz
if ! { cmake --preset fuzz -B "$build" && cmake --build "$build" -j"$jobs" --target "${targets[@]}"; } >out/fuzz/build.log 2>&1; then
  tail -n 60 out/fuzz/build.log
  echo "the fuzzers' build failed"
  echo "0 passed, ${#names[@]} failed"
  exit 1
fi
"$build/vexil_fuzz_seeds" out/fuzz/seeds || exit 1

run() { # name
  local name=$1 folder=out/fuzz/$1 options=() corpora=() file
  local kept=tests/fuzz/corpus/$name
  mkdir -p "$folder/corpus"
  corpora=("$folder/corpus")
  for file in "$kept" "out/fuzz/seeds/$name"; do
    [ -d "$file" ] && corpora+=("$file")
  done
  [ -f "tests/fuzz/$name.dict" ] && options+=("-dict=tests/fuzz/$name.dict")
  [ -f "tests/fuzz/$name.options" ] && mapfile -t -O "${#options[@]}" options <"tests/fuzz/$name.options"
  "$build/vexil_fuzz_$name" "${limits[@]}" "${options[@]}" "$limit" -seed="$seed" -print_final_stats=1 \
    -artifact_prefix="$folder/" "${corpora[@]}" >"$folder/log" 2>&1
}

report() { # name, how it ended
  local log=out/fuzz/$1/log executions rate edges inputs
  executions=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -n 1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -n 1)
  edges=$(grep -a -o ' cov: [0-9]*' "$log" | tail -n 1)
  inputs=$(grep -a -o ' corp: [0-9]*' "$log" | tail -n 1)
  printf '%-10s %12s %7s %7s %7s\n' "$1" "${executions:-0}" "${edges##* }" "${inputs##* }" "${rate:-0}"
  [ "$2" -eq 0 ] && [ "${executions:-0}" -gt 0 ] && return 0
  grep -a -E '^fuzz: |ERROR: |runtime error: |Test unit written to' "$log" | head -n 6
  grep -a -E '^ *#[0-9]+ .* in ' "$log" | grep -a -v -E 'fuzzer::|libc|sanitizer' | head -n 8
  echo "$1 FAILED: out/fuzz/$1/log"
  return 1
}

# What covers the most code in the fewest bytes. Files with speaking names stay.
keep_inputs() { # name
  local name=$1 kept=tests/fuzz/corpus/$1 work=out/fuzz/$1/keep file size named bound=131072
  mkdir -p "$kept"
  rm -rf "$work"
  mkdir -p "$work/old" "$work/new"
  find "$kept" -type f -regextype posix-extended -regex '.*/[0-9a-f]{40}' -exec mv {} "$work/old/" \;
  cp -r "$kept/." "$work/new/"
  [ -d "out/fuzz/seeds/$name" ] && cp -r "out/fuzz/seeds/$name/." "$work/new/"
  if ! "$build/vexil_fuzz_$name" "${limits[@]}" -max_len=65536 -merge=1 -use_counters=0 \
    "$work/new" "$work/old" "out/fuzz/$name/corpus" >"$work/log" 2>&1; then
    mv "$work"/old/* "$kept/" 2>/dev/null
    echo "$name: its inputs could not be merged: $work/log"
    return 1
  fi
  # The smallest first, while there is room.
  named=$(find "$kept" "out/fuzz/seeds/$name" -type f -exec sha1sum {} + 2>/dev/null)
  while read -r size file; do
    case $named in *"${file##*/}"*) continue ;; esac # an input's hash is its name
    bound=$((bound - size))
    [ $bound -lt 0 ] && break
    cp "$file" "$kept/"
  done < <(find "$work/new" -type f -regextype posix-extended -regex '.*/[0-9a-f]{40}' -printf '%s %p\n' | sort -n)
  echo "$name: $(find "$kept" -type f | wc -l) inputs kept, $(du -sb "$kept" | cut -f1) bytes"
}

printf '%-10s %12s %7s %7s %7s\n' fuzzer executions edges corpus exec/s
passed=0
failed=0
running=() # process:name
finish_one() {
  local ended code=0 still=() entry name=
  wait -n -p ended
  code=$?
  for entry in "${running[@]}"; do
    if [ "${entry%%:*}" = "$ended" ]; then name=${entry#*:}; else still+=("$entry"); fi
  done
  running=("${still[@]}")
  if report "$name" "$code"; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
}
for name in "${names[@]}"; do
  [ ${#running[@]} -ge "$jobs" ] && finish_one
  run "$name" &
  running+=("$!:$name")
done
while [ ${#running[@]} -gt 0 ]; do finish_one; done

if [ -n "$keep" ]; then
  for name in "${names[@]}"; do keep_inputs "$name" || failed=$((failed + 1)); done
fi
echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
