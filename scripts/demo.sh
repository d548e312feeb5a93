#!/usr/bin/env bash
# Installs what is missing, builds the release configuration and plays natsim's built-in
# demo scenario (examples/demo.json). Extra arguments go to natsim, e.g. --json.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
cmake --preset release > /dev/null
cmake --build --preset release --target natsim
exec build/release/bin/natsim "$@"
