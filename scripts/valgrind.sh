#!/usr/bin/env bash
# Runs test programs whole under valgrind, which sees uses of values that were never set: those of everything that parses,
# encodes and packs. Tests of processes, threads, signals, time and networks have limits that its pace does not keep, and are
# left to the sanitizers, as are the long tables of Base64 and charsets.
set -euo pipefail
cd "$(dirname "$0")/.."
cmake --preset release >/dev/null
cmake --build --preset release --parallel "$(nproc)"

# check PROGRAM
check() {
    if ! timeout 300 valgrind -q --error-exitcode=9 --child-silent-after-fork=yes "$1" --gtest_brief=1 \
        >"$1.valgrind" 2>&1; then
        tail -n 60 "$1.valgrind"
        echo "valgrind: $1 failed"
        return 1
    fi
    echo "valgrind: ${1##*/} is clean"
}
export -f check
find build/release/tests -maxdepth 1 -type f -name '*_test' -perm -u+x |
    grep -E '/(base64|cpp_(basics|contents|documents)|error|iconv|inifile|json|md5|msgpacket|mycab|string|table|x509|xml|zlib)' |
    grep -vE 'model|base64_(internal_)?test|iconv_test|thread' | sort |
    xargs -P "$(nproc)" -I{} bash -c 'check {}'
