#!/usr/bin/env bash
# An installed copy serves C programs through pkg-config and C++ programs through CMake, with the shared and with the static
# library, also after it has been moved.
set -euo pipefail
build=$1 source=$2 cmake=$3 generator=$4 cc=$5 cxx=$6
work=$(mktemp -d "$build/install-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

"$cmake" --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/prefix"
pc=$(find "$work/prefix" -name ZKQ_general.pc)
libdir=$(dirname "$(find "$work/prefix" -name 'libZKQ_general.so.1')")
export PKG_CONFIG_PATH=${pc%/*} LD_LIBRARY_PATH=$libdir

expect() {
    if [ "$2" != "$3" ]; then
        printf 'install: %s printed\n%s\ninstead of\n%s\n' "$1" "$2" "$3"
        exit 1
    fi
}

# shellcheck disable=SC2046 # the flags are words
"$cc" -std=c11 -Wall -Wextra -Wpedantic -Werror "$source/consumer_c/main.c" -o "$work/consumer_c" \
    $(pkg-config --cflags --libs ZKQ_general)
expect "the C program" "$("$work/consumer_c")" $'5 /tmp/\nFunction call successed!'

"$cmake" -G "$generator" -S "$source/consumer_cxx" -B "$work/build" -DCMAKE_CXX_COMPILER="$cxx" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
"$cmake" --build "$work/build" >"$work/log" || {
    cat "$work/log"
    exit 1
}
expect "the C++ program" "$("$work/build/consumer")" "2 a b"

# alone PROGRAM: it has the library inside of it, and asks for nothing of C++.
alone() {
    local needed
    needed=$(readelf -d "$1" | grep -oP 'NEEDED.*\[\K[^]]+' | grep -E "$2" || true)
    expect "what $1 needs" "$needed" ""
}
read -ra flags <<<"$(pkg-config --static --cflags --libs ZKQ_general)"
static=("${flags[@]/#-lZKQ_general/-l:libZKQ_general.a}")
"$cc" -std=c11 -D_POSIX_C_SOURCE=200809L -Wall -Wextra -Wpedantic -Werror "$source/consumer_static/main.c" \
    -o "$work/consumer_static" "${static[@]}"
expect "the C program with the static library" "$("$work/consumer_static")" "7 8 No such file or directory"
alone "$work/consumer_static" 'ZKQ|c\+\+'
# The C library warns that it loads parts of itself at run time.
"$cc" -std=c11 -static "$source/consumer_c/main.c" -o "$work/consumer_whole" "${flags[@]}" 2>/dev/null
expect "the C program with everything static" "$("$work/consumer_whole")" $'5 /tmp/\nFunction call successed!'
alone "$work/consumer_whole" .
expect "the C++ program with the static library" "$("$work/build/consumer_static")" "2 a b"
alone "$work/build/consumer_static" ZKQ

if [ -x "$work/prefix/bin/zkq" ]; then
    expect "the installed tool" "$(env -u LD_LIBRARY_PATH "$work/prefix/bin/zkq" --version)" "zkq $(pkg-config --modversion ZKQ_general)"
fi
echo "install: all programs run"
