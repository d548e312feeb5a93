#!/usr/bin/env bash
# Builds the release and m32 configurations, runs the benchmark programs of each with
# JSON output (into build/<preset>/bench/, one file per benchmark family), and prints one
# table of the quality goals: each goal, the measured value per configuration, its ratio
# to the goal and whether it passes. natsim itself is measured end to end on generated
# scenarios (scripts/bench_natsim.py; NATSIM_BENCH_RULES rules, default 100000).
# `scripts/bench.sh release` (or m32) measures one configuration only; on a kernel that
# cannot run 32-bit programs, m32 is left out with a notice.
set -euo pipefail
cd "$(dirname "$0")/.."

source scripts/runs32.sh
scripts/setup.sh
presets=( "${@:-release}" )
[ $# -eq 0 ] && presets=( release m32 )
# m32's programs cannot run on a kernel without 32-bit support: measure release alone.
if [ $# -eq 0 ] && ! runs_32bit; then
   echo "=== m32: not measured: this kernel does not run 32-bit programs"
   presets=( release )
fi
# Repetitions per benchmark; the table takes the fastest (least CPU time).
reps="${BENCH_REPETITIONS:-3}"
for preset in "${presets[@]}"; do
   echo "=== $preset"
   cmake --preset "$preset" >/dev/null
   cmake --build --preset "$preset" --target natbench natbench_memory natsim
   out="build/$preset/bench"
   mkdir -p "$out"
   rm -f "$out"/natbench*.json
   # One process per family (a goal's benchmark with its Floor and Publish variants), so
   # that the heap one family leaves behind does not shape the next one's timings.
   families=$("build/$preset/bin/natbench" --benchmark_list_tests |
      sed -e 's|/.*||' -e 's/\(Floor\|Publish\)$//' | sort -u)
   for family in $families; do
      "build/$preset/bin/natbench" --benchmark_repetitions="$reps" \
         --benchmark_filter="^${family}(Floor|Publish)?/" \
         --benchmark_out="$out/natbench-$family.json" --benchmark_out_format=json >/dev/null
   done
   "build/$preset/bin/natbench_memory" \
      --benchmark_out="$out/memory.json" --benchmark_out_format=json >/dev/null
   python3 scripts/bench_natsim.py "build/$preset/bin/natsim" "$out/natsim.json" \
      --rules "${NATSIM_BENCH_RULES:-100000}" --repetitions "$reps"
done
args=()
for preset in "${presets[@]}"; do args+=( "$preset=build/$preset/bench" ); done
python3 scripts/bench_summary.py "${args[@]}"
