#!/bin/sh
# Builds the packages into build/packages: the Debian ones and the zip for Windows.
set -eu
cd "$(dirname "$0")/.."
sh tools/setup.sh package
for kind in release win32-release; do
    sh tools/configure.sh "$kind"
    cmake --build "build/$kind" -j "$(nproc)"
    cpack --config "build/$kind/CPackConfig.cmake" -B "$PWD/build/packages"
done
rm -rf build/packages/_CPack_Packages
ls -l build/packages
