#!/usr/bin/env bash
# The shared object shows its callers exactly the functions of the public headers, and asks the system for nothing but the
# C library and zlib.
set -euo pipefail
library=$1 include=$2 version_script=$3

exported=$(nm -D --defined-only "$library" | awk '{print $3}' | LC_ALL=C sort)
declared=$(grep -hoP '^ZKQ_API [^(]*?\K\w+(?=\()' "$include"/ZKQ_general/*.h | LC_ALL=C sort)
listed=$(grep -oP '^ {8}\K\w+(?=;)' "$version_script" | LC_ALL=C sort)

failed=0
compare() {
    if ! diff <(echo "$2") <(echo "$3"); then
        echo "exports: $1 differ"
        failed=1
    fi
}
compare "the shared object (<) and the public headers (>)" "$exported" "$declared"
compare "the version script (<) and the public headers (>)" "$listed" "$declared"

dynamic=$(readelf -d "$library")
soname=$(grep -oP 'SONAME.*\[\K[^]]+' <<<"$dynamic")
if [ "$soname" != libZKQ_general.so.1 ]; then
    echo "exports: the library calls itself $soname"
    failed=1
fi
needed=$(grep -oP 'NEEDED.*\[\K[^]]+' <<<"$dynamic" | grep -vxE 'libc\.so\.6|libz\.so\.1|ld-linux-.*' || true)
if [ -n "$needed" ]; then
    echo "exports: the library needs $needed"
    failed=1
fi
echo "exports: $(wc -l <<<"$exported") functions"
exit "$failed"
