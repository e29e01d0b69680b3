#!/usr/bin/env bash
# Builds the fuzz targets and lets each search for new inputs for some seconds.
#
#   scripts/fuzz.sh [SECONDS]    20 by default
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=${1:-20}
cmake --preset fuzz >/dev/null
cmake --build --preset fuzz --parallel "$(nproc)"

# fuzz NAME: one target, beginning with its corpus; what it finds new stays in the build tree
fuzz() {
    local name=$1 new=build/fuzz/new/$1 options=()
    mkdir -p "$new"
    if [ -f "tests/fuzz/$name.dict" ]; then options+=("-dict=tests/fuzz/$name.dict"); fi
    if ! "build/fuzz/tests/fuzz/fuzz_$name" "${options[@]}" -max_total_time="$seconds" -max_len=1000 -timeout=10 \
        -artifact_prefix="build/fuzz/$name-" "$new" "tests/fuzz/corpus/$name" >"build/fuzz/$name.log" 2>&1; then
        tail -n 40 "build/fuzz/$name.log"
        return 1
    fi
    echo "fuzz: $name: $(tail -n 1 "build/fuzz/$name.log")"
}
export -f fuzz
export seconds
find tests/fuzz/corpus -mindepth 1 -maxdepth 1 -printf '%f\n' | sort |
    xargs -P "$(nproc)" -I{} bash -c 'set -euo pipefail; fuzz {}'
