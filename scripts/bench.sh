#!/usr/bin/env bash
# Builds and runs the benchmarks. All of them renew the tables and plots of docs/benchmarks.md; of the named groups the
# tables are printed.
#
# Groups: log, inifile, file-small, file-large, string, msgpacket, iconv, base64, md5, zlib, mycab, xml, table, json,
# x509_message, x509_certificate, socket, http, netcard, system, syncobject, cpp.
#
# ZKQ_BENCH_REPETITIONS  how often each benchmark is run (default 15); the table shows medians
# ZKQ_BENCH_DIR          an existing directory for the files of the benchmarks (default: one in the build tree)
# ZKQ_BENCH_JOBS         parallel jobs of the build (default: 2)
#
# The raw results stay in build/bench/results, one JSON file a group.
set -euo pipefail

cd "$(dirname "$0")/.."
readonly repetitions=${ZKQ_BENCH_REPETITIONS:-15}
readonly build=build/bench
readonly results=$build/results
groups=(log inifile file-small file-large string msgpacket iconv base64 md5 zlib mycab xml table json
    x509_message x509_certificate socket http netcard system syncobject cpp)
if (($# > 0)); then
    groups=("$@")
fi

# run GROUP PROGRAM FILTER REPETITIONS
run() {
    echo "running $1, $4 repetitions" >&2
    # The repetitions of all benchmarks of a group are shuffled, so that whatever else the machine does meanwhile hits the
    # library and its peers alike.
    if ! "$build/bench/$2" --benchmark_filter="$3" --benchmark_repetitions="$4" \
        --benchmark_enable_random_interleaving=true --benchmark_min_time=0.05 \
        --benchmark_out="$results/$1.json" --benchmark_out_format=json >"$results/$1.txt" 2>&1; then
        cat "$results/$1.txt" >&2
        return 1
    fi
}

scripts/setup.sh bench >&2
cmake --preset bench >&2
cmake --build --preset bench -j "${ZKQ_BENCH_JOBS:-2}" >&2

rm -rf "$results"
mkdir -p "$results"
for group in "${groups[@]}"; do
    case $group in
    log | inifile | string | msgpacket | iconv | base64 | md5 | zlib | xml | table | json | x509_message | \
        x509_certificate | netcard | system | syncobject | cpp)
        run "$group" "${group}_bench" . "$repetitions"
        ;;
    # Small copies have many short runs, and none of a large copy between them: what the disk has left to do after that
    # one would be all they measure.
    file-small) run "$group" file_bench '/(4096|1048576)/' "$((5 * repetitions))" ;;
    file-large) run "$group" file_bench '/104857600/' "$repetitions" ;;
    # In memory: a disk is busy for minutes after a hundred thousand files were made and deleted. A round takes a minute.
    mycab)
        memory=$build
        if [ -w /dev/shm ]; then memory=/dev/shm; fi
        ZKQ_BENCH_DIR=${ZKQ_BENCH_DIR:-$memory} run "$group" mycab_bench . "$(((repetitions + 2) / 3))"
        ;;
    socket) run "$group" socket_bench . "$repetitions" ;;
    # Files in memory: it is the way there that is measured. A round moves 8 GiB.
    http)
        memory=$build
        if [ -w /dev/shm ]; then memory=/dev/shm; fi
        ZKQ_BENCH_DIR=${ZKQ_BENCH_DIR:-$memory} run "$group" http_bench . "$(((repetitions + 2) / 3))"
        ;;
    *)
        echo "$0: no such group: $group" >&2
        exit 2
        ;;
    esac
done

machine="$(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) processors, $(uname -sr), files on \
$(df --output=fstype "${ZKQ_BENCH_DIR:-$build}" | tail -n 1), $("${CXX:-c++}" --version | head -n 1), $repetitions repetitions"
if (($# > 0)); then
    echo "$machine"
    echo
    scripts/bench_table.py "$results"/*.json
else
    scripts/bench_table.py --page docs/benchmarks.md "$machine" "$results"/*.json
    echo "bench: docs/benchmarks.md and docs/plots are renewed"
fi
