#!/usr/bin/env bash
# The first program that the README shows is the one in examples/, and what it is said to print is what it prints.
set -euo pipefail
source=$1 program=$2 build=$3
work=$(mktemp -d "$build/docs-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

# block LANGUAGE: the first such block of the README
block() {
    awk -v fence="\`\`\`$1" '$0 == fence {inside = 1; next} inside && /^```$/ {exit} inside' "$source/README.md"
}
diff <(block c) "$source/examples/first.c"
cd "$work"
diff <(echo "name is Alpha") <("$program")
diff <(awk '/leaves a file first.log/ {near = 1; next} near && /^```$/ {if (inside) exit; inside = 1; next} inside' \
    "$source/README.md") first.log

while read -r link; do
    [ -e "$source/$link" ] || { echo "docs: README or CONTRIBUTING names $link, which is not there"; exit 1; }
done < <(grep -ohP '\]\(\K[^):#]+(?=\))' "$source"/README.md "$source"/CONTRIBUTING.md)
echo "docs: the README is true"
