#!/usr/bin/env bash
# The guide's examples are run as they stand, and must print what the guide shows.
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

require_program python3
start_server python3 "$ZKQ_SOURCE/tests/tool/http_server.py"

zkq() { # called by the examples, whose server has another port here
    local answer=0
    { "$ZKQ" "${@//127.0.0.1:8080/127.0.0.1:$port}" 2>&1 1>&3 | sed "s/:$port/:8080/" >&2; } 3>&1 || answer=$?
    return "$answer"
}

# Times and random names differ from run to run.
without_chance() {
    sed -E 's/\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9:]{8}\.[0-9]{3}\]/[TIME]/; s|^(/tmp/report-)[a-zA-Z0-9]{6}$|\1RANDOM|'
}

# Runs an example in the state that the earlier ones have left, their exit status included.
run_example() {
    set +e
    (exit "$last")
    eval "$1" >>actual 2>&1
    last=$?
    set -e
}

mkdir room
cd room
last=0
: >expected
: >actual
while IFS= read -r line; do
    printf '%s\n' "$line" >>expected
    if [[ $line == '$ '* ]]; then
        printf '%s\n' "$line" >>actual
        run_example "${line:2}"
    fi
done < <(awk '/^```/ {shown = $0 ~ /console/; next} shown' "$ZKQ_SOURCE/docs/tool.md")

while IFS= read -r name; do
    rm -f "$name"
done < <(grep '^/tmp/report-' actual)

[[ $(grep -c '^\$ zkq ' actual) -ge 20 ]] || fail 'the guide has lost its examples'
diff <(without_chance <expected) <(without_chance <actual) >&2 || fail 'the guide shows something else'
