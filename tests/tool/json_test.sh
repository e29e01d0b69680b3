#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

sample() {
    printf '%s' '{"name":"Alpha \u00e9","n":-5,"f":1.5,"on":true,"none":null,"o":{"x":{"y":"deep"},"":1},"list":[1,"two",[3,4],{"a":5}],' \
        '"rows":[{"id":1,"name":"one"},{"id":2,"tag":{"x":[1,2]}},{"name":"a\nb","id":3}],"bin":"00ff7F","b64":"YWJj"}' >s.json
}

sample
run json get s.json name
expect_output 'Alpha é'
run json get s.json n
expect_output -5
run json get s.json f
expect_output 1.500000
run json get s.json on
expect_output true
run json get s.json none
expect_output null
run json get s.json o/x/y
expect_output deep
run json get s.json //o//x/y/
expect_output deep
run json get s.json o
expect_output '{' $'\t"x":{' $'\t\t"y":"deep"' $'\t},' $'\t"":1' '}'
run json get s.json list
expect_output '[1, "two", [3, 4], {' $'\t\t"a":5' $'\t}]'
run json get s.json bin --hex
expect_equal "$status$(od -An -tx1 out)" '0 00 ff 7f'
run json get s.json b64 --base64
expect_equal "$status$(cat out)" 0abc

# A path that is not there is told: no other value is printed in its place.
run json get s.json o/none/y
expect_failure 's.json: No "none" on the way to o/none/y'
run json get s.json Name
expect_failure 's.json: No "Name" on the way to Name'
run json get s.json list/0
expect_failure 's.json: No "0" on the way to list/0'
run json get s.json name/more
expect_failure 's.json: No "more" on the way to name/more'
run json array s.json none/list
expect_failure 's.json: No "list" on the way to none/list'
run json get s.json name --hex
expect_failure 'cannot decode name in s.json: Not a string of hexadecimal digits'
run json get s.json n --base64
expect_failure 'cannot decode n in s.json: Not a Base64 string'
run json get s.json o --hex --base64
expect_equal "$status" 2

# The first of several members of a name.
printf '{"a":1,"a":2}' >twice.json
run json get twice.json a
expect_output 1

# Arrays.
run json array s.json list
expect_output 1 two '[3, 4]' '{"a":5}'
run json array s.json rows
expect_output 'id  name    tag' '1   one' '2           {"x":[1, 2]}' '3   "a\nb"'
printf '[]' >empty.json
run json array empty.json ''
expect_silence
printf '[{},{}]' >empty.json
run json array empty.json ''
expect_equal "$status" 0
run json array s.json o
expect_failure 'cannot list o in s.json: Not an array'
run json array s.json name
expect_failure 'cannot list name in s.json: Not an array'

# Setting.
run json set new.json a/b text
expect_silence
expect_file new.json $'{\n\t"a":{\n\t\t"b":"text"\n\t}\n}'
run json set new.json a/n --int -7
expect_silence
run json set new.json h abc --hex
run json set new.json e abc --base64
run json set new.json empty ''
expect_file new.json $'{\n\t"a":{\n\t\t"b":"text",\n\t\t"n":-7\n\t},\n\t"h":"616263",\n\t"e":"YWJj",\n\t"empty":""\n}'
run json set new.json a gone
expect_silence
expect_file new.json $'{\n\t"a":"gone",\n\t"h":"616263",\n\t"e":"YWJj",\n\t"empty":""\n}'
cp new.json before.json
run json set new.json a/below x
expect_failure 'cannot set a/below in new.json: Something on the way is no object'
for number in x 1.5 2147483648 '' ' 1'; do
    run json set new.json n --int "$number"
    expect_failure "\"$number\": Not an integer of 32 bits"
done
run json set new.json n 1 --int --hex
expect_equal "$status" 2
cmp new.json before.json
sample
run json set s.json list/x y
expect_failure 'cannot set list/x in s.json: Something on the way is no object'
run json set s.json o/x/y new
run json get s.json o/x/y
expect_output new
ln -s s.json link.json
chmod 640 s.json
run json set link.json o/x/y linked
expect_silence
[[ -L link.json ]] || fail 'the link is gone'
expect_equal "$(stat -c %a s.json)" 640
run json get s.json o/x/y
expect_output linked

# What would be lost is told, and nothing is changed.
loses() {
    printf '%s' "$1" >lossy.json
    cp lossy.json before.json
    run json fmt lossy.json -o lossy.json
    expect_failure "cannot rewrite lossy.json: $2 (see --force)"
    run json set lossy.json a b
    expect_failure "cannot rewrite lossy.json: $2 (see --force)"
    cmp lossy.json before.json
    run json fmt lossy.json --force
    expect_equal "$status" 0
}
rest='Something follows its first value, or a string in it has no end'
for text in '{} x' '{}{}' '{}]' '{}}' '{} ] x' '{} } x' '{},' '{},{}' '{},"a":1' '{}, "a":1 ] x' '{},"a":1} x' 'nullx' '"abc'; do
    loses "$text" "$rest"
done
loses '{"a":1.23456789}' 'The number 1.23456789 would become 1.234568'
loses '{"s":"1.23456789","a":[12345678901.5]}' 'The number 12345678901.5 would become 1.234568e+10'
printf '{"a":1}\n \n' >kept.json
run json fmt kept.json
expect_output '{' $'\t"a":1' '}'
printf '{"a":1}\0 x' >nul.json
run json fmt nul.json
expect_failure 'cannot read nul.json: The file holds NUL bytes and is no text'

# Formatting.
printf '{"a":[1,2],"b":{}}' >f.json
run json fmt f.json
expect_output '{' $'\t"a":[1, 2],' $'\t"b":{}' '}'
run json fmt f.json -o g.json
expect_silence
run json fmt g.json -o g.json
expect_silence
expect_file g.json $'{\n\t"a":[1, 2],\n\t"b":{}\n}'

# Files that are none, and full disks.
for command in 'get none.json a' 'array none.json a' 'fmt none.json'; do
    # shellcheck disable=SC2086
    run json $command
    expect_failure 'cannot read none.json: No such file or directory'
done
printf '{"a":1,}' >bad.json
for command in 'get bad.json a' 'array bad.json a' 'fmt bad.json' 'set bad.json a b' 'set bad.json a b --force'; do
    # shellcheck disable=SC2086
    run json $command
    expect_failure 'cannot read bad.json: Not a JSON text'
done
run json set no/such.json a b
expect_failure 'cannot write no/such.json: No such file or directory'
cp f.json before.json
run_on_full_disk json set f.json a b
expect_failure 'cannot write f.json: File too large'
cmp f.json before.json
expect_equal "$(find . -name 'f.json.*')" ''

# Deep and hostile files.
printf '%0200000d' 0 | tr 0 '[' >deep.json
run json get deep.json a
expect_failure 'cannot read deep.json: Not a JSON text'
printf '%0200000d' 0 | tr 0 ']' >>deep.json
run json fmt deep.json
expect_equal "$status$(wc -c <out)" 0400001
head -c 100000 /dev/urandom >random.json
run json get random.json a
expect_equal "$status" 1

# Wrong usage.
run json
expect_usage 'subcommand is required'
run json get
expect_usage 'FILE is required'
run json set s.json a
expect_usage VALUE
run json get s.json a --nothing
expect_usage --nothing

# A real document, with another reader as a judge.
real=/usr/share/iso-codes/json/iso_639-3.json
if [[ -e $real ]] && command -v python3 >/dev/null; then
    run json fmt "$real" -o real.json
    expect_silence
    python3 -c 'import json, sys; a, b = (json.load(open(f, encoding="utf-8")) for f in sys.argv[1:]); sys.exit(a != b)' "$real" real.json ||
        fail 'another reader sees something else'
    run json array "$real" 639-3
    expect_equal "$status" 0
    python3 - "$real" <<'CHECK' || fail 'the table is not that of another reader'
import json, sys
rows = json.load(open(sys.argv[1], encoding="utf-8"))["639-3"]
lines = open("out", encoding="utf-8").read().split("\n")
assert len(lines) == len(rows) + 2, (len(lines), len(rows))
for row, line in zip(rows, lines[1:]):
    for value in row.values():
        assert value in line, (value, line)
CHECK
else
    echo "no $real or no python3 here: real documents are not tested"
fi
