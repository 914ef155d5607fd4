#!/usr/bin/env bash
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

need ca-certificates cmake g++ libcli11-dev ninja-build
run cmake --preset release -Wno-dev --log-level=WARNING
run cmake --build build

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ -z "$side" ]; then
  side=$work/map.bin
  echo "+ head -c 10240 /dev/urandom >$side"
  head -c 10240 /dev/urandom >"$side"
fi
run cp "$mp4" "$work/video.mp4"
run build/bin/Pellmor -kind:wmap "$work/video.mp4" "$side"
run build/bin/Pellmor -kind:rmap "$work/video.mp4" "$work/read-back.bin"
run cmp "$side" "$work/read-back.bin"
echo "The payload read back equals the one written: $(stat -c %s "$side") bytes."
