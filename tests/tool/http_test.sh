#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"
require_program python3

start_server python3 "$ZKQ_SOURCE/tests/tool/http_server.py"
url=http://127.0.0.1:$port
bad='Bad message: The answer is not a good one with the code 200'

# To standard output.
run http get "$url/hello"
expect_output hello
run http get "127.0.0.1:$port/moved"
expect_output hello
run http get "$url/empty"
expect_silence
run http get "$url/binary"
expect_equal "$status" 0
python3 -c 'import sys; sys.stdout.buffer.write(bytes(range(256)) * 100)' | cmp - out
run http get "$url/missing"
expect_failure "cannot get $url/missing: $bad"
run http get "$url/short"
expect_equal "$status$(cat out)" 1
closed='(Socket已经关闭！|Connection reset by peer)' # before somebody waited for more, or after
grep -qxE "zkq: cannot get $url/short: $closed" err || fail 'not the reason'
run http get --timeout 1 "$url/silent"
expect_failure "cannot get $url/silent: Timer expired"
run http get gopher://127.0.0.1/x
expect_failure 'cannot get gopher://127.0.0.1/x: Function not implemented'
run http get "$url/he"$'\r\n'"llo"
expect_equal "$status" 1
run http get ''
expect_failure 'cannot get : Invalid argument'
run http get "$url/hello" -o /dev/full
expect_failure 'cannot write /dev/full: No space left on device'
status=0
"$ZKQ" http get "$url/hello" >/dev/full 2>err || status=$?
expect_equal "$status$(cat err)" '1zkq: cannot write to standard output: No space left on device'
status=0
"$ZKQ" http get "$url/hello" >&- 2>err || status=$?
expect_equal "$status$(cat err)" '1zkq: cannot write to standard output: Bad file descriptor'
# A reader that has seen enough ends the tool quietly.
"$ZKQ" http get "$url/slow" 2>err | head -c 1 >out || true
expect_equal "$(cat out err)" s

# To a file, which is replaced when the new one is complete.
run http get "$url/hello" -o new.txt
expect_silence
expect_file new.txt hello
echo old >old.txt
chmod 640 old.txt
ln -s old.txt link.txt
run http get "$url/missing" -o old.txt
expect_failure "cannot get $url/missing: $bad"
run http get "$url/short" -o old.txt
expect_equal "$status" 1
expect_file old.txt old
run http get "$url/hello" -o link.txt
expect_silence
expect_file old.txt hello
expect_equal "$(stat -c %a old.txt)" 640
[[ -L link.txt ]] || fail 'the link is gone'
run http get "$url/empty" -o old.txt
expect_silence
expect_equal "$(stat -c %s old.txt)" 0
run http get "$url/binary" --output binary
python3 -c 'import sys; sys.stdout.buffer.write(bytes(range(256)) * 100)' | cmp - binary
run http get "$url/hello" -o no/such
expect_failure 'cannot write into no: No such file or directory'
mkfifo pipe
cat pipe >piped &
reader=$!
run http get "$url/hello" -o pipe
expect_silence
wait "$reader"
expect_file piped hello
[[ -p pipe ]] || fail 'the pipe is gone'
run_on_full_disk http get "$url/hello" -o new.txt
expect_failure "cannot get $url/hello: File too large"
expect_file new.txt hello

# To a directory, under the server's name.
mkdir files
run http get "$url/named" -o files
expect_output files/report.txt
expect_file files/report.txt 'a file'
run http get "$url/chinese" -o files/
expect_output files/报告.txt
expect_file files/报告.txt 'a file'
echo kept >files/report.txt
run http get "$url/named" -o files
expect_failure 'cannot write files/report.txt: File exists'
expect_file files/report.txt kept
for path in hello climbing; do
    run http get "$url/$path" -o files
    expect_failure "cannot get $url/$path: $bad, or names no file"
done
run http get "$url/unnamed-empty" -o files
expect_failure 'cannot write into files: The server has given the file no name'
expect_equal "$(find . -name 'climbed*')" ''
expect_equal "$(find . -name '.zkq*')" ''

# Posts.
run http post "$url/echo" --data 'a=1&b=%20'
expect_equal "$status$(cat out)" '0application/x-www-form-urlencoded'$'\n''a=1&b=%20'
run http post "$url/echo" --data '{"a":1}' --type application/json
expect_equal "$status$(cat out)" '0application/json'$'\n''{"a":1}'
run http post "$url/echo" --data x --type 'Content-Type: text/xml; charset=GBK'
expect_equal "$status$(cat out)" '0text/xml; charset=GBK'$'\n''x'
run http post "$url/echo"
expect_equal "$status$(cat out)" 0application/x-www-form-urlencoded
head -c 300000 /dev/urandom | base64 >body
run http post "$url/echo" --data @body --type text/plain -o answer
expect_silence
{ echo text/plain && cat body; } | cmp - answer
status=0
"$ZKQ" http post "$url/echo" --data @- --type text/plain <body >out 2>err || status=$?
expect_equal "$status$(cat err)" 0
cmp out answer
run http post "$url/echo" --data @none
expect_failure 'cannot read none: No such file or directory'
run http post "$url/echo" --data @
expect_failure 'cannot read the data: No file is named behind "@"'
printf 'a\0b' >nul
run http post "$url/echo" --data @nul
expect_failure 'cannot post nul: It holds NUL bytes and is no text'
run http post "$url/echo" --data x --type $'X: 1\r\nY: 2'
expect_failure "cannot post to $url/echo: Invalid argument"
run http post "$url/missing" --data x
expect_equal "$status" 0 # every post is echoed
run http get "$url/hello" --data x
expect_usage --data

# On a terminal what takes its time is told, and wiped away.
if has_terminal; then
    on_terminal '' "$ZKQ" http get "$url/slow" -o slow
    expect_equal "$status" 0
    expect_equal "$(stat -c %s slow)" 500000
    grep -qE 'received [0-9.]+ [KM]B, [0-9.]+ [KM]B/s' out || fail 'nothing is told'
    expect_equal "$(tail -c 4 out | od -An -tx1)" ' 0d 1b 5b 4b'
    on_terminal '' "$ZKQ" http get "$url/hello" -o quick
    expect_equal "$status$(cat out)" 0
fi
run http get "$url/slow" -o slow
expect_silence

# Who interrupts it finds nothing left.
"$ZKQ" http get "$url/silent" -o interrupted 2>err &
child=$!
wait_until compgen -G '.zkq-*' >/dev/null
kill "$child"
status=0
wait "$child" || status=$?
expect_equal "$status" 143
expect_equal "$(find . -name '.zkq*' -o -name interrupted)" ''

# Another server, and one that is not there.
mkdir site
head -c 3000000 /dev/urandom >site/large
dead=$port
kill "$server"
wait "$server" 2>/dev/null || true
run http get "http://127.0.0.1:$dead/hello"
expect_failure "cannot get http://127.0.0.1:$dead/hello: Connection refused"
start_server python3 -u -m http.server --bind 127.0.0.1 --directory site 0
run http get "http://localhost:$port/large" -o large
expect_silence
cmp large site/large

# URLs in parts.
run http url 'http://[::1]:8080/a?b=c'
expect_output 'protocol http' 'server ::1' 'port 8080' 'path /a?b=c'
run http url example.org
expect_output 'protocol HTTP' 'server example.org' 'port 80' 'path /'
run http url ''
expect_failure 'cannot take apart : Invalid argument'
run http url gopher://x/
expect_failure 'cannot take apart gopher://x/: Function not implemented'

# Wrong usage.
run http
expect_usage 'subcommand is required'
run http get
expect_usage 'URL is required'
run http get x --timeout -1
expect_usage --timeout
run http get x --timeout soon
expect_usage --timeout
