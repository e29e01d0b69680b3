#!/usr/bin/env bash
# What single quotes hold is meant to reach programs as it is.
# shellcheck source-path=SCRIPTDIR source=support.sh disable=SC2016
source "$(dirname "$0")/support.sh"

# Running: what a program says and how it ends is passed on.
run proc run echo one 'two  three'
expect_output 'one two  three'
run proc run -- printf '<%s>\n' "it's" '$HOME' '' '*' $'a\nb' '; exit 9' '-x'
expect_output "<it's>" '<$HOME>' '<>' '<*>' '<a' 'b>' '<; exit 9>' '<-x>'
for code in 1 2 127 255; do
    run proc run -- sh -c "exit $code"
    expect_equal "$status$(cat out err)" "$code"
done
run proc run -- sh -c 'kill -9 $$' 2>/dev/null
expect_equal "$status" 137
run proc run --timeout 5 false
expect_equal "$status" 1
run proc run --timeout 1 sleep 1.3
expect_equal "$status" 124
expect_equal "$(cat err)" 'zkq: sleep: Still running after 1 s, and goes on'
run proc run ./none
expect_failure 'cannot run ./none: No such file or directory'
printf '#!/bin/sh\nexit 5\n' >program
chmod +x program
run proc run program # in the working directory, after PATH
expect_equal "$status" 5
for name in 'a b' '' 'x;y' '$x' "it's" '~'; do
    run proc run "$name"
    expect_failure "cannot run \"$name\": The shell would take this name for something else"
done
mkfifo pipe
run proc run --no-wait cp pipe copy
expect_silence
echo text >pipe
wait_until cmp -s copy - <<<text
run proc run
expect_usage PROGRAM
run proc run --timeout 0 true
expect_usage --timeout
run proc run --timeout 1 --no-wait true
expect_usage --no-wait

# Finding and killing: only what this script has started has this command line.
ln -s "$(command -v sleep)" "sleep-$$"
"./sleep-$$" 300 &
first=$!
"./sleep-$$" 300 &
second=$!
"./sleep-$$" 301 &
other=$!
is_found() { "$ZKQ" proc find "$@" >out 2>err; }
wait_until is_found "./sleep-$$" 301
run proc find "./sleep-$$" 300
expect_equal "$status" 0
expect_equal "$(head -n 1 out)" '    PID  User      Command line'
expect_equal "$(awk 'NR > 1 {print $1}' out | sort -n | xargs)" "$(printf '%s\n' "$first" "$second" | sort -n | xargs)"
grep -q "  $(id -un) *./sleep-$$ 300$" out || fail 'no owner or command line'
run proc find "./sleep-$$ 300"
expect_equal "$status" 0
run proc find "./sleep-$$"
expect_failure "./sleep-$$: No process has this command line"
run proc kill "./sleep-$$" 300
expect_silence
for pid in "$first" "$second"; do
    code=0
    wait "$pid" 2>/dev/null || code=$?
    expect_equal "$code" 137
done
kill -0 "$other" || fail 'another process was killed'
run proc kill "./sleep-$$" 300
expect_failure "./sleep-$$ 300: No process has this command line"
kill "$other"
wait "$other" 2>/dev/null || true

# Instance locks.
run proc lock name --path "$work"
expect_failure "cannot lock $work/name: No such file or directory"
run proc lock name --path "$work/" --create
expect_output "$work/name: free"
run proc lock name --path "$work" -- "$ZKQ" proc lock name --path "$work"
expect_equal "$status" 1
expect_equal "$(cat err)" "zkq: $work/name: Held by another process"
run proc lock name --path "$work" -- "$ZKQ" proc lock name --path "$work" echo never
expect_equal "$status$(cat out)" 1
flock "$work/name" "$ZKQ" proc lock name --path "$work" >out 2>err || status=$?
expect_equal "$status$(cat err)" "1zkq: $work/name: Held by another process"
run proc lock name --path "$work" -- sh -c 'echo done; exit 4'
expect_equal "$status$(cat out)" 4done
run proc lock name --path "$work"
expect_output "$work/name: free"
run proc lock name --path "$work/none" --create
expect_failure "cannot create $work/none/name: No such file or directory"
