#!/bin/sh
# Prints how many lines of src/ the native tests execute, and which they do not.
set -eu
cd "$(dirname "$0")/.."
sh tools/setup.sh coverage
cmake --preset coverage > /dev/null
cmake --build build/coverage -j "$(nproc)"
find build/coverage -name '*.gcda' -delete
# Counting adds symbols, writes files at the end of each program and keeps modules loaded:
# three tests do not go with it.
ctest --test-dir build/coverage --output-on-failure -j "$(nproc)" \
    -E '\.(exports|replace_crash|statics_inside)$' > build/coverage/ctest.log || {
    tail -40 build/coverage/ctest.log
    exit 1
}
gcovr --root . --filter 'src/' --exclude-throw-branches --sort-uncovered build/coverage
