#!/bin/sh
# Compares what compiled programs rely on (symbols, sizes, layouts, virtual tables) with a
# tagged version: tools/abi.sh [TAG]. Without a word with the newest tag before this commit.
# The status is abidiff's: 0 when nothing changed.
set -eu
cd "$(dirname "$0")/.."
tag=${1:-$(git describe --tags --abbrev=0 2> /dev/null || true)}
if [ -z "$tag" ]; then
    echo "abi.sh: there is no tag yet to compare with"
    exit 0
fi
sh tools/setup.sh abi

old=build/abi/old
git worktree remove --force "$old" 2> /dev/null || rm -rf "$old"
git worktree prune
git worktree add --quiet --detach "$old" "$tag"
trap 'git worktree remove --force "$old"' EXIT

# build SOURCE DIR: the library with the debugger's description of its types.
build() {
    cmake -G Ninja -S "$1" -B "$2" -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS_DEBUG="-Og -g" > /dev/null
    cmake --build "$2" -j "$(nproc)" --target krodll
}
build "$old" build/abi/old-build
build . build/abi/new-build
abidiff --headers-dir1 "$old/include" --headers-dir2 include \
    build/abi/old-build/lib/libkrodll.so build/abi/new-build/lib/libkrodll.so
