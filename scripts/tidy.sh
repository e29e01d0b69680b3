#!/usr/bin/env bash
# Runs clang-tidy over the sources in the given directories, by default those of the library and the tool. Any finding
# fails.
#
#   scripts/tidy.sh [--quick] [DIRECTORY...]    quick is without the analyser of paths, which takes most of the time
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset asan >/dev/null # the one with clang and the tool
cmake --build --preset asan --parallel "$(nproc)" --target zkq_objects >/dev/null
checks=()
if [ "${1:-}" = --quick ]; then
    checks=(--checks='-clang-analyzer-*')
    shift
fi
if [ $# -eq 0 ]; then set -- src tools; fi
git ls-files "${@/%//*.cpp}" |
    xargs -P "$(nproc)" -n 1 clang-tidy-14 -p build/asan --quiet "${checks[@]}" 2>/dev/null
echo "tidy: no findings"
