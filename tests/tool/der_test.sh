#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

heading='    OFFSET  TAG     LENGTH  KIND'

# Every kind, a record within a record, arrays of records.
{
    printf '\x30\x81\x83'
    printf '\1\4\xff\xff\xff\xfe\2\x8\0\0\0\1\0\0\0\0\3\x8\0\0\0\0\0\0\xab\xcd'
    printf '\4\3ab\0\5\0\6\x12\0\1\2\3\4\5\6\7\x8\x9\xa\xb\xc\xd\xe\xf\x10\x11\7\1\xff'
    printf '\x8\x8\0\0\0\1\xff\xff\xff\xff\x9\x24'
    for i in 1 2 3 4 5 6 7 8 9; do printf '\0\0\0%b' "\\x$i"; done
    printf '\x30\x3\4\1\0\x40\4\0\0\0\2\x30\6\1\4\0\0\0\1\x30\0\x40\4\0\0\0\0'
} >all
run der dump all
expect_output "$heading" \
    '         0   30        131  record' \
    '         3   01          4    INT32  -2' \
    '         9   02          8    INT64  4294967296' \
    '        19   03          8    PTR  0xabcd' \
    '        29   04          3    STRING  "ab"' \
    '        34   05          0    STRINGPTR' \
    '        36   06         18    BYTEARRAY  00 01 02 03 04 05 06 07 08 09 0a 0b 0c 0d 0e 0f ...' \
    '        56   07          1    BYTEARRAYPTR  ff' \
    '        59   08          8    INTARRAY  1 -1' \
    '        69   09         36    INTARRAYPTR  1 2 3 4 5 6 7 8 ...' \
    '       107   30          3    record' \
    '       109   04          1      STRING  ""' \
    '       112   40          4    array of 2' \
    '       118   30          6      record' \
    '       120   01          4        INT32  1' \
    '       126   30          0      record' \
    '       128   40          4    array of 0'
expect_equal "$(wc -c <all)" 134 # as the lengths say

dump() {
    printf '%b' "$1" >record
    run der dump record
}

# A single value, and something behind it.
dump '\x04\x03ab\0'
expect_output "$heading" '         0   04          3  STRING  "ab"'
dump '\x30\0x'
expect_output "$heading" '         0   30          0  record' '1 byte follows, which decoding passes over'
dump '\x30\0xy'
expect_output "$heading" '         0   30          0  record' '2 bytes follow, which decoding passes over'

# Contents of another length or form.
dump '\x01\x03abc'
expect_output "$heading" '         0   01          3  INT32  61 62 63 (not 4 bytes)'
dump '\x02\0'
expect_output "$heading" '         0   02          0  INT64   (not 8 bytes)'
dump '\x04\x02ab'
expect_output "$heading" '         0   04          2  STRING  61 62 (no NUL)'
dump '\x04\x04a\0bc'
expect_output "$heading" '         0   04          4  STRING  "a" (2 bytes behind the NUL)'
dump '\x04\x05a\x1b[1m'
expect_equal "$status" 0
dump '\x04\x06a\x1b[1m\0'
expect_output "$heading" '         0   04          6  STRING  "a\x1b[1m"'
dump '\x08\x05\0\0\0\x07x'
expect_output "$heading" '         0   08          5  INTARRAY  7 (not whole integers)'
dump '\x04\x05\xd6\xd0\xce\xc4\0'
expect_output "$heading" '         0   04          5  STRING  "中文"'

# Long lengths as they are written and as they may be.
dump '\x06\x81\x01x'
expect_output "$heading" '         0   06          1  BYTEARRAY  78'
dump '\x06\x84\0\0\0\x01x'
expect_output "$heading" '         0   06          1  BYTEARRAY  78'
dump '\x06\x80'
expect_output "$heading" '         0   06          0  BYTEARRAY'

# What is no record: shown as far as it goes.
fails() {
    dump "$1"
    expect_equal "$status" 1
    expect_equal "$(cat err)" "zkq: record: $2"
}
fails '' 'Not a record: it is empty'
fails '\x0a\0' 'At offset 0: No kind has the tag 0a'
fails '\x40\x04\0\0\0\0' 'At offset 0: No kind has the tag 40'
fails '\x30' 'At offset 1: A length is missing'
fails '\x30\x05\x01\x04abc' 'At offset 3: The length 4 leads past the end'
expect_equal "$(cat out)" "$heading"$'\n         0   30          5  record'
fails '\x30\x85\x01\x01\x01\x01\x01' 'At offset 1: A length of 5 bytes'
fails '\x30\x82\x01' 'At offset 1: A length runs past the end'
fails '\x30\x84\x01\0\0\0' 'At offset 1: The length 16777216 is above 16777215'
fails '\x30\x83\xff\xff\xff' 'At offset 1: The length 16777215 leads past the end'
fails '\x30\x05\x40\x04\0\0\0' 'At offset 2: The header of an array runs past the end'
fails '\x30\x06\x40\x05\0\0\0\0' 'At offset 2: The header of an array has another length than 4'
fails '\x30\x08\x40\x04\xff\xff\xff\xff\x30\0' 'At offset 10: 4294967294 more of an array should be here'
fails '\x30\x0c\x40\x04\0\0\0\x01\x40\x04\0\0\0\0' 'At offset 8: No kind has the tag 40'
run der dump none
expect_failure 'cannot read none: No such file or directory'
run der dump
expect_usage FILE

# Deeper than any stack, and in lines that stay short.
perl -e '
    my $content = "";
    for (1 .. 20000) {
        my $n = length $content;
        $content = "\x30" . ($n < 128 ? chr $n : "\x83" . substr(pack("N", $n), 1)) . $content;
    }
    print $content' >deep
run der dump deep
expect_equal "$status" 0
expect_equal "$(wc -l <out)" 20001
expect_equal "$(tail -n 1 out | xargs)" "$(($(wc -c <deep) - 2)) 30 0 [level 19999] record"
[[ $(wc -L <out) -lt 120 ]] || fail 'lines grow with the depth'
