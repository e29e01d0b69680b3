#!/usr/bin/env bash
# Builds and runs all benchmarks and prints one table of the library against its peers.
#
# ZKQ_BENCH_REPETITIONS  how often each benchmark is run (default 15); the table shows medians
# ZKQ_BENCH_FILTER       a regular expression of benchmark names (default: all)
# ZKQ_BENCH_DIR          an existing directory for the files of the benchmarks (default: one in the build tree)
# ZKQ_BENCH_JOBS         parallel jobs of the build (default: 2)
#
# The raw results stay in build/bench/results, one JSON file a program.
set -euo pipefail

cd "$(dirname "$0")/.."
readonly repetitions=${ZKQ_BENCH_REPETITIONS:-15}
readonly filter=${ZKQ_BENCH_FILTER:-.}
readonly build=build/bench
readonly results=$build/results
readonly programs=(log_bench inifile_bench file_bench string_bench)

cmake --preset bench >&2
cmake --build --preset bench -j "${ZKQ_BENCH_JOBS:-2}" >&2

mkdir -p "$results"
rm -f "$results"/*.json
for program in "${programs[@]}"; do
    selected=$("$build/bench/$program" --benchmark_filter="$filter" --benchmark_list_tests 2>/dev/null)
    if [[ -z $selected ]]; then
        continue
    fi
    echo "running $program, $repetitions repetitions" >&2
    # The repetitions of all benchmarks of a program are shuffled, so that whatever else the machine does meanwhile hits
    # the library and its peers alike.
    "$build/bench/$program" --benchmark_filter="$filter" --benchmark_repetitions="$repetitions" \
        --benchmark_enable_random_interleaving=true --benchmark_min_time=0.05 \
        --benchmark_out="$results/$program.json" --benchmark_out_format=json >"$results/$program.txt" || {
        cat "$results/$program.txt" >&2
        exit 1
    }
done

echo "CPU: $(sed -n 's/^model name[^:]*: //p' /proc/cpuinfo | head -n 1), $(nproc) processors"
echo "Kernel: $(uname -sr), file system: $(df --output=fstype "${ZKQ_BENCH_DIR:-$build}" | tail -n 1)"
echo
scripts/bench_table.py "$results"/*.json
