#!/usr/bin/env bash
# Sets up, builds, and shows the library at its main job: the agent of examples/agent.c watches copies of real files of this
# machine while they change, and shows its log as it grows. Ends by itself within seconds. Safe to run twice.
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
finish() {
    if [ -n "$changes" ]; then kill "$changes" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap finish EXIT

mkdir "$work/watched" "$work/log"
for file in /etc/os-release /etc/passwd /etc/services /etc/protocols; do
    if [ -r "$file" ]; then cp -L "$file" "$work/watched/"; fi
done

echo "demo: the agent's settings"
"$zkq" ini set "$work/agent.ini" agent directory "$work/watched"
"$zkq" ini set "$work/agent.ini" agent log "$work/log"
"$zkq" ini set "$work/agent.ini" agent rounds 6
"$zkq" ini set "$work/agent.ini" agent interval 500
"$zkq" ini set "$work/agent.ini" agent ignore ".tmp .swp"
"$zkq" ini set "$work/agent.ini" agent head 48
"$zkq" ini set "$work/agent.ini" agent archive "$work/watched.cab"
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

echo "demo: warnings and errors alone, from the log it left"
grep -E '\]\[(Warn |Error)\]' "$work/log/agent.log"
echo "demo: done"
