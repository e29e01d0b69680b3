#!/usr/bin/env bash
# Every command shows examples, and every example does what it says: all of them are run, in the order of the help texts, in a
# system of their own, where devices, semaphores and processes may be had for the asking; and before them those of the guide
# that need such a system. The manual page is made of both.
# shellcheck source-path=SCRIPTDIR source=support.sh
if [[ ${ZKQ_INSIDE:-} != yes ]]; then
    space=(unshare -nuipm --fork --mount-proc)
    if [[ $(id -u) -ne 0 ]]; then space=(unshare -rnuipm --fork --mount-proc); fi
    if ! "${space[@]}" sh -c 'mount -t sysfs sysfs /sys && ip link add v0 type veth && ip link add b0 type bridge' 2>/dev/null; then
        echo 'no namespaces here: the examples are not run'
        exit 77
    fi
    ZKQ_INSIDE=yes exec "${space[@]}" "$BASH" "$0"
fi
source "$(dirname "$0")/support.sh"
require_program python3
mount -t sysfs sysfs /sys

zkq() { # called by the examples
    "$ZKQ" "$@"
}

# What the examples find where they are run.
ip link set lo up
for device in eth0 eth1; do
    ip link add "$device" type veth peer name "peer-$device"
    ip link set "peer-$device" up
done
ip link add br9 type bridge
ip addr add 192.0.2.9/24 dev br9
ip link set br9 up
make_certificate root.pem
printf '[Server]\nPort = 80\nName = alpha\n[Paths]\nLog = /var/log\n' >server.ini
printf '[2026-01-02 03:04:05.006][Info ] up \n' >server.log
printf '\304\332\264\346\n' >names.txt
printf '\1\2\3' >key.bin
printf '\0\0\0\037\0\0\0\4\0\0\0\7\0\0\0\3ab\0\0\0\0\4\0\0\0\10\0\0\0\0' >server.packet
printf '\x30\x06\x01\x04\0\0\0\1' >record.der
printf '<cfg><server id="1"><port>80</port></server></cfg>' >cfg.xml
printf '{"server":{"host":"alpha"},"rows":[{"id":1},{"id":2}],"key":"00FF"}' >unit.json
echo hello >request
mkdir -p logs spool site/css downloads
echo '<h1>Hello</h1>' >site/index.html
echo 'h1 { color: red }' >site/css/main.css
python3 - >server.out 2>&1 <<'END' &
import http.server, socket

class Handler(http.server.BaseHTTPRequestHandler):
    def do_GET(self):
        self.send_response(200)
        self.send_header("Content-Length", "3")
        self.send_header("Content-Disposition", "attachment; filename=one.txt")
        self.end_headers()
        self.wfile.write(b"up\n")

    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        self.do_GET()

class Server(http.server.ThreadingHTTPServer):
    address_family = socket.AF_INET6

Server(("::", 8080), Handler).serve_forever()
END
servers+=($!)
wait_until "$ZKQ" http get 127.0.0.1:8080/up >out 2>&1

# What an example needs that the ones before it have not left.
prepare() {
    case $1 in
        'zkq proc find '* | 'zkq proc kill '*) wait_until "$ZKQ" proc find /usr/bin/sleep 1000 >/dev/null 2>&1 ;;
        'zkq net bridge stp br0 on') [[ -e /sys/class/net/br0 ]] || ip link add br0 type bridge ;;
        'zkq ipc sem lock 0x5a4b0001 '*) "$ZKQ" ipc sem create 0x5a4b0001 >out 2>&1 || true ;;
        'zkq ipc block lock 0x5a4b0003 0x5a4b0004 '*) "$ZKQ" ipc block create 0x5a4b0003 0x5a4b0004 4096 >out 2>&1 || true ;;
        'zkq net route set eth0 192.0.2.1')
            "$ZKQ" net set eth0 192.0.2.7 255.255.255.0
            "$ZKQ" net up eth0
            ;;
        'zkq net route set eth0 2001:db8::1') ip addr add 2001:db8::7/64 dev eth0 nodad ;;
        *' net connect 127.0.0.1 '*) wait_until grep -qs listening going-on-2 ;;
        *' net connect ::1 '*) wait_until grep -qs listening going-on-3 ;;
    esac
}

count=0
ends=0
run_example() {
    count=$((count + 1))
    prepare "$1"
    case $1 in
        'zkq net serve '* | 'zkq log tail -f '*) # these go on until they are ended
            ends=$((ends + 1))
            eval "exec ${1/#zkq/\"\$ZKQ\"}" >"going-on-$ends" 2>&1 &
            servers+=($!)
            return
            ;;
    esac
    rm -f out err # a program that goes on may still write to the last ones
    local answer=0
    eval "$1" >out 2>err </dev/null || answer=$?
    if ((answer != 0)) || [[ -s err ]]; then
        fail "the example \"$1\" ended with $answer: $(cat err)"
    fi
    [[ $1 != 'zkq file temp '* ]] || rm -f "$(cat out)"
    # Into a pipe or a file goes plain text.
    ! grep -q $'\x1b' out err || fail "\"$1\" steers a terminal that is not there"
}

# The guide's examples that its own test does not run: "text" shows what is printed, the others what may be.
printed=''
shown=''
while IFS= read -r line; do
    case $line in
        'text '[#$]' '*)
            run_example "${line:7}"
            printed+=$(echo "${line:5}" && cat out)$'\n'
            shown+=${line:5}$'\n'
            ;;
        'text '*) shown+=${line:5}$'\n' ;;
        ' '[#$]' '*) run_example "${line:3}" ;;
    esac
done < <(awk '/^```/ {inside = !inside; kind = substr($0, 4); next} inside && kind != "console" {print kind " " $0}' \
    "$ZKQ_SOURCE/docs/tool.md")
expect_equal "$printed" "$shown"
((count >= 20)) || fail 'the guide has lost its examples'

names_of() {
    "$ZKQ" "$@" --help | awk '/^Subcommands:/ {list = 1} list && /^  [a-z]/ {print $1}'
}

# Examples of a command's help, and of all below it.
run_all() {
    local name line found=0
    if [[ -n $(names_of "$@") ]]; then
        for name in $(names_of "$@"); do
            run_all "$@" "$name"
        done
        return
    fi
    while IFS= read -r line; do
        [[ $line == *"zkq $*"* ]] || fail "zkq $* has an example of something else: $line"
        run_example "${line#  }"
        found=1
    done < <("$ZKQ" "$@" --help | awk '/^Examples?:/ {list = 1; next} /^$/ {list = 0} list')
    ((found)) || fail "zkq $* --help has no example"
}

for group in $(names_of); do
    run_all "$group"
done
((count >= 120)) || fail "only $count examples"
expect_equal "$(cat out)" ''
[[ -s copy/css/main.css && -s backup/css/main.css && -s root.der && -s answer && -s sums ]] || fail 'an example left nothing'
expect_equal "$(cat answer)" hello
echo "$count examples"
