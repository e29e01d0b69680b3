#!/usr/bin/env bash
# The judge is iconv(1).
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# Every character that GBK has, a line each, and the sources of this very project.
for high in {129..254}; do
    for low in {64..126} {128..254}; do
        printf '\\x%x\\x%x\\n' "$high" "$low"
    done
done >pairs
printf '%b' "$(<pairs)" >gbk.raw
iconv -c -f GBK -t UTF-8 gbk.raw >characters.txt
find "$ZKQ_SOURCE/src" "$ZKQ_SOURCE/docs" "$ZKQ_SOURCE/tests" -type f \( -name '*.cpp' -o -name '*.md' -o -name '*.txt' \) \
    -size -200k -print0 | sort -z | xargs -0 cat >all.txt
iconv -c -f UTF-8 -t GBK all.txt | iconv -f GBK -t UTF-8 >sources.txt
[[ $(stat -c %s characters.txt) -gt 80000 && $(stat -c %s sources.txt) -gt 100000 ]] || fail 'no text to convert'

for text in characters.txt sources.txt; do
    iconv -f UTF-8 -t GBK "$text" >gbk
    iconv -f UTF-8 -t UCS-2LE "$text" >ucs2
    cp "$text" utf8
    declare -A names=([gbk]=GBK [utf8]=UTF-8 [ucs2]=UCS-2LE)
    for from in gbk utf8 ucs2; do
        for to in gbk utf8 ucs2; do
            [[ $from != "$to" ]] || continue
            run conv --from "${names[$from]}" --to "${names[$to]}" "$from"
            expect_equal "$status" 0
            cmp out "$to" || fail "$text: $from to $to differs from iconv"
            run conv --from "${names[$from]}" --to "${names[$to]}" "$from" -o result
            expect_silence
            cmp result "$to" || fail "$text: $from to $to differs in a file"
        done
    done
done

# Names of charsets.
printf '\xd6\xd0' >zhong
for name in gbk GBK Gbk CP936 ms936; do
    for target in utf-8 UTF8; do
        run conv --from $name --to $target zhong
        expect_equal "$status" 0
        expect_equal "$(cat out)" 中
    done
done
for name in UCS-2LE ucs2le UTF-16LE utf16le UCS-2 unicode UNICODELITTLE; do
    run conv --from GBK --to $name zhong
    expect_equal "$(od -An -tx1 out)" ' 2d 4e'
done
run conv --from LATIN1 --to GBK zhong
expect_usage '--from: "LATIN1" is none of GBK, UTF-8 and UCS-2LE'
run conv --from GBK --to cp936 zhong
expect_usage '--to: the charset that the text is in already'
run conv --from GBK zhong
expect_usage '--to'

# Standard input, nothing, and a file in place of itself.
status=0
"$ZKQ" conv --from GBK --to UTF-8 <zhong >out 2>err || status=$?
expect_equal "$status$(cat out err)" 0中
run conv --from GBK --to UTF-8
expect_silence
run conv --from GBK --to UTF-8 zhong --output zhong
expect_silence
expect_equal "$(cat zhong)" 中

# What cannot be converted is told, with its place, and leaves what is there.
printf 'one\ntwo 中\nthree \xc3\xb1\nfour' >spanish
cp zhong kept
run conv --from UTF-8 --to GBK spanish -o kept
expect_failure 'cannot convert spanish from UTF-8 to GBK: The character that ends at byte 20, in line 3, is malformed or not in GBK'
cmp kept zhong || fail 'a failure has written'
iconv -f UTF-8 -t UCS-2LE spanish >spanish.ucs2
run conv --from UCS-2LE --to UTF-8 spanish.ucs2
expect_failure 'cannot convert spanish.ucs2 from UCS-2LE to GBK: The character that ends at byte 34, in line 3, is malformed or not in GBK'
printf 'a\n\xff\n' >bad
run conv --from GBK --to UTF-8 bad
expect_failure 'cannot convert bad from GBK to UTF-8: The character that ends at byte 3, in line 2, is malformed'
printf 'ab\xd6' >short
run conv --from GBK --to UTF-8 short
expect_failure 'cannot convert short from GBK to UTF-8: The text ends within a character'
printf 'abc' >odd
run conv --from UCS-2LE --to GBK odd
expect_failure 'cannot convert odd from UCS-2LE to GBK: The text ends within a character'

run conv --from GBK --to UTF-8 none
expect_failure 'cannot read none: No such file or directory'
run conv --from GBK --to UTF-8 .
expect_failure 'cannot read .: Is a directory'
run conv --from UTF-8 --to GBK odd -o no/such/place
expect_failure 'cannot write no/such/place: No such file or directory'
run conv --from UTF-8 --to GBK odd -o /dev/full
expect_failure 'cannot write /dev/full: No space left on device'
