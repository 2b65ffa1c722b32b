#!/bin/sh
# Installs what the build needs, builds the library and the tool, and renders a
# template with it.
set -eu
cd "$(dirname "$0")/.."

say() { echo "== $*"; }

say "looking for what the build needs"
sh tools/setup.sh build

say "building"
cmake --preset release > build-release.log 2>&1 || { cat build-release.log; rm build-release.log; exit 1; }
rm build-release.log
cmake --build build/release -j "$(nproc)" --target kro

say "build/release/bin/kro run examples/invoice.xpp"
build/release/bin/kro run examples/invoice.xpp

echo
echo "Try next: build/release/bin/kro eval 'hex(255, 4)', or change examples/invoice.xpp and run it again."
echo "Then read docs/script.md for the language, or README.md for a first program of your own."
