#!/usr/bin/env bash
# Checks the format of all C and C++ code; with --fix, brings it into form.
set -euo pipefail
cd "$(dirname "$0")/.."
mode=(--dry-run -Werror)
if [ "${1:-}" = --fix ]; then mode=(-i); fi
git ls-files '*.c' '*.cpp' '*.h' '*.hpp' | xargs clang-format-14 "${mode[@]}"
echo "format: clean"
