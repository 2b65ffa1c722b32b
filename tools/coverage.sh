#!/bin/sh
# Prints how many lines of src/ the native tests execute, and which they do not.
set -eu
cd "$(dirname "$0")/.."
sh tools/setup.sh coverage
cmake --preset coverage > /dev/null
cmake --build build/coverage -j "$(nproc)"
find build/coverage -name '*.gcda' -delete
ctest --test-dir build/coverage --output-on-failure -j "$(nproc)" > build/coverage/ctest.log || {
    tail -40 build/coverage/ctest.log
    exit 1
}
gcovr --root . --filter 'src/' --exclude-throw-branches --sort-uncovered build/coverage
