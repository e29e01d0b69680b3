#!/usr/bin/env bash
# Runs clang-tidy over the sources in the given directories, by default those of the library and the tool. Any finding
# fails.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset asan >/dev/null # the one with clang and the tool
cmake --build --preset asan --parallel "$(nproc)" --target zkq_objects >/dev/null
if [ $# -eq 0 ]; then set -- src tools; fi
git ls-files "${@/%//*.cpp}" |
    xargs -P "$(nproc)" -n 1 clang-tidy-14 -p build/asan --quiet 2>/dev/null
echo "tidy: no findings"
