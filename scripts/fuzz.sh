#!/usr/bin/env bash
# Builds the libFuzzer targets (the fuzz preset: clang, AddressSanitizer and
# UndefinedBehaviorSanitizer) and runs each for a bounded time, default 60 seconds:
# `scripts/fuzz.sh [seconds]`. Each target starts from its seed corpus under
# fuzz/corpus/ (the scenario target also from examples/) and keeps what it finds in
# build/fuzz/corpus/<target>/. A crash stops the script with a non-zero status and
# leaves the input as build/fuzz/crash-<target>-*; turn it into a regression case of a
# normal test.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${1:-60}"
scripts/setup.sh
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz

export ASAN_OPTIONS="halt_on_error=1:abort_on_error=1:detect_leaks=1"
export UBSAN_OPTIONS="halt_on_error=1:print_stacktrace=1"
# run TARGET OPTIONS SEEDS: libFuzzer adds what it finds to the first corpus folder,
# build/fuzz/corpus/TARGET; the seed folders after it are only read.
run() {
   local target="$1" options="$2" seeds="$3"
   local work="build/fuzz/corpus/$target"
   mkdir -p "$work"
   echo "=== fuzz $target for ${seconds}s"
   # shellcheck disable=SC2086 # options and seeds are word lists
   "build/fuzz/bin/fuzz_$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -print_final_stats=1 -artifact_prefix="build/fuzz/crash-$target-" $options \
      "$work" $seeds 2>"build/fuzz/$target.log" ||
      { tail -n 60 "build/fuzz/$target.log"; echo "fuzz: $target failed"; return 1; }
   grep -E "^stat::number_of_executed_units|^stat::peak_rss_mb" "build/fuzz/$target.log" || true
}
# -max_len: scenarios are bigger than libFuzzer's default of 4096 bytes allows.
run scenario "-max_len=16384 -dict=fuzz/scenario.dict" \
   "fuzz/corpus/scenario examples examples/faults"
run record_text "-max_len=64" "fuzz/corpus/record_text"
echo "=== fuzzing found nothing in ${seconds}s per target"
