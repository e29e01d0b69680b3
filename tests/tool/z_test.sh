#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

head -c 300000 /dev/urandom >noise
seq 100000 >text
: >empty

# There and back, by files and by pipes.
for file in noise text empty; do
    run z compress "$file" -o packed
    expect_silence
    run z decompress packed --output plain
    expect_silence
    cmp "$file" plain || fail "$file has changed"
    # shellcheck disable=SC2094 # it is read alone
    "$ZKQ" z compress <"$file" | "$ZKQ" z decompress | cmp - "$file" || fail "$file has changed in a pipe"
    "$ZKQ" z compress "$file" | "$ZKQ" z decompress - | cmp - "$file" || fail "$file has changed on the way"
done
run z compress text -o packed
[[ $(stat -c %s packed) -lt $(($(stat -c %s text) / 2)) ]] || fail 'hardly smaller'
expect_equal "$(head -c 2 packed | od -An -tx1)" ' 78 9c'
printf old >plain
run z decompress packed -o plain
cmp text plain || fail 'an existing file is not replaced'

# Another program reads it, and writes what is read.
if command -v python3 >/dev/null; then
    python3 -c 'import sys, zlib; sys.stdout.buffer.write(zlib.decompress(open("packed", "rb").read()))' | cmp - text ||
        fail 'zlib reads something else'
    python3 -c 'import sys, zlib; sys.stdout.buffer.write(zlib.compress(open("text", "rb").read(), 9))' >other
    run z decompress other -o plain
    cmp text plain || fail 'a stream of zlib is read as something else'
fi

# Damage. Nothing is written, an older file stays.
printf old >plain
head -c 1000 packed >part
run z decompress part -o plain
expect_failure 'cannot decompress part: buffer error'
run z decompress text -o plain
expect_failure 'cannot decompress text: data error'
run z decompress
expect_failure 'cannot decompress standard input: buffer error'
expect_equal "$(cat plain)" old

run z compress none
expect_failure 'cannot read none: No such file or directory'
run z compress .
expect_failure 'cannot read .: Is a directory'
run z compress text -o text
expect_silence
run z decompress text -o text
expect_silence
expect_equal "$(tail -n 1 text)" 100000
run z compress text -o no/such/place
expect_failure 'cannot write no/such/place: No such file or directory'
# A device is not deleted when it fails: one of our own, because who is allowed to make one may delete any.
if mknod full c 1 7 2>/dev/null && { : >full; } 2>/dev/null; then
    run z compress text -o full
    expect_failure 'cannot write full: No space left on device'
    [[ -c full ]] || fail 'a device was deleted'
fi
run_on_full_disk z compress text -o limited
expect_failure 'cannot write limited: File too large'
[[ ! -e limited ]] || fail 'a part was left'
status=0
"$ZKQ" z compress text >/dev/full 2>err || status=$?
: >out
expect_failure 'cannot write to standard output: No space left on device'

if has_terminal; then
    on_terminal '' "$ZKQ" z compress text
    expect_equal "$status" 1
    grep -q 'would go to the terminal' out || fail 'a terminal got the stream'
fi

run z
expect_usage 'subcommand'
run z compress text more
expect_usage more
