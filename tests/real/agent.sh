#!/usr/bin/env bash
# The agent of the examples sees what happens to copies of real files, and its dump is what od shows.
set -euo pipefail
agent=$1 zkq=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
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
echo "agent: it saw everything"
