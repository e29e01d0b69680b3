#!/usr/bin/env bash
# zkq log tail -f, while the log grows, shrinks, goes away and comes back.
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

tail_pid=""
trap '[[ -z $tail_pid ]] || kill -KILL "$tail_pid" 2>/dev/null || true; rm -rf "$work"' EXIT

start() {
    "$ZKQ" log tail -f "$@" >out 2>err </dev/null &
    tail_pid=$!
}

shown() {
    [[ $(cat out) == "$1" ]]
}

# An interrupt ends it as a matter of course.
stop() {
    status=0
    kill -INT "$tail_pid"
    wait "$tail_pid" || status=$?
    tail_pid=""
    expect_equal "$status" 0
    expect_equal "$(cat err)" ""
}

printf 'one\ntwo\n' >a.log
start -n 1 a.log
wait_until shown two
printf 'three\n' >>a.log
wait_until shown $'two\nthree'
printf 'half' >>a.log
wait_until shown $'two\nthree\nhalf'
printf ' line\n' >>a.log
wait_until shown $'two\nthree\nhalf line'

# Deleted and started anew, as happens to a log that has grown too large.
rm a.log
printf 'four\n' >a.log
wait_until shown $'two\nthree\nhalf line\nfour'
rm a.log
"$ZKQ" log write --project a --force five
wait_until grep -q '\[Info \] five' out
# Replaced by another file; what the old one got last is not lost.
printf 'six\n' >b.log
printf 'last\n' >>a.log
mv b.log a.log
wait_until grep -qx six out
grep -qx last out || fail 'the last record of the old log is lost'
# Cut off.
: >a.log
wait_until test ! -s a.log
printf 'x\n' >>a.log
wait_until grep -qx x out
expect_equal "$(grep -c . out)" 8
stop

# GBK, with a character that arrives in two pieces.
printf 'a\xc4' >g.log
start --gbk g.log
wait_until shown a
printf '\xda\n' >>g.log
wait_until shown a内
stop

# Without a place to print to, following ends.
status=0
"$ZKQ" log tail -f a.log >/dev/full 2>err || status=$?
expect_equal "$status" 1

# A log that is not there is most likely a slip of the pen.
run log tail -f none.log
expect_failure 'cannot read none.log: No such file or directory'
