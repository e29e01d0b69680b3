#!/usr/bin/env bash
# An installed copy serves a C program through pkg-config and a C++ program through CMake, also after it has been moved.
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
"$cmake" --build "$work/build" >/dev/null
expect "the C++ program" "$("$work/build/consumer")" "2 a b"

if [ -x "$work/prefix/bin/zkq" ]; then
    expect "the installed tool" "$(env -u LD_LIBRARY_PATH "$work/prefix/bin/zkq" --version)" "zkq $(pkg-config --modversion ZKQ_general)"
fi
echo "install: both programs run"
