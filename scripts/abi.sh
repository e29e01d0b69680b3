#!/usr/bin/env bash
# Compares the functions and public types of the built library with those on record in packaging/abi. Callers that were built
# against the record must go on working, and what is new must be put on record.
#
#   scripts/abi.sh             compares; fails and shows what differs
#   scripts/abi.sh --update    puts the built library on record
set -euo pipefail
cd "$(dirname "$0")/.."

record=packaging/abi/libZKQ_general.abi
preset=release # which has the debug information to read types from

case "${1:-}" in
"" | --update) ;;
*)
    echo "usage: $0 [--update]" >&2
    exit 2
    ;;
esac
if [ "$(uname -m)" != x86_64 ]; then
    echo "abi: the record is one of x86_64: not compared"
    exit 0
fi

cmake --preset "$preset" >/dev/null
cmake --build --preset "$preset" --target ZKQ_general --parallel "$(nproc)" >/dev/null
built=build/$preset/libZKQ_general.abi
# Private types and the lines where things stand may change as they like.
abidw --headers-dir include --drop-private-types --exported-interfaces-only --no-show-locs --no-corpus-path \
    --no-comp-dir-path --type-id-style hash "build/$preset/libZKQ_general.so" | sed "s|path='$PWD/|path='|" >"$built"

if [ "${1:-}" = --update ]; then
    cp "$built" "$record"
    echo "abi: on record"
    exit 0
fi
status=0
abidiff "$record" "$built" || status=$? # bits: 1 failed, 2 wrong usage, 4 changed, 8 changed incompatibly
functions=$(grep -c "<elf-symbol " "$record")
case $status in
0) echo "abi: as on record, $functions functions" ;;
4)
    echo "abi: changed. If callers go on working, put it on record: scripts/abi.sh --update"
    exit 1
    ;;
*)
    echo "abi: callers would break (abidiff ended with $status). A change like this needs a new SONAME."
    exit 1
    ;;
esac
