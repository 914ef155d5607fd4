#!/usr/bin/env bash
# From a machine with nothing but Debian to every test run: formatting, an installed library used by
# another program, both compilers, all tests plain and under sanitizers.
set -euo pipefail

cd "$(dirname "$0")/.."
. scripts/packages.sh
need clang clang-format cmake ffmpeg g++ libclang-rt-dev libcli11-dev libgtest-dev \
  libimage-exiftool-perl ninja-build pkg-config python3-pytest sox strace

step() { printf '\n== %s\n' "$*"; }

step "Formatting"
git ls-files -co --exclude-standard '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

step "Release build, installed and used by another program"
cmake --preset release --log-level=WARNING
cmake --build build
installed=$(mktemp -d)
trap 'rm -rf "$installed"' EXIT
cmake --install build --prefix "$installed" >/dev/null
tests/consumer/run.sh "$installed"

step "g++: build and tests"
cmake --preset dev --log-level=WARNING
cmake --build build/dev
ctest --preset dev --progress

step "clang++: build and tests under AddressSanitizer and UndefinedBehaviorSanitizer"
cmake --preset asan --log-level=WARNING
cmake --build build/asan
ctest --preset asan --progress
