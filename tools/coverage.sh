#!/bin/sh
# Runs the native tests and lists the lines of src/ that none of them executes, each with
# its text, and the share that is executed. Fails below 98 %, and when a test fails.
set -eu
cd "$(dirname "$0")/.."
least_percent=98
folder=build/coverage

say() { echo "== $*"; }

say "looking for what the tests need"
sh tools/setup.sh coverage
say "building"
sh tools/configure.sh coverage
cmake --build $folder -j "$(nproc)"

# What earlier runs counted, and counted for files that are gone.
find $folder -name '*.gcda' -delete
# Counting adds symbols, writes files at the end of each program and keeps modules loaded:
# four tests do not go with it.
say "running the tests"
ctest --test-dir $folder --output-on-failure --no-tests=error -j "$(nproc)" \
    -E '\.(exports|little_memory|replace_crash|statics_inside)$'

say "lines that no test executes"
gcovr --root . --filter 'src/' --json $folder/lines.json $folder
python3 tools/uncovered.py $folder/lines.json $least_percent
