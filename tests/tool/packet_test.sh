#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# A packet of an integer, a text, a negative integer, an empty item and a long one.
printf '\0\0\0\x37\0\0\0\4\0\0\0\7\0\0\0\3ab\0\0\0\0\4\xff\xff\xff\xfe\0\0\0\0\0\0\0\x14a longer value here.' >items
run packet dump items
expect_output '55 bytes, 5 items' \
    '       ITEM     OFFSET     LENGTH     INTEGER  BYTES' \
    '          0          8          4           7  00 00 00 07                                      ....' \
    '          1         16          3              61 62 00                                         ab.' \
    '          2         23          4          -2  ff ff ff fe                                      ....' \
    '          3         31          0' \
    '          4         35         20              61 20 6c 6f 6e 67 65 72 20 76 61 6c 75 65 20 68  a longer value h...'
# The offsets are those of the file.
expect_equal "$(tail -c +36 items)" 'a longer value here.'

head -c 31 items | tail -c +5 >rest
{ printf '\0\0\0\x1f' && cat rest; } >tagged
run packet dump --oid tagged
expect_output '31 bytes, 2 values' \
    '        OID     OFFSET     LENGTH     INTEGER  BYTES' \
    '          7         16          3              61 62 00                                         ab.' \
    '         -2         31          0'

printf '\0\0\0\4' >empty
run packet dump empty
expect_output '4 bytes, 0 items'
run packet dump --oid empty
expect_output '4 bytes, 0 values'
printf '\0\0\0\x18\0\0\0\x10exactly sixteen.' >sixteen
run packet dump sixteen
expect_equal "$(tail -n 1 out | grep -c 'exactly sixteen\.$')" 1

# What is no packet, and why.
: >nothing
run packet dump nothing
expect_failure 'nothing: Not a message packet: it is shorter than a header'
printf 'GET / HTTP/1.1' >text
run packet dump text
expect_failure 'text: Not a message packet: its header says 1195725856 bytes, and it has 14'
{ cat empty && printf x; } >longer
run packet dump longer
expect_failure 'longer: Not a message packet: its header says 4 bytes, and it has 5'
printf '\0\0\0\x09\xff\xff\xff\xffx' >hostile
run packet dump hostile
expect_failure 'hostile: Not a message packet: an item runs past its end'
run packet dump --oid items
expect_failure 'items: Not a tagged packet: it has an odd number of items'
printf '\0\0\0\x0e\0\0\0\1x\0\0\0\1y' >untagged
run packet dump --oid untagged
expect_failure 'untagged: Not a tagged packet: an OID has not 4 bytes'
run packet dump none
expect_failure 'cannot read none: No such file or directory'
run packet dump .
expect_failure 'cannot read .: Is a directory'
run packet dump
expect_usage FILE

# Packets of its own making, which od judges.
printf 'a\0b' >bytes
run packet make text:ab int:-2 int:2147483647 @bytes text: -o made
expect_silence
expect_equal "$(od -An -tx1 -v made | xargs)" "00 00 00 27 00 00 00 03 61 62 00 00 00 00 04 ff ff ff fe 00 00 00 04 7f ff ff ff \
00 00 00 03 61 00 62 00 00 00 01 00"
run packet make --oid -o made -- 7=text:a=b -1=@bytes
expect_silence
run packet dump --oid made
expect_equal "$(awk 'NR > 2 {print $1, $3}' out | xargs)" '7 4 -1 3'
printf 'kept' >made
for item in ab int: int:x int:2147483648 int:1x TEXT:a ''; do
    run packet make -o made "$item"
    expect_usage ITEM
done
for item in text:a =text:a x=text:a 1= 1=b; do
    run packet make --oid -o made "$item"
    expect_usage ITEM
done
run packet make -o made @none
expect_failure 'cannot read none: No such file or directory'
expect_equal "$(cat made)" kept
run packet make
expect_usage ITEM
if has_terminal; then
    on_terminal '' "$ZKQ" packet make int:1
    expect_equal "$status" 1
    grep -q 'would go to the terminal' out || fail 'a packet on a terminal'
fi
