#!/usr/bin/env bash
# Installs what building and testing need, where it is missing: the compiler and CMake
# with Ninja, GoogleTest, Google Benchmark and nlohmann-json, and their 32-bit (i386)
# libraries for the m32 configuration; clang with its libFuzzer and sanitizer runtimes
# for the fuzz configuration. Needs root (or sudo) only when something is missing.
set -euo pipefail

packages=(
   cmake ninja-build g++ g++-multilib clang libclang-rt-dev
   libgtest-dev libgmock-dev libbenchmark-dev nlohmann-json3-dev libcli11-dev
   libgtest-dev:i386 libgmock-dev:i386 libbenchmark-dev:i386
)

installed() {
   dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

missing=()
for p in "${packages[@]}"; do
   installed "$p" || missing+=( "$p" )
done
[ ${#missing[@]} -eq 0 ] && exit 0

echo "setup: installing ${missing[*]}"
sudo=""
[ "$(id -u)" -eq 0 ] || sudo="sudo"
export DEBIAN_FRONTEND=noninteractive
if ! dpkg --print-foreign-architectures | grep -qx i386; then
   $sudo dpkg --add-architecture i386
fi
# An index of one architecture sometimes fails to download for a while; that alone is
# not fatal, the install below says whether what we need is there.
$sudo apt-get update -q || echo "setup: apt-get update reported a failure; going on"
$sudo apt-get install -y -q --no-install-recommends "${missing[@]}"
