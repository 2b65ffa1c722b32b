#!/bin/sh
# Installs what the tests need, builds and runs all of them: native, native under
# AddressSanitizer and UndefinedBehaviorSanitizer, and as 32-bit Windows programs
# under Wine. Ends with one summary; the status is not 0 when anything failed.
# Words are handed to ctest. Without any, and with no file changed since all tests
# passed, the summary of that run is shown again.
set -eu
cd "$(dirname "$0")/.."
jobs=$(nproc)
kinds="dev asan win32"

say() { echo "== $*"; }

say "looking for what the tests need"
sh tools/setup.sh test win32

# What all files hold, as one number; nothing outside a checkout.
fingerprint() {
    git ls-files > /dev/null 2>&1 || return 0
    git ls-files -co --exclude-standard -z 2> /dev/null | xargs -0 sha1sum 2> /dev/null | sha1sum
}

passed=build/tests.passed
before=$(fingerprint)
if [ $# -eq 0 ] && [ -n "$before" ] && [ -f "$passed" ] && [ "$(head -n 1 "$passed")" = "$before" ]; then
    say "nothing has changed since all tests passed (remove $passed to run them again)"
    sed 1d "$passed"
    exit 0
fi
rm -f "$passed"

for kind in $kinds; do
    say "building: $kind"
    sh tools/configure.sh "$kind"
    cmake --build "build/$kind" -j "$jobs"
done

# One test run over the three build folders, so that one summary counts them all.
echo "subdirs($kinds)" > build/CTestTestfile.cmake
say "running all tests"
ctest --test-dir build --output-on-failure --no-tests=error --output-log build/tests.log -j "$jobs" --timeout 300 "$@"

if [ $# -eq 0 ] && [ -n "$before" ] && [ "$(fingerprint)" = "$before" ]; then
    { echo "$before"; grep -A 2 'tests passed' build/tests.log; } > "$passed"
fi
