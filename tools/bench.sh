#!/bin/sh
# Builds and runs the benchmarks and prints one table: tools/bench.sh [--chart | SUBJECT...]
# Ratio is the peer's time over ours: above 1 we are faster.
# --chart runs all of them, writes the table to docs/benchmarks.md and draws it with a script
# of the project's own language.
set -eu
cd "$(dirname "$0")/.."
chart=
if [ "${1:-}" = --chart ]; then
    chart=yes
    shift
    [ $# = 0 ] || { echo "bench.sh: the chart shows all subjects" >&2; exit 2; }
fi
sh tools/setup.sh bench
sh tools/configure.sh bench
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
    # Ours and the peer's alternate. Some times depend on where a process lies in memory, so
    # there are three processes, of two rounds each.
    for process in 1 2 3; do
        "$program" --benchmark_repetitions=2 --benchmark_enable_random_interleaving=true \
            --benchmark_report_aggregates_only=false --benchmark_min_time=0.1 \
            --benchmark_out="$out/$name-$process.json" --benchmark_out_format=json > "$out/$name.txt"
    done
done
python3 tools/bench_table.py bench/targets.csv "$out"/*.json > "$out/table.md"
cat "$out/table.md"
if [ -n "$chart" ]; then
    sed "/^$/,\$d" "$out/table.md" | cat bench/page.md - > docs/benchmarks.md
    python3 tools/draw.py bench build/bench/bin/kro
fi
