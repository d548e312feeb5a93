#!/usr/bin/env bash
# Builds and tests every configuration (release, sanitize, m32) after installing what is
# missing, then fuzzes the scenario reader (scripts/fuzz.sh, FUZZ_SECONDS per target,
# default 60). Stops at the first configuration that fails to build, has a failing test
# or a fuzzer finding. `scripts/test.sh release fuzz` runs the named ones only. On a
# kernel that cannot run 32-bit programs, m32 is built but its tests are skipped, with a
# notice.
set -euo pipefail
cd "$(dirname "$0")/.."

source scripts/runs32.sh

scripts/setup.sh
skipped=()
presets=( "${@:-release}" )
[ $# -eq 0 ] && presets=( release sanitize m32 fuzz )
for preset in "${presets[@]}"; do
   echo "=== $preset"
   if [ "$preset" = fuzz ]; then
      scripts/fuzz.sh "${FUZZ_SECONDS:-60}"
      continue
   fi
   cmake --preset "$preset"
   cmake --build --preset "$preset"
   if [ "$preset" = m32 ] && ! runs_32bit; then
      echo "=== m32: built; its tests are skipped: this kernel does not run 32-bit programs"
      skipped+=( m32 )
      continue
   fi
   ctest --preset "$preset"
done
echo "=== all tests passed: ${presets[*]}${skipped:+ (tests not run: ${skipped[*]})}"
