#!/bin/sh
# Installs what a step needs, by Debian package name: tools/setup.sh SET...
#
# Sets: build, demo, test, win32, package, abi, bench, fuzz, coverage. What is there already costs
# nothing; as root what is missing is installed, as another user it is named.
set -eu

build="g++ cmake ninja-build"
debian="dpkg-dev file fakeroot"
test="$build ccache googletest libgtest-dev libgmock-dev python3 pkg-config gdb groff-base $debian"
page_clients="curl wrk chromium"
peers="libre2-dev libpugixml-dev"
win32="g++-mingw-w64-i686-posix binutils-mingw-w64-i686"
bench="$build libbenchmark-dev pkg-config python3 flex libglib2.0-dev liblua5.4-dev libmuparser-dev
libinih-dev libsimpleini-dev libexpat1-dev libxml2-dev libpugixml-dev libtinyxml2-dev libre2-dev libpcre2-dev
libuv1-dev libevent-dev libspdlog-dev nginx-light wrk"
fuzz="$build clang libclang-rt-14-dev"
coverage="$test gcovr"
wine_root=${STDKRO_WINE_ROOT:-/opt/stdkro-wine}

say() { echo "== $*"; }

missing() {
    for package in "$@"; do
        dpkg-query -W -f='${db:Status-Status}\n' "$package" 2> /dev/null | grep -q '^installed$' || echo "$package"
    done
}

need() {
    lacking=$(missing "$@" | sort -u | tr '\n' ' ')
    [ -n "$lacking" ] || return 0
    if [ "$(id -u)" != 0 ]; then
        echo "setup.sh: these packages are missing; install them as root: $lacking" >&2
        exit 1
    fi
    say "installing $lacking"
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -q
    # shellcheck disable=SC2086
    apt-get install -q -y --no-install-recommends $lacking
}

has_wine() {
    [ -x /usr/lib/i386-linux-gnu/wine/wine ] || [ -x /usr/lib/wine/wine ] || [ -f "$wine_root/.complete" ]
}

# A 32-bit Wine cannot always stand beside the native packages, so it gets a small
# i386 system of its own, which tools/wine.sh enters.
need_wine() {
    has_wine && return 0
    if [ "$(id -u)" != 0 ]; then
        echo "setup.sh: no 32-bit wine; run 'sh tools/setup.sh win32' as root once" >&2
        exit 1
    fi
    need debootstrap
    say "making an i386 system with wine in $wine_root"
    if [ ! -d "$wine_root/usr/lib/i386-linux-gnu/wine" ]; then
        rm -rf "$wine_root"
        debootstrap --arch=i386 --variant=minbase --include=wine,wine32 bookworm "$wine_root"
    fi
    touch "$wine_root/.complete"
}

for set in "$@"; do
    case $set in
    build) need $build ;;
    demo) need $build curl ;;
    test) need $test $peers $page_clients ;;
    win32) need $build $win32 && need_wine ;;
    package) need $build $debian $win32 ;;
    abi) need $build abigail-tools ;;
    bench) need $bench ;;
    fuzz) need $fuzz ;;
    coverage) need $coverage $peers $page_clients ;;
    *) echo "setup.sh: no set '$set' (build, demo, test, win32, package, abi, bench, fuzz, coverage)" >&2; exit 2 ;;
    esac
done
