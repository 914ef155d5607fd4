#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the examples and a program of somebody else's against an installed tree, with the CMake package and with
# the pkg-config files, and looks at what they do.
#   tests/consumer/run.sh PREFIX
set -euo pipefail
prefix=$(realpath "$1")
here=$(realpath "$(dirname "$0")")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
expect() { # COMMAND...: it must succeed; says which did not
  "$@" || { echo "tests/consumer/run.sh: failed: $*" >&2; exit 1; }
}

for project in "$here" "$here/../../examples"; do
  expect cmake -S "$project" -B "$work/build/${project##*/}" -DCMAKE_PREFIX_PATH="$prefix" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Werror" --log-level=ERROR >"$work/log"
  expect cmake --build "$work/build/${project##*/}" >"$work/log"
done
# As a part of another project it brings the libraries, and neither settles how that is built nor installs anything.
part=$work/build/part
expect cmake -S "$here" -B "$part" -G "Unix Makefiles" -DPELLMOR_SOURCE="$here/../.." --log-level=ERROR >"$work/log"
expect grep -qx 'CMAKE_BUILD_TYPE:STRING=' "$part/CMakeCache.txt"
cmake --build "$part" --target help >"$work/targets"
expect test "$(grep -Ecx '\.\.\. (toolKit|slam|Pellmor|pellmor-edit)' "$work/targets")" = 2
expect cmake --install "$part" --prefix "$work/nothing" >"$work/log"
expect test ! -e "$work/nothing"
PATH=$prefix/bin:$work/build/consumer:$work/build/examples:$PATH

cp "$here/../data/sample.mp4" "$work/video.mp4"
head -c 10240 /dev/urandom >"$work/map.bin"
expect Pellmor -kind:wmap "$work/video.mp4" "$work/map.bin" >/dev/null

# Every line is there: the library leaves the streams of its host as they are.
cp "$work/video.mp4" "$work/again.mp4"
expect consumer "$work/again.mp4" >"$work/out" 2>"$work/err"
expect grep -q "'moov'" "$work/out"
for place in before between behind; do
  expect grep -qx "printf: $place" "$work/out"
  expect grep -qx "cout: $place" "$work/out"
  expect grep -qx "cerr: $place" "$work/err"
done
expect test "$(wc -l <"$work/err")" -ge 4 # the reason of the refusal, between them

export PKG_CONFIG_PATH LD_LIBRARY_PATH
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name pellmor.pc)")
# shellcheck disable=SC2046
expect g++ "$here/consumer.cpp" -o "$work/consumer-pc" $(pkg-config --cflags --libs pellmor-slam)
cp "$work/video.mp4" "$work/again.mp4"
LD_LIBRARY_PATH=$(dirname "$PKG_CONFIG_PATH") expect "$work/consumer-pc" "$work/again.mp4" 2>/dev/null |
  expect cmp - "$work/out"

# A shared library shows what the public headers declare.
for library in "$(dirname "$PKG_CONFIG_PATH")"/libpellmor.so; do
  if [ -e "$library" ]; then
    expect test "$(nm -DC --defined-only "$library" | grep -c 'MP4::Container::')" -gt 30
    expect test "$(nm -DC --defined-only "$library" | grep -Ec 'MP4::(Claim|Plan)|[Hh]264|anonymous')" = 0
  fi
done

# Completion knows the commands and the options of each.
complete() { # WORD...: what the last one could be
  bash -c '. "$0"; COMP_WORDS=("$@") COMP_CWORD=$(($# - 1)); _pellmor_edit; echo "${COMPREPLY[*]}"' \
    "$prefix/share/bash-completion/completions/pellmor-edit" pellmor-edit "$@"
}
if [ -e "$prefix/bin/pellmor-edit" ]; then
  expect test "$(complete moov)" = moov-first
  expect test "$(complete put --rep)" = --replace
  expect test "$(complete get wa)" = walk
fi

boxes "$work/video.mp4" >"$work/table"
expect grep -Eq '^ +0 +[0-9]+  ftyp$' "$work/table"
expect grep -q ' moov.trak.mdia.minf.stbl$' "$work/table"
mkdir "$work/payloads"
expect payloads "$work/video.mp4" "$work/payloads"
expect cmp "$work/map.bin" "$work"/payloads/*-8B18D5C30E7A25C7B3AD252358B401EE.bin
mkdir "$work/folder"
cp "$work/video.mp4" "$work/folder/a.mp4"
cp "$work/video.mp4" "$work/folder/Süd.mp4"
expect locate "$work/folder" +35.6895+139.6917+40/ >/dev/null
for file in "$work"/folder/*.mp4; do
  expect grep -q '+35.6895+139.6917/' "$file"
done
echo "The installed libraries serve the examples and a program of somebody else's."
