#!/bin/sh
# Runs a 32-bit Windows program: tools/wine.sh PROGRAM.exe [WORD...]
#
# With the wine of this machine where it can run 32-bit programs, otherwise inside
# an i386 system beside it, made by tools/setup.sh (STDKRO_WINE_ROOT says where).
# There the current folder and the program's stand under their own paths. Who is not
# root enters it in a name space of his own.
set -eu
root=${STDKRO_WINE_ROOT:-/opt/stdkro-wine}
export WINEDEBUG="${WINEDEBUG:--all}"

program=$1
case $program in /*) ;; *) program=$PWD/$program ;; esac
if [ ! -f "$program" ]; then
    echo "wine.sh: no program $program" >&2
    exit 127
fi
if [ -x /usr/lib/i386-linux-gnu/wine/wine ] || [ -x /usr/lib/wine/wine ]; then
    exec wine "$@"
fi
if [ ! -d "$root/usr/lib/i386-linux-gnu/wine" ]; then
    echo "wine.sh: no 32-bit wine on this machine and none in $root: run 'sh tools/setup.sh win32' first" >&2
    exit 127
fi
if [ "$(id -u)" != 0 ]; then
    export STDKRO_WINE_HOME="${XDG_CACHE_HOME:-$HOME/.cache}/stdkro-wine"
    exec unshare --user --map-root-user --mount sh "$0" "$@"
fi

# project_of DIR: the source tree that DIR lies in, or DIR itself.
project_of() {
    project=$1
    while [ "$project" != / ] && [ ! -f "$project/CMakePresets.json" ]; do
        project=$(dirname "$project")
    done
    [ "$project" != / ] || project=$1
    echo "$project"
}

# show DIR [PLACE]: makes DIR visible inside, once; anew when DIR itself was made anew.
show() {
    [ "$1" -ef "$root${2:-$1}" ] && return 0
    ! mountpoint -q "$root${2:-$1}" || umount -l "$root${2:-$1}"
    mkdir -p "$root${2:-$1}"
    mount --rbind "$1" "$root${2:-$1}"
}

# In a name space of one's own the system is put together anew, around folders that its
# user may write.
own_root() {
    mkdir -p "$STDKRO_WINE_HOME/tmp" "$STDKRO_WINE_HOME/root"
    system=$root
    root=/mnt
    mount -t tmpfs none "$root"
    for entry in bin sbin lib lib64 libx32 usr etc var; do
        if [ -L "$system/$entry" ]; then
            cp -P "$system/$entry" "$root"
        elif [ -d "$system/$entry" ]; then
            show "$system/$entry" "/$entry"
        fi
    done
    show "$STDKRO_WINE_HOME/tmp" /tmp
    show "$STDKRO_WINE_HOME/root" /root
}

shift
lock=${STDKRO_WINE_HOME:-$root}/.lock
mkdir -p "$(dirname "$lock")"
exec 9> "$lock"
flock 9
[ -z "${STDKRO_WINE_HOME:-}" ] || own_root
show /proc
show /dev
show "$(project_of "$(dirname "$program")")"
show "$(project_of "$PWD")"

enter() {
    chroot "$root" /usr/bin/env -i HOME=/root PATH=/usr/bin:/bin LC_ALL=C.UTF-8 WINEDEBUG="$WINEDEBUG" "$@"
}

# Calls a program of Wine's own out of sight: what it leaves behind must not hold the
# output of ours, or whoever reads that would wait for it.
behind() {
    enter setsid "$@" < /dev/null > /dev/null 2>&1 9>&-
}

# The server and its services stay: a program that starts just while they end would lose
# its connection. Who finds none starts them, and the first one makes the user's Windows
# folder; nobody else is to see it half made.
mkdir -p "$root/root/.wine"
if behind /usr/lib/wine/wineserver32 -p; then
    behind wineboot
fi
exec 9>&-
enter ${WINEPATH:+"WINEPATH=$WINEPATH"} sh -c 'cd "$0" && exec wine "$@"' "$PWD" "$program" "$@"
