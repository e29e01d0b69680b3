#!/usr/bin/env bash
# The manual page tells of every command, option and example that the help texts have, and is rendered without a warning.
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"
page=$(dirname "$ZKQ")/zkq.1
[[ -e $page ]] || {
    echo 'this build makes no manual page'
    exit 77
}
require_program man

LC_ALL=C.UTF-8 MANWIDTH=1000 man --warnings -E UTF-8 -l -Tutf8 "$page" 2>warnings | sed 's/\x1b\[[0-9;]*m//g' | col -bx >text
expect_equal "$(cat warnings)" ''
expect_equal "$(lexgrog -m "$page" | grep -c '"zkq - ')" 1

# Lines as they are compared: blanks differ.
squeezed() {
    tr -s ' \t' ' ' | sed 's/^ //; s/ $//'
}
squeezed <text >lines

names_of() {
    "$ZKQ" "$@" --help | awk '/^Subcommands:/ {list = 1} list && /^  [a-z]/ {print $1}'
}

count=0
compare() {
    local name line
    for name in $(names_of "$@"); do
        compare "$@" "$name"
    done
    [[ -z $(names_of "$@") ]] || return 0
    "$ZKQ" "$@" --help >help
    while IFS= read -r line; do
        grep -qxF -- "$line" lines || fail "zkq $*: the manual page lacks: $line"
        count=$((count + 1))
    done < <({
        sed -n 's/^Usage: //p' help
        awk '/^Examples?:/ {list = 1; next} /^$/ {list = 0} list' help
    } | squeezed)
    while IFS= read -r line; do
        grep -qF -- "$line" lines || fail "zkq $*: the manual page lacks the option $line"
        count=$((count + 1))
    done < <(grep -oP '^  (-\w,)?\K--[\w-]+' help | grep -vx -- --help)
}
compare
((count >= 200)) || fail "only $count lines compared"

# And so does an example of the guide, with all that stands in it.
while IFS= read -r line; do
    grep -qxF -- "$line" lines || fail "the manual page lacks the guide's line: $line"
done < <(awk '/^```/ {inside = !inside; next} inside && NF' "$ZKQ_SOURCE/docs/tool.md" | squeezed)
