#!/usr/bin/env bash
# Builds and tests every configuration (release, sanitize, m32) after installing what is
# missing, then fuzzes the scenario reader (scripts/fuzz.sh, FUZZ_SECONDS per target,
# default 60). Stops at the first configuration that fails to build, has a failing test
# or a fuzzer finding. `scripts/test.sh release fuzz` runs the named ones only.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
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
   ctest --preset "$preset"
done
echo "=== all tests passed: ${presets[*]}"
