#!/usr/bin/env bash
# Builds the consumer with the CMake package, then with the pkg-config file, of an installed tree.
#   tests/consumer/run.sh PREFIX
set -euo pipefail
prefix=$1
here=$(realpath "$(dirname "$0")")
sample=$here/../data/sample.mp4
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cmake -S "$here" -B "$work" -DCMAKE_PREFIX_PATH="$prefix" --log-level=WARNING
cmake --build "$work" >/dev/null
"$work/consumer" "$sample" >"$work/boxes"
grep -q "'moov'" "$work/boxes"

export PKG_CONFIG_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name pellmor.pc)")
# shellcheck disable=SC2046
g++ "$here/consumer.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs pellmor)
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH") "$work/consumer-pc" "$sample" | cmp - "$work/boxes"
echo "The installed library serves a program of its own."
