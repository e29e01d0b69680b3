#!/usr/bin/env bash
# Sets up, builds, and shows the library at its main job: the agent of examples/agent.c watches copies of real files of this
# machine while they change, shows its log as it grows, takes an inventory of the machine, and sends both to small servers.
# Every family of the library has a part in it, and what it says is judged by other programs. Ends by itself within seconds.
# Safe to run twice.
set -euo pipefail
cd "$(dirname "$0")/.."

scripts/setup.sh
echo "demo: building"
cmake --preset demo >/dev/null
cmake --build --preset demo --parallel "$(nproc)"

build=$PWD/build/demo
zkq=$build/tools/zkq/zkq
work=$(mktemp -d)
changes=
servers=()
finish() {
    local id
    for id in $changes "${servers[@]}"; do
        kill "$id" 2>/dev/null || continue # it has ended
        wait "$id" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap finish EXIT

mkdir "$work/watched" "$work/log" "$work/collected"
for file in /etc/os-release /etc/passwd /etc/services /etc/protocols; do
    if [ -r "$file" ]; then cp -L "$file" "$work/watched/"; fi
done

# serve NAME PROGRAM ARGUMENT...: starts a server, whose first line goes to a file of that name
serve() {
    local name=$1 i
    shift
    "$@" >"$work/$name" &
    servers+=($!)
    for ((i = 0; i < 100; ++i)); do
        if [ -s "$work/$name" ]; then break; fi
        kill -0 "${servers[-1]}" # it has told why it ended
        sleep 0.1
    done
    cat "$work/$name"
}
echo "demo: two servers on the loopback interface, for cabinets and for inventories"
serve collector python3 examples/collector.py "$work/collected"
serve reporter python3 examples/reporter.py "$work/collected"

echo "demo: a certificate with a Chinese name, made by openssl"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 30 -utf8 -subj "/CN=演示代理/O=demo" \
    -keyout "$work/key.pem" -out "$work/agent.pem" 2>/dev/null

echo "demo: the agent's settings"
key=$((0x5A4B0000 + $$ % 0x4000 * 2)) # of the memory that it shares
"$zkq" ini set "$work/agent.ini" agent directory "$work/watched"
"$zkq" ini set "$work/agent.ini" agent log "$work/log"
"$zkq" ini set "$work/agent.ini" agent rounds 6
"$zkq" ini set "$work/agent.ini" agent interval 500
"$zkq" ini set "$work/agent.ini" agent ignore ".tmp .swp"
"$zkq" ini set "$work/agent.ini" agent head 48
"$zkq" ini set "$work/agent.ini" agent archive "$work/watched.cab"
"$zkq" ini set "$work/agent.ini" agent collector "$(cat "$work/collector")"
"$zkq" ini set "$work/agent.ini" agent state "$work/state.xml"
"$zkq" ini set "$work/agent.ini" agent status "$key"
"$zkq" ini set "$work/agent.ini" agent inventory "$work/inventory.der"
"$zkq" ini set "$work/agent.ini" agent certificates "$work/agent.pem"
"$zkq" ini set "$work/agent.ini" agent reporter "$(cat "$work/reporter")"
cat "$work/agent.ini"
"$zkq" log level --dir "$work/log" agent debug,info,warn,error

# What happens to the files meanwhile.
(
    sleep 0.7
    uname -a >>"$work/watched/os-release"
    sleep 0.5
    df >"$work/watched/disks.txt"
    touch "$work/watched/ignored.tmp"
    sleep 0.5
    rm -f "$work/watched/passwd"
    date >"$work/watched/disks.txt"
    echo "demo: meanwhile a second agent is turned away, and ipcs sees the shared state"
    if "$build/examples/agent" "$work/agent.ini"; then exit 1; fi
    ipcs -m | grep -i "$(printf '0x%08x' $((key + 1)))"
) &
changes=$!

echo "demo: the agent at work"
"$build/examples/agent" "$work/agent.ini"
wait "$changes"
changes=

echo "demo: the cabinet that it packed"
"$zkq" cab list -l "$work/watched.cab"
"$zkq" cab test "$work/watched.cab"

echo "demo: the same cabinet where it was posted to, judged by md5sum"
(cd "$work" && md5sum watched.cab | sed 's|watched.cab|collected/1.cab|' | md5sum --check)

echo "demo: what the agent saw last, in the XML file that its next run reads"
"$zkq" xml fmt "$work/state.xml"

echo "demo: the inventory, as python3 got it from the packet, and the same judged by ip, openssl and uname"
python3 -m json.tool "$work/collected/inventory.json"
judge() {
    if [ -z "$2" ] || ! grep -qF -- "$2" "$work/collected/inventory.json"; then
        echo "demo: the inventory has not what $1 says: $2"
        exit 1
    fi
    echo "$1: $2"
}
judge uname "$(uname -srm)"
judge ip "$(ip -o -4 addr show dev lo 2>/dev/null | sed -n '1s|.*inet \([0-9.]*\)/.*|\1|p')"
judge openssl "$(openssl x509 -in "$work/agent.pem" -noout -subject -nameopt multiline,-esc_msb,utf8 | sed -n 's/.*commonName *= //p')"

echo "demo: the bytes of the same inventory"
"$zkq" der dump "$work/inventory.der" | head -n 12

echo "demo: warnings and errors alone, from the log it left"
grep -E '\]\[(Warn |Error)\]' "$work/log/agent.log"
echo "demo: done"
