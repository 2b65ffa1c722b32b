#!/bin/sh
# Builds the fuzz targets and runs one: tools/fuzz.sh NAME [SECONDS]
# New inputs go to build/fuzz/found/NAME; a crash ends it with a status and a file.
set -eu
cd "$(dirname "$0")/.."
name=$1
seconds=${2:-600}

sh tools/setup.sh fuzz
sh tools/configure.sh fuzz
cmake --build build/fuzz -j "$(nproc)" --target "${name}_fuzz"

found=build/fuzz/found/$name
mkdir -p "$found"
set -- "$found" "fuzz/corpus/$name"
[ ! -f "fuzz/$name.dict" ] || set -- "-dict=fuzz/$name.dict" "$@"
exec "build/fuzz/bin/${name}_fuzz" -max_total_time="$seconds" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
    -print_final_stats=1 -artifact_prefix="build/fuzz/${name}-" "$@"
