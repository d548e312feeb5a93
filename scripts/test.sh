#!/usr/bin/env bash
# Builds and tests every configuration (release, sanitize, m32) after installing what is
# missing, then fuzzes the scenario reader (scripts/fuzz.sh, FUZZ_SECONDS per target,
# default 60). Stops at the first configuration that fails to build, has a failing test
# or a fuzzer finding. `scripts/test.sh release fuzz` runs the named ones only. On a
# kernel that cannot run 32-bit programs, m32 is built but its tests are skipped, with a
# notice.
set -euo pipefail
cd "$(dirname "$0")/.."

# Whether this machine runs 32-bit x86 programs (some kernels are built without it).
runs_32bit() {
   local probe
   probe=$(mktemp)
   printf 'int main() { return 0; }\n' | g++ -m32 -x c++ - -o "$probe" 2>/dev/null &&
      "$probe" 2>/dev/null
   local status=$?
   rm -f "$probe"
   return $status
}

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
