#!/usr/bin/env bash
# Line and branch coverage of the library by its tests; fails below the bar.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset coverage >/dev/null
cmake --build --preset coverage --parallel "$(nproc)"
find build/coverage -name '*.gcda' -delete
ctest --preset coverage --parallel "$(($(nproc) + 1))" --output-on-failure | tail -n 3
gcovr --root . --filter 'src/' --object-directory build/coverage --exclude-throw-branches --fail-under-line 98 \
    --print-summary "$@" build/coverage
