#!/usr/bin/env bash
# Quick checks of the sources: format, scripts, and calls that have no place in the library.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/format.sh
git ls-files '*.sh' .ci/run tools/zkq/completion | xargs shellcheck -x
if git grep -nE '\b(strcpy|strcat|v?sprintf|gets|system|popen|tmpnam|mktemp|alloca|strtok|localtime|gmtime|abort|exit|_exit)\(' -- src; then
    echo "lint: the library does not call these"
    exit 1
fi
if git grep -nE '\b(std::(string|vector|function|map)\b|throw|dynamic_cast|iostream|new [A-Z])' -- src ':!src/internal/messages.txt'; then
    echo "lint: the library does without these"
    exit 1
fi
echo "lint: clean"
