#!/usr/bin/env bash
# Builds the libFuzzer targets with clang (address and undefined-behaviour sanitizers) in
# build/fuzz and runs each on its seed corpus for SECONDS seconds (default 600), JOBS at a time
# (default 2). Any finding (a crash, a sanitizer report, a failed check, a leak, a time-out)
# fails the script; the reproducer stays in build/fuzz/findings/TARGET. Executions per target
# are printed at the end.
#
#   bash scripts/fuzz.sh [SECONDS] [JOBS]      CI: bash scripts/fuzz.sh 60 2
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-600}"
jobs="${2:-2}"
build=build/fuzz
export CCACHE_BASEDIR="$PWD" CCACHE_NOHASHDIR=true

flags="-O1 -g -fsanitize=fuzzer-no-link,address,undefined -fno-sanitize-recover=all -fno-omit-frame-pointer"
cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug \
  -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_C_COMPILER=clang \
  -DCMAKE_CXX_FLAGS="$flags" \
  -DCMAKE_EXE_LINKER_FLAGS="-fsanitize=address,undefined" \
  -DSAGELY_BUILD_FUZZERS=ON -DSAGELY_BUILD_TESTS=OFF -DSAGELY_BUILD_APPS=OFF \
  -DSAGELY_BUILD_UI=OFF -DSAGELY_BUILD_BENCHMARKS=OFF -DSAGELY_INSTALL=OFF >/dev/null
cmake --build "$build" -j "$(nproc)"

targets=(fuzz-conversations fuzz-settings fuzz-formatter fuzz-stream-framing fuzz-json-schema
         fuzz-reply-openai fuzz-reply-anthropic fuzz-reply-gemini fuzz-reply-ollama)

# The kit's resources (the bundled guide) are found beside the executables.
run_one() {
  local target="$1" work="$build/findings/$1" corpus="$build/corpus/$1"
  rm -rf "$work"
  mkdir -p "$work" "$corpus"
  # New inputs go to a corpus of their own; the generated seeds are read as well.
  if ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
     "$build/bin/$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
       -max_len=65536 -print_final_stats=1 -artifact_prefix="$work/" \
       "$corpus" "$build/fuzz/seeds/$target" >"$work/log" 2>&1; then
    echo "$target: $(awk '/stat::number_of_executed_units/ {print $2}' "$work/log") executions, no finding"
  else
    echo "$target: FINDING (log and reproducer in $work)"
    tail -n 40 "$work/log"
    return 1
  fi
}

failed=0
running=0
pids=()
for target in "${targets[@]}"; do
  run_one "$target" &
  pids+=($!)
  running=$((running + 1))
  if [ "$running" -ge "$jobs" ]; then
    wait -n || failed=1
    running=$((running - 1))
  fi
done
while [ "$running" -gt 0 ]; do
  wait -n || failed=1
  running=$((running - 1))
done
exit "$failed"
