#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

stamp='\[[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\.[0-9]{3}\]'

# The only line of a log is a record with this tag and text.
expect_record() {
    [[ $(wc -l <"$1") == 1 ]] || fail "not one line in $1: $(cat "$1")"
    grep -qE "^$stamp$2 \$" "$1" || fail "$1 holds: $(cat "$1")"
}

# Switches, in both forms.
mkdir logs
run log level --dir logs demo
expect_output 'demo: 0 (off)'
while read -r levels shown; do
    run log level --dir logs demo "$levels"
    expect_silence
    run log level --dir logs demo
    expect_output "demo: $shown"
done <<'END'
warn,error 12 (warn,error)
off 0 (off)
all -1 (all)
-1 -1 (all)
5 5 (debug,warn)
15 15 (debug,info,warn,error)
info 2 (info)
18 18 (info,other)
-2147483648 -2147483648 (other)
END
run log level --dir logs allapp error
run ini get logs/tamor.ini applog allapp
expect_output 8
run log level --dir logs allapp off
run log level --dir none demo
expect_failure 'none: No such file or directory'
run log level --dir none demo all
expect_failure 'none: No such file or directory'
run log level --dir logs/tamor.ini demo
expect_failure 'logs/tamor.ini: Not a directory'
for levels in loud 'warn,' ',warn' '' 2147483648 12x; do
    run log level --dir logs demo "$levels"
    expect_usage 'is not off, all, a list'
done
mkdir broken
printf '[applog\ndemo=1\n' >broken/tamor.ini
run log level --dir broken demo
expect_equal "$status" 1

# Writing through the switch.
run log level --dir logs demo warn,error
run log write --dir logs --project demo --level info not this one
expect_silence
[[ ! -e logs/demo.log || ! -s logs/demo.log ]] || fail 'written against the switch'
run log write --dir logs --project demo --level warn disk is 100% full, '[a,b]'
expect_silence
expect_record logs/demo.log '\[Warn \] disk is 100% full, \[a,b\]'
rm logs/demo.log
run log write --dir logs --project demo --level error -- --text -n
expect_silence
expect_record logs/demo.log '\[Error\] --text -n'
rm logs/demo.log
run log write --dir logs --project demo --level debug --force forced
expect_silence
expect_record logs/demo.log '\[Debug\] forced'
rm logs/demo.log
long=$(printf '%20000d' 7)
run log write --dir logs --project demo --force "$long"
grep -qF "[Info ] $long " logs/demo.log || fail 'a long record was cut'
(
    cd logs
    "$ZKQ" log write --force by default
    expect_record zkq.log '\[Info \] by default'
)

# On a terminal, a record that the switch held back is told.
if has_terminal; then
    on_terminal '' "$ZKQ" log write --dir logs --project demo --level info not this one
    expect_equal "$status" 0
    grep -q 'zkq: not written: info is switched off for demo in logs' out || fail 'nothing told'
fi

# The shared log, for a project that is off itself.
run log level --dir logs demo off
run log level --dir logs allapp info
run log write --dir logs --project demo shared
expect_silence
shared=(logs/zkq\[*\].log)
expect_equal "${#shared[@]}" 1
[[ -f ${shared[0]} ]] || fail 'no shared log'
grep -qE "^$stamp\[TID: [0-9A-F]+\]\[demo\]\[Info \] shared \$" "${shared[0]}" || fail "$(cat "${shared[0]}")"
run log level --dir logs allapp off

# A record that cannot be written is a failure.
run log write --dir none --force text
expect_failure 'none: No such file or directory'
mkdir logs/dir.log
run log write --dir logs --project dir --force text
expect_failure 'cannot write logs/dir.log: The record did not reach the log'
run log write --dir logs --project "$(printf '%032d' 1)" --force text
expect_failure "cannot log as $(printf '%032d' 1) in logs: Invalid argument"
run log write --dir logs --level loud text
expect_usage loud
run log write --dir logs
expect_usage TEXT

# The end of a log.
seq 1 100000 >numbers
run log tail numbers
expect_output 99991 99992 99993 99994 99995 99996 99997 99998 99999 100000
run log tail -n 2 numbers
expect_output 99999 100000
run log tail --lines 0 numbers
expect_silence
run log tail -n 200000 numbers
cmp numbers out || fail 'not the whole log'
run log tail -n 100000 numbers
cmp numbers out || fail 'not the whole log'
run log tail -n 99999 numbers
expect_equal "$(head -n 1 out) $(wc -l <out)" '2 99999'
printf 'one\n\ntwo\nthree' >unfinished
run log tail -n 2 unfinished
expect_equal "$(cat out)" $'two\nthree'
run log tail -n 3 unfinished
expect_equal "$(cat out)" $'\ntwo\nthree'
: >nothing
run log tail nothing
expect_silence
run log tail none.log
expect_failure 'cannot read none.log: No such file or directory'
run log tail logs
expect_failure 'cannot read logs: Is a directory'
run log tail /dev/null
expect_failure 'cannot read /dev/null: Not a regular file'
run log tail -n x numbers
expect_usage x
run log tail -n -1 numbers
expect_equal "$status" 2

# Bytes pass as they are unless they are said to be GBK.
printf 'a \xc4\xda\xb4\xe6 b\xff\n' >gbk.log
run log tail gbk.log
cmp gbk.log out || fail 'bytes have changed'
run log tail --gbk gbk.log
expect_output 'a 内存 b?'

# The library's own log, "general", lies beside the working directory and is made when the library is loaded.
mkdir -p own/app own/log
run log level --dir own/log general error
(cd own/app && "$ZKQ" --version >/dev/null)
[[ -f own/log/general.log ]] || fail 'the library has not made its log'
expect_equal "$(stat -c '%a %s' own/log/general.log)" '666 0'
run log level --dir own/log general off
rm own/log/general.log
(cd own/app && "$ZKQ" --version >/dev/null)
[[ ! -e own/log/general.log ]] || fail 'the library has made a log that is off'
