#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# From a machine with nothing but Debian to the main job done: builds the programs, writes a payload
# into a copy of an MP4 file and reads it back.
#
#   scripts/quickstart.sh                     the bundled sample and a payload made up here
#   scripts/quickstart.sh video.mp4 map.bin   your files; the MP4 file itself is not changed
set -euo pipefail

case "$#" in
  0 | 2) ;;
  *)
    echo "usage: scripts/quickstart.sh [MP4 SIDEFILE]" >&2
    exit 2
    ;;
esac
for file in "$@"; do
  if [ ! -f "$file" ]; then
    echo "scripts/quickstart.sh: no such file: $file" >&2
    exit 2
  fi
done
mp4=$(realpath "${1:-$(dirname "$0")/../tests/data/sample.mp4}")
side=${2:+$(realpath "$2")}

cd "$(dirname "$0")/.."
. scripts/packages.sh

# Shows a command, then runs it.
run() {
  echo "+ $*"
  "$@"
}

need ca-certificates cmake g++ libcli11-dev libexpat1-dev ninja-build nlohmann-json3-dev
run cmake --preset release -Wno-dev --log-level=WARNING
run cmake --build build

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
run cp "$mp4" "$work/video.mp4"
chmod u+w "$work/video.mp4"
if [ -n "$side" ]; then
  run cp "$side" "$work/map.bin"
else
  echo "+ head -c 10240 /dev/urandom >$work/map.bin"
  head -c 10240 /dev/urandom >"$work/map.bin"
fi
run build/bin/Pellmor -kind:wmap "$work/video.mp4" "$work/map.bin" | tee "$work/printed"
run build/bin/Pellmor -kind:rmap "$work/video.mp4" "$work/read-back.bin"
if grep -q 'uuid is existed' "$work/printed"; then
  echo "The file held a map already; it stays, and was read: $(stat -c %s "$work/read-back.bin") bytes."
else
  run cmp "$work/map.bin" "$work/read-back.bin"
  echo "The payload read back equals the one written: $(stat -c %s "$work/map.bin") bytes."
fi
