#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# The text of base64 with CR LF, and a break behind a full last line only.
by_base64() {
    base64 -w 72 "$1" | sed 's/$/\r/' | if (($(stat -c %s "$1") % 54 == 0 || $(stat -c %s "$1") % 54 > 51)); then cat; else head -c -2; fi
}

# Every length up to a few lines, and sizes around the pieces in which the tool reads.
head -c 3000000 /dev/urandom >noise
for size in $(seq 0 8) $(seq 50 58) $(seq 106 110) 786431 786432 786433 884735 884736 884737 3000000; do
    head -c "$size" noise >in
    run b64 encode --columns 0 in
    expect_equal "$status" 0
    base64 -w 0 in | cmp - out || fail "$size bytes in one line"
    run b64 encode in
    expect_equal "$status" 0
    by_base64 in | cmp - out || fail "$size bytes in lines"
    mv out text
    run b64 decode text -o back
    expect_silence
    cmp in back || fail "$size bytes do not come back"
done
for columns in 4 8 64 76 100 1000000; do
    run b64 encode --columns "$columns" noise -o text
    expect_silence
    base64 -w "$columns" noise | cmp - <(tr -d '\r' <text; (($(stat -c %s noise) * 4 / 3 % columns == 0)) || echo) ||
        fail "$columns columns"
    run b64 decode text
    cmp noise out || fail "$columns columns do not come back"
done

# Files of this machine, by base64 there and back.
for file in /etc/passwd /proc/self/mounts "$ZKQ" /bin/bash; do
    run b64 encode "$file"
    tr -d '\r' <out | base64 -d | cmp - "$file" || fail "$file is encoded differently"
    base64 "$file" >text
    run b64 decode text
    cmp out "$file" || fail "$file is decoded differently"
done

# Standard input and pipes.
expect_equal "$(printf abc | "$ZKQ" b64 encode)" YWJj
expect_equal "$(printf ab | "$ZKQ" b64 encode -)" YWI=
expect_equal "$(printf YWI= | "$ZKQ" b64 decode)" ab
run b64 decode <(printf 'YWJj\nYQ==')
expect_equal "$(cat out)" abca
run b64 encode
expect_silence
run b64 decode
expect_silence

# What is no Base64.
printf 'YW\nJj' >bad
run b64 decode bad -o kept
expect_failure 'cannot decode bad: 输入的BASE64数据不正确！'
[[ ! -e kept ]] || fail 'a file was made of a text that is none'
printf 'YWJj\0YWJj' >nul
run b64 decode nul
expect_failure 'cannot decode nul: A NUL is no character of Base64'
printf '*' >bad
run b64 decode bad
expect_equal "$status$(cat out)" 1

# Failures.
run b64 encode none
expect_failure 'cannot read none: No such file or directory'
run b64 encode .
expect_failure 'cannot read .: Is a directory'
run b64 decode .
expect_failure 'cannot read .: Is a directory'
run b64 encode noise -o no/such/place
expect_failure 'cannot write no/such/place: No such file or directory'
run b64 encode noise -o /dev/full
expect_failure 'cannot write /dev/full: No space left on device'
printf abc >in
run b64 encode in -o in
expect_failure 'cannot write in: It is the file that is read'
expect_equal "$(cat in)" abc
printf YWJj >in
run b64 decode in -o in
expect_silence
expect_equal "$(cat in)" abc

# The command line.
for columns in 70 -4 x 1.5 1000004 99999999999999 '' 0x; do
    run b64 encode --columns "$columns" noise
    expect_equal "$status" 2
done
run b64 encode --columns 70 noise
expect_usage 'must be a multiple of 4, at most 1000000'
run b64 encode noise noise
expect_usage noise
run b64
expect_usage 'A subcommand is required'
printf abc >--odd
run b64 encode -- --odd
expect_equal "$status$(cat out)" 0YWJj

# Only a terminal gets a line feed that is not part of the text.
if has_terminal; then
    printf abc >in
    on_terminal '' "$ZKQ" b64 encode in
    expect_equal "$(tail -n 1 out)" $'YWJj\r'
fi
