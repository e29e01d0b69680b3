#!/usr/bin/env bash
# The agent of the examples sees what happens to copies of real files, its dump is what od shows, and what it posts arrives.
set -euo pipefail
agent=$1 zkq=$2 collector=$(dirname "$0")/../../examples/collector.py
work=$(mktemp -d)
servers=()
finish() {
    local id
    for id in "${servers[@]}"; do
        kill "$id" 2>/dev/null || continue # it has ended
        wait "$id" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap finish EXIT
mkdir "$work/files" "$work/log"
cp -L /etc/passwd "$work/files/changing"
cp -L /etc/passwd "$work/files/going"

"$zkq" ini set "$work/agent.ini" agent directory "$work/files"
"$zkq" ini set "$work/agent.ini" agent log "$work/log"
"$zkq" ini set "$work/agent.ini" agent rounds 40
"$zkq" ini set "$work/agent.ini" agent interval 100
"$zkq" ini set "$work/agent.ini" agent ignore ".tmp, .swp"
"$zkq" ini set "$work/agent.ini" agent head 32
"$zkq" ini set "$work/agent.ini" agent archive "$work/files.cab"
"$zkq" ini set "$work/agent.ini" agent state "$work/state.xml"
"$zkq" log level --dir "$work/log" agent all

# await TEXT: reads what the agent shows until a line holds the text
await() {
    local line
    while IFS= read -r -t 20 line <&3; do
        echo "$line" >>"$work/shown"
        case $line in *"$1"*) return 0 ;; esac
    done
    echo "agent: it never said \"$1\""
    exit 1
}

exec 3< <("$agent" "$work/agent.ini")
agent_process=$!
await "round 1: 2 files"
uname -a >>"$work/files/changing"
touch "$work/files/ignored.tmp"
await "changed: changing"
await "head of changing [Length: $(stat -c %s "$work/files/changing")]"
await "000: $(od -An -tx1 -N16 "$work/files/changing" | sed 's/^ //')"
await "010: $(od -An -tx1 -j16 -N16 "$work/files/changing" | sed 's/^ //')"
rm "$work/files/going"
await "gone: going"
uname -a >"$work/files/coming"
await "new: coming, $(stat -c %s "$work/files/coming") bytes"
await "round 40: 2 files"
await "packed: 0%"
await "packed: 100%"
await "2 files are in $work/files.cab, with their digests"
await "done"
cat <&3 >>"$work/shown"
wait "$agent_process"

diff "$work/shown" "$work/log/agent.log"
[ ! -e "$work/files.cab.check" ] || { echo "agent: it left what it checked"; exit 1; }
"$zkq" cab test -q "$work/files.cab" >/dev/null
"$zkq" cab extract -q "$work/files.cab" -d "$work/unpacked"
rm "$work/files/ignored.tmp"
diff -r "$work/files" "$work/unpacked"
if grep -q ignored.tmp "$work/shown"; then
    echo "agent: it saw what it was to ignore"
    exit 1
fi
for level in Debug "Info " "Warn " Error; do
    grep -qF "[$level] " "$work/log/agent.log" || { echo "agent: nothing at level $level"; exit 1; }
done

# Its state is XML that another reader understands, and the next run tells what has happened in between.
"$zkq" xml get "$work/state.xml" '/agent/file[name=coming]' --attribute size >"$work/size"
[ "$(cat "$work/size")" = "$(stat -c %s "$work/files/coming")" ] || { echo "agent: a wrong size in its state"; exit 1; }
odd='odd "<&>'\'' name'
echo x >"$work/files/$odd"
rm "$work/files/coming"
uname -a >>"$work/files/changing"
"$zkq" ini set "$work/agent.ini" agent rounds 1
run_again() {
    rm "$work/log/agent.log"
    "$agent" "$work/agent.ini"
}
run_again >"$work/second"
for text in "gone: coming" "changed: changing" "new: $odd, 2 bytes" "round 1: 2 files"; do
    grep -qF "$text" "$work/second" || { echo "agent: the second run never said \"$text\""; exit 1; }
done
run_again >"$work/third"
if grep -E "gone|changed|new:" "$work/third"; then
    echo "agent: the third run saw what was not there"
    exit 1
fi
if python3 -c 'import xml.etree' 2>/dev/null; then
    python3 - "$work/state.xml" "$odd" <<'END'
import sys
import xml.etree.ElementTree as tree
names = sorted(f.get("name") for f in tree.parse(sys.argv[1]).getroot())
sys.exit(names != sorted(["changing", sys.argv[2]]) and "agent: its state names %s" % names)
END
else
    echo "agent: no python3 here, its state is not judged"
fi
echo "<broken" >"$work/state.xml"
run_again >"$work/fourth"
grep -qF "cannot understand $work/state.xml" "$work/fourth" || { echo "agent: it took a broken state"; exit 1; }
"$zkq" xml get "$work/state.xml" '/agent/file[name=changing]' --attribute size >"$work/size"
# Its cabinet reaches a collector, which says so.
if ! python3 -c 'import http.server' 2>/dev/null; then
    echo "agent: it saw everything; no python3 here, so it has posted nothing"
    exit 0
fi
# start_server KEY PROGRAM ARGUMENT...: a server that prints its address, which the agent is told under the key
start_server() {
    local key=$1 i
    shift
    : >"$work/url"
    "$@" >"$work/url" &
    servers+=($!)
    for ((i = 0; i < 500; ++i)); do
        [ ! -s "$work/url" ] || break
        sleep 0.02
    done
    "$zkq" ini set "$work/agent.ini" agent "$key" "$(cat "$work/url")"
}
mkdir "$work/collected"
start_server collector python3 "$collector" "$work/collected"
for run in 1 2; do
    run_again >"$work/posted"
    size=$(stat -c %s "$work/files.cab")
    grep -qF "the collector has stored $size bytes, with our digest" "$work/posted" ||
        { echo "agent: it never said that its cabinet was stored"; cat "$work/posted"; exit 1; }
    [ "$(md5sum <"$work/files.cab")" = "$(md5sum <"$work/collected/$run.cab")" ] ||
        { echo "agent: something else was stored"; exit 1; }
done

# refuses TEXT: the agent fails, and tells why
refuses() {
    local status=0
    run_again >"$work/refused" || status=$?
    if ! grep -qF "$1" "$work/refused" || ! grep -q "given up" "$work/refused" || [ "$status" != 1 ]; then
        echo "agent: status $status, and it never said \"$1\""
        cat "$work/refused"
        exit 1
    fi
}
cat >"$work/liar.py" <<'END'
import http.server, sys
class Liar(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        self.rfile.read(int(self.headers["Content-Length"]))
        self.send_response(int(sys.argv[1]))
        self.end_headers()
        self.wfile.write(sys.argv[2].encode())
    def log_message(self, *args):
        pass
server = http.server.HTTPServer(("127.0.0.1", 0), Liar)
print("http://127.0.0.1:%d/" % server.server_port, flush=True)
server.serve_forever()
END
lie() {
    start_server collector python3 "$work/liar.py" "$@"
}
lie 200 '{"stored": 5, "md5": "900150983cd24fb0d6963f7d28e17f72"}'
refuses "the collector has something else"
lie 200 '{"stored": 5, "md5": "9001"}'
refuses "the collector has something else"
lie 200 '{"stored": 5}'
refuses "the collector has something else"
lie 200 'no JSON'
refuses "the collector's answer is not JSON"
lie 200 ''
refuses "the collector has said nothing"
lie 500 ''
refuses "cannot post the cabinet: Bad message"
kill "${servers[-1]}"
wait "${servers[-1]}" 2>/dev/null || true
refuses "cannot post the cabinet: Connection refused"
"$zkq" ini set "$work/agent.ini" agent archive ""

# Its inventory is what other programs see, and reaches a reporter, who must know how much there was in it.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 9 -utf8 -subj "/CN=演示" \
    -keyout "$work/key.pem" -out "$work/agent.pem" 2>/dev/null
start_server reporter python3 "$(dirname "$collector")/reporter.py" "$work/collected"
"$zkq" ini set "$work/agent.ini" agent inventory "$work/host.der"
"$zkq" ini set "$work/agent.ini" agent certificates "$work/agent.pem"
run_again >"$work/reported"
grep -qF "certificate of 演示, until" "$work/reported"
grep -qF " interfaces reported in " "$work/reported"
python3 - "$work/collected/inventory.json" "$work/agent.pem" "$(uname -srm)" <<'END'
import json, os, sys
told = json.load(open(sys.argv[1], encoding="utf-8"))
names = [line.split(":")[0].strip() for line in open("/proc/net/dev").readlines()[2:]]
wanted = {"host": os.uname().nodename, "system": sys.argv[3]}
for key, value in wanted.items():
    if told[key] != value:
        sys.exit("agent: %s is %s, not %s" % (key, told[key], value))
if [interface["name"] for interface in told["interfaces"]] != names:
    sys.exit("agent: other interfaces: %s" % told["interfaces"])
if [(c["file"], c["subject"]) for c in told["certificates"]] != [(sys.argv[2], "演示")]:
    sys.exit("agent: other certificates: %s" % told["certificates"])
END
run_again >"$work/compared"
grep -qE "last inventory: [0-9]+ s ago" "$work/compared"
echo "rubbish" >"$work/host.der"
run_again >"$work/compared"
grep -qF "not an inventory: $work/host.der" "$work/compared"
kill "${servers[-1]}"
wait "${servers[-1]}" 2>/dev/null || true
refuses "the reporter has not confirmed the inventory: Connection refused"
"$zkq" ini set "$work/agent.ini" agent inventory ""

# Its state is shared while it runs, a second agent is turned away, and nothing of it stays.
key=$((0x5A4B0000 + $$ % 0x4000 * 2))
memory=$(printf '0x%08x' $((key + 1)))
"$zkq" ini set "$work/agent.ini" agent status "$key"
"$zkq" ini set "$work/agent.ini" agent rounds 40
exec 3< <("$agent" "$work/agent.ini")
await "round 2: "
ipcs -m | grep -q "$memory" || { echo "agent: it shares no state"; exit 1; }
if "$agent" "$work/agent.ini" >"$work/second" 2>&1; then
    echo "agent: a second one was let in"
    exit 1
fi
grep -qF "another agent is at work in $work/log" "$work/second"
ipcs -m | grep -q "$memory" || { echo "agent: the second one has removed the state of the first"; exit 1; }
await "done"
cat <&3 >/dev/null
if ipcs -m | grep -q "$memory"; then
    echo "agent: its state is still there"
    exit 1
fi
echo "agent: it saw everything"
