#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

sample() {
    printf '%s\n' 'top = 0' '[Server]' '; where to listen' 'Port = 8080' 'name = a = b' 'empty =' '' '[Paths]' 'log=/var/log' >s.ini
}

sample
run ini get s.ini Server Port
expect_output 8080
run ini get s.ini server PORT
expect_output 8080
run ini get s.ini Server name
expect_output 'a = b'
run ini get s.ini '' top
expect_output 0
run ini get s.ini Server empty
expect_output ''
expect_equal "$(wc -c <out)" 1
run ini get s.ini Server empty --default x
expect_output ''

# A key that is not there, whatever a default may look like.
run ini get s.ini Server none
expect_failure 's.ini: No key "none" in section [Server]'
run ini get s.ini None Port
expect_failure 's.ini: No key "Port" in section [None]'
run ini get s.ini Server none --default -
expect_output -
run ini get s.ini Server none --default ''
expect_output ''
run ini get s.ini Server none --default=
expect_output ''
run ini get --default=-5 s.ini Server none
expect_output -5

# Names of commands, lists and options are names like others.
printf '%s\n' '[keys]' 'get=1' '[[a,b]' '--x=3' >odd.ini
run ini get odd.ini keys get
expect_output 1
run ini get odd.ini '[a,b' -- --x
expect_output 3
run ini set odd.ini sections ini '[p,q]'
expect_silence
run ini get odd.ini sections ini
expect_output '[p,q]'

# Lists.
run ini sections s.ini
expect_output Server Paths
run ini keys s.ini server
expect_output Port name empty
run ini keys s.ini ''
expect_output top
run ini keys s.ini None
expect_failure 's.ini: No section [None]'
printf '[none]\n' >bare.ini
run ini keys bare.ini none
expect_silence
run ini sections /dev/null
expect_equal "$status" 1

# Lists longer than any fixed buffer, with an empty name among them.
{
    for ((i = 0; i < 3000; ++i)); do printf '[a rather long section name, number %d]\n' "$i"; done
    printf '[]\n[last]\n'
    for ((i = 0; i < 3000; ++i)); do printf 'a rather long key name, number %d = %d\n' "$i" "$i"; done
} >long.ini
run ini sections long.ini
expect_equal "$(wc -l <out) $(sed -n 3000p out) $(tail -n 1 out)" '3002 a rather long section name, number 2999 last'
run ini keys long.ini last
expect_equal "$(wc -l <out) $(tail -n 1 out)" '3000 a rather long key name, number 2999'
printf '[%4000d]\n[%4000d]\n' 1 2 >wide.ini
run ini sections wide.ini
expect_equal "$(wc -lc <out | tr -s ' ')" ' 2 8002'

# Setting.
rm -f new.ini
run ini set new.ini A k 'some text'
expect_silence
expect_file new.ini $'[A]\nk = some text'
run ini set new.ini A k ' 2 '
expect_silence
run ini set new.ini B empty ''
expect_silence
expect_file new.ini $'[A]\nk = 2\n[B]\nempty = '
run ini set new.ini A n -5
run ini get new.ini A n
expect_output -5
run ini set s.ini Server Port 9090
expect_silence
run ini get s.ini Server Port
expect_output 9090
grep -qx '; where to listen' s.ini || fail 'the comment is gone'
run ini set no/such/dir.ini A k v
expect_failure 'cannot write no/such/dir.ini: No such file or directory'

# What the syntax cannot hold is refused and changes nothing.
sample
before=$(cat s.ini)
for odd in $'a\n[b]' $'a\rb'; do
    run ini set s.ini Server Port "$odd"
    expect_failure 'cannot set [Server] Port: The file'\''s syntax has no way to hold this'
done
for key in 'a=b' '#c' ';c' '[k' $'a\nb'; do
    run ini set s.ini Server "$key" v
    expect_equal "$status" 1
done
run ini set s.ini 'a]b' k v
expect_equal "$status" 1
run ini set s.ini Server k "$(printf '%04096d' 1)"
expect_equal "$status" 1
expect_equal "$(cat s.ini)" "$before"

# Deleting.
run ini del s.ini Server Port
expect_silence
run ini keys s.ini Server
expect_output name empty
run ini del s.ini Server none
expect_silence
run ini del s.ini server
expect_silence
run ini sections s.ini
expect_output Paths
grep -qx '; where to listen' s.ini || fail 'the comment is gone'
run ini del s.ini ''
expect_failure 'cannot delete section [] of s.ini: Invalid argument'
run ini del s.ini '' top
run ini keys s.ini ''
expect_silence
printf '[S]\n-k=1\n' >dash.ini
run ini del dash.ini S -- -k
expect_silence
expect_file dash.ini '[S]'

# Through links, whose own length is not that of the file.
sample
ln -s s.ini link.ini
run ini get link.ini Paths log
expect_output /var/log
run ini set link.ini Paths log /tmp
run ini del link.ini Server name
[[ -L link.ini ]] || fail 'the link is gone'
run ini get s.ini Paths log
expect_output /tmp
run ini get s.ini Server empty
expect_output ''

# Missing files, directories, and files that are none.
for command in 'get none.ini S k' 'get none.ini S k --default x' 'sections none.ini' 'keys none.ini S' 'del none.ini S' \
    'del none.ini S k'; do
    # shellcheck disable=SC2086
    run ini $command
    expect_failure 'cannot read none.ini: No such file or directory'
done
[[ ! -e none.ini ]] || fail 'a failed command created a file'
run ini get . S k
expect_failure 'cannot read .: Is a directory'
run ini get /dev/null S k
expect_failure 'cannot read /dev/null: Not a regular file'
run ini get /proc/cpuinfo '' processor
expect_failure 'cannot read /proc/cpuinfo: The file does not tell its length'
: >empty.ini
run ini sections empty.ini
expect_silence
run ini set empty.ini S k v
expect_silence

# A malformed file is told, and kept as it is.
printf '[S]\nk=1\n[broken\nx=2\n' >bad.ini
cp bad.ini bad.copy
run ini get bad.ini S k
expect_output 1
for command in 'get bad.ini S x' 'sections bad.ini' 'keys bad.ini S' 'set bad.ini S k 2' 'del bad.ini S k' 'del bad.ini S'; do
    # shellcheck disable=SC2086
    run ini $command
    expect_failure 'bad.ini: a section header without "]" or a line that is too long: Invalid argument'
done
printf '[S]\nk=1\n%5000d\n' 1 >bad.ini
run ini set bad.ini S k 2
expect_failure 'bad.ini: a section header without "]" or a line that is too long: Invalid argument'
printf '[S]\nk=1\n\0[T]\nx=1\n' >bad.ini
run ini set bad.ini S k 2
expect_failure 'cannot change bad.ini: The file holds NUL bytes and is no text'

# A full disk.
sample
run_on_full_disk ini set s.ini A k v
expect_failure 'cannot write s.ini: File too large'
sample
run_on_full_disk ini del s.ini Paths log
expect_failure 'cannot write s.ini: File too large'

# Wrong usage.
run ini get
expect_usage 'FILE is required'
run ini get s.ini S
expect_usage KEY
run ini get s.ini S k more
expect_usage more
run ini get s.ini S k --defualt x
expect_usage --defualt
run ini set s.ini S k
expect_usage VALUE
run ini
expect_usage 'subcommand is required'
run ini nothing
expect_usage nothing
