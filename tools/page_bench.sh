#!/bin/sh
# Requests per second of the example page server on each loop, beside nginx with one
# worker and a program on libevent's evhttp, for one static page: tools/page_bench.sh
# [ROUNDS]. All take turns in each round; the ratios are medians.
set -eu
cd "$(dirname "$0")/.."
sh tools/setup.sh bench
sh tools/configure.sh bench
cmake --build build/bench -j "$(nproc)" --target page_server
c++ -O2 -std=c++17 bench/page_evhttp.cpp -o build/bench/bin/page_evhttp $(pkg-config --cflags --libs libevent)
exec python3 tools/page_bench.py build/bench examples/page_server/site "${1:-7}"
