#!/usr/bin/env bash
# Sets up, builds, and runs all tests. Safe to run twice.
#
#   scripts/test.sh [PRESET]    one of the presets that have tests; "release" by default
set -euo pipefail
cd "$(dirname "$0")/.."
preset=${1:-release}

scripts/setup.sh
echo "test: building ($preset)"
cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --parallel "$(nproc)"
echo "test: running ($preset)"
ctest --preset "$preset" --parallel "$(($(nproc) + 1))" # some tests only wait
