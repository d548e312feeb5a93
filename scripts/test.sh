#!/usr/bin/env bash
# Builds and tests every configuration (release, sanitize, m32) after installing what is
# missing. Stops at the first configuration that fails to build or has a failing test.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
presets=( "${@:-release}" )
[ $# -eq 0 ] && presets=( release sanitize m32 )
for preset in "${presets[@]}"; do
   echo "=== $preset"
   cmake --preset "$preset"
   cmake --build --preset "$preset"
   ctest --preset "$preset"
done
echo "=== all tests passed: ${presets[*]}"
