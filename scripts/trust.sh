#!/usr/bin/env bash
# Measures what docs/trust.md tells and writes its figures anew. Takes some 50 minutes on two cores; with --table only the
# table is made again, of what was measured last.
set -euo pipefail
cd "$(dirname "$0")/.."
readonly out=build/trust
mkdir -p "$out"

# measure NAME COMMAND...: what it prints goes to a file
measure() {
    local name=$1
    shift
    echo "trust: $*"
    "$@" >"$out/$name.log" 2>&1 || {
        tail -n 30 "$out/$name.log"
        return 1
    }
}

if [ "${1:-}" != --table ]; then
    measure strain scripts/strain.sh 5
    measure fault-build cmake --preset asan
    measure fault-build cmake --build --preset asan --parallel "$(nproc)" --target fault_test
    measure fault build/asan/tests/fault/fault_test
    measure fuzz scripts/fuzz.sh 20
    measure coverage scripts/coverage.sh --json build/coverage.json
    measure mutants scripts/mutants.py
    measure cppcheck scripts/cppcheck.sh
    measure tidy scripts/tidy.sh
    measure valgrind scripts/valgrind.sh
fi
scripts/trust.py
