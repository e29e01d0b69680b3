#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# Prints exactly what md5sum prints about the same files.
expect_as_md5sum() {
    run md5 "$@"
    expect_equal "$status$(cat err)" 0
    md5sum -- "$@" | cmp - out || fail 'md5sum prints something else'
}

head -c 1000000 /dev/urandom >noise
: >empty
for size in $(seq 0 200); do
    head -c "$size" noise >"size $size"
done
expect_as_md5sum noise empty size*
expect_as_md5sum /etc/passwd /bin/bash "$ZKQ"
expect_as_md5sum ./noise "$work/noise"

# Links, pipes and files that claim no length have the digest of what a reader sees.
ln -s noise link
expect_as_md5sum link /proc/version
run md5 <(printf abc)
expect_equal "$(cut -c 1-32 out)" 900150983cd24fb0d6963f7d28e17f72
expect_equal "$(printf abc | "$ZKQ" md5)" '900150983cd24fb0d6963f7d28e17f72  -'
expect_equal "$(printf abc | "$ZKQ" md5 -)" '900150983cd24fb0d6963f7d28e17f72  -'

# Odd names.
for name in 'a b' ' x' '*x' $'new\nline' 'back\slash' $'return\rx' '中文' $'\\\n' '[a]' '"q"' $'tab\tx'; do
    printf '%s' "$name" >"$name"
    expect_as_md5sum "$name"
    run md5 "$name"
    cp out list
    run md5 --check list
    expect_equal "$status" 0
    (md5sum --check list 2>/dev/null || true) | cmp - out || fail 'md5sum --check prints something else'
done
printf x >-dash
run md5 -- -dash
expect_output "$(md5sum -- -dash)"

# Failures do not keep the others from being digested.
run md5 none empty . noise
expect_equal "$status" 1
md5sum empty noise | cmp - out || fail 'the others are not digested'
expect_equal "$(cat err)" $'zkq: cannot read none: No such file or directory\nzkq: cannot read .: Is a directory'

# Checking.
md5sum noise empty 'size 3' >list
run md5 --check list
expect_output 'noise: OK' 'empty: OK' 'size 3: OK'
run md5 --check --quiet list
expect_silence
run md5 --check --status list
expect_silence
run md5 --check - # standard input is empty
expect_failure 'standard input: No checksum line found'
expect_equal "$("$ZKQ" md5 --check <list)" $'noise: OK\nempty: OK\nsize 3: OK'

printf x >>empty
rm 'size 3'
run md5 --check list
expect_equal "$status" 1
expect_equal "$(cat out)" "$(md5sum --check list 2>/dev/null)"
expect_equal "$(cat out)" $'noise: OK\nempty: FAILED\nsize 3: FAILED open or read'
expect_equal "$(cat err)" 'zkq: cannot read size 3: No such file or directory
zkq: WARNING: 1 listed file could not be read
zkq: WARNING: 1 computed checksum did NOT match'
run md5 --check --quiet list
expect_equal "$status$(cat out)" $'1empty: FAILED\nsize 3: FAILED open or read'
run md5 --check --status list
expect_equal "$status$(cat out)" 1

# Forms of lines.
hex=$(md5sum noise | cut -c 1-32)
{
    printf '%s *noise\n' "$hex"
    printf '%s  noise\r\n' "${hex^^}"
    printf 'MD5 (noise) = %s\n' "$hex"
    printf '# a comment\n'
    printf ' \t%s  noise\n' "$hex"
    printf '%s  noise' "$hex" # no line feed
} >list
run md5 --check list
expect_output 'noise: OK' 'noise: OK' 'noise: OK' 'noise: OK' 'noise: OK'
cmp <(md5sum --check list) out || fail 'md5sum takes other lines'
printf '%s noise\n%s\tnoise\n' "$hex" "$hex" >list
run md5 --check list
expect_output 'noise: OK' 'noise: OK'
cmp <(md5sum --check list) out || fail 'md5sum takes other lines'
printf '%s\n' "${hex:1}  noise" "$hex" "$hex " "x${hex:1}  noise" "\\$hex  a\\x" '' "$hex  noise" "$hex   noise" >list
run md5 --check list
expect_equal "$status$(cat out)" $'1noise: OK\n noise: FAILED open or read'
grep -q '^zkq: WARNING: 6 lines are no checksum lines$' err || fail 'lines are not counted'
(md5sum --check list 2>/dev/null || true) | cmp - out || fail 'md5sum takes other lines'
printf 'nothing\n' >list
run md5 --check list
expect_failure 'list: No checksum line found'
run md5 --check none list
expect_equal "$status" 1
expect_equal "$(cat err)" $'zkq: cannot read none: No such file or directory\nzkq: list: No checksum line found'

run md5 --quiet noise
expect_usage --check
run md5 --status noise
expect_usage --check
