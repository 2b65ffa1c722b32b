#!/bin/sh
# Configures a preset and says nothing, unless that fails: tools/configure.sh PRESET
set -eu
cd "$(dirname "$0")/.."
said=$(cmake --preset "$1" 2>&1) || { printf '%s\n' "$said"; exit 1; }
