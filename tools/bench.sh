#!/bin/sh
# Builds and runs the benchmarks and prints one table: tools/bench.sh [SUBJECT...]
# Ratio is the peer's time over ours: above 1 we are faster.
set -eu
cd "$(dirname "$0")/.."
sh tools/setup.sh bench
cmake --preset bench > /dev/null
cmake --build build/bench -j "$(nproc)"

out=build/bench/results
mkdir -p "$out"
rm -f "$out"/*.json
for program in build/bench/bin/*_bench; do
    name=$(basename "$program" _bench)
    if [ $# -gt 0 ]; then
        case " $* " in *" $name "*) ;; *) continue ;; esac
    fi
    echo "== $name" >&2
    # Ours and the peer's alternate in one run, for five rounds.
    "$program" --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \
        --benchmark_report_aggregates_only=false --benchmark_min_time=0.1 \
        --benchmark_out="$out/$name.json" --benchmark_out_format=json > "$out/$name.txt"
done
python3 tools/bench_table.py bench/targets.csv "$out"/*.json
