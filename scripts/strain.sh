#!/usr/bin/env bash
# Puts the library under strain: every family at once from eight processes of sixteen threads, half of the operations with
# faults injected at random. Half of the time under AddressSanitizer, LeakSanitizer and UndefinedBehaviorSanitizer, half
# under ThreadSanitizer. Anything lost, leaked, raced or wrong fails.
#
#   scripts/strain.sh [MINUTES [SEED]]    4 by default; a fraction is allowed; the seed is told by each run
#
# The reports stay in build/strain-asan.log and build/strain-tsan.log.
set -euo pipefail
cd "$(dirname "$0")/.."
seconds=$(awk -v minutes="${1:-4}" 'BEGIN { printf "%d", minutes * 30 + 0.5 }')
options=(--seconds "$seconds")
if [ $# -ge 2 ]; then options+=(--seed "$2"); fi

# strain PRESET
strain() {
    local log=build/strain-$1.log
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" --parallel "$(nproc)" --target strain >/dev/null
    if ! TSAN_OPTIONS="suppressions=$PWD/tests/strain/tsan.supp" "build/$1/tests/strain/strain" "${options[@]}" \
        >"$log" 2>&1; then
        head -n 200 "$log"
        echo "strain: findings ($1); all of them: $log"
        return 1
    fi
    echo "strain ($1): $(sed -n 's/^strain: \(seed.*\), in .*/\1/p' "$log"); $(tail -n 1 "$log")"
}

strain asan
strain tsan
