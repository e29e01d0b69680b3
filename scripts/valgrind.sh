#!/usr/bin/env bash
# Runs the test programs whole under valgrind, which sees uses of values that were never set. Those that fork into many
# processes, replace the C library's calls, take their time over models, or are about what valgrind does not pass on to the
# system as it is (shared memory, terminals, limits), or of threads that wait for each other's turns, which it gives one at
# a time, are left to the sanitizers.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$(nproc)"

# check PROGRAM
check() {
    if ! timeout 300 valgrind -q --fair-sched=try --error-exitcode=9 --child-silent-after-fork=yes "$1" --gtest_brief=1 \
        >"$1.valgrind" 2>&1; then
        tail -n 60 "$1.valgrind"
        echo "valgrind: $1 failed"
        return 1
    fi
    echo "valgrind: ${1##*/} is clean"
}
export -f check
find build/release/tests -maxdepth 1 -type f -name '*_test' -perm -u+x |
    grep -vE 'concurrency|child_table|model|base64_internal|file_tree|file_copy|/file_test|/system_(process_|terminal_|thread_|)test|/syncobject|/ip_test' | sort |
    xargs -P "$(nproc)" -I{} bash -c 'check {}'
