#!/usr/bin/env bash
# Sets up, builds, and shows the library at its main job: the agent of examples/agent.c watches copies of real files of this
# machine while they change, shows its log as it grows, and posts what it packed to a small server. Ends by itself within
# seconds. Safe to run twice.
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
collector=
finish() {
    local id
    for id in $changes $collector; do
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

echo "demo: a server that collects cabinets, on the loopback interface"
python3 examples/collector.py "$work/collected" >"$work/url" &
collector=$!
for ((i = 0; i < 100; ++i)); do
    if [ -s "$work/url" ]; then break; fi
    kill -0 "$collector" # it has told why it ended
    sleep 0.1
done
cat "$work/url"

echo "demo: the agent's settings"
"$zkq" ini set "$work/agent.ini" agent directory "$work/watched"
"$zkq" ini set "$work/agent.ini" agent log "$work/log"
"$zkq" ini set "$work/agent.ini" agent rounds 6
"$zkq" ini set "$work/agent.ini" agent interval 500
"$zkq" ini set "$work/agent.ini" agent ignore ".tmp .swp"
"$zkq" ini set "$work/agent.ini" agent head 48
"$zkq" ini set "$work/agent.ini" agent archive "$work/watched.cab"
"$zkq" ini set "$work/agent.ini" agent collector "$(cat "$work/url")"
"$zkq" ini set "$work/agent.ini" agent state "$work/state.xml"
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

echo "demo: warnings and errors alone, from the log it left"
grep -E '\]\[(Warn |Error)\]' "$work/log/agent.log"
echo "demo: done"
