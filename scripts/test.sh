#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# From a machine with nothing but Debian to the tests run: formatting, both compilers, all tests plain and under
# sanitizers, the comments of the headers, the stubs, what is installed, the packages.
set -euo pipefail

cd "$(dirname "$0")/.."
. scripts/packages.sh
need binutils chromium clang clang-format cmake doxygen dpkg-dev ffmpeg g++ jq libclang-rt-dev libcli11-dev \
  libgtest-dev libimage-exiftool-perl libexpat1-dev lintian mmdebstrap mypy ninja-build nlohmann-json3-dev parallel \
  pkg-config pybind11-dev python3-dev python3-numpy python3-pytest sox strace

step() { printf '\n== %s\n' "$*"; }

# Lines that are neither empty nor all comment: all of the tests against all that they test.
lines() { git ls-files "$@" | grep -E '\.(cpp|h|py|sh)$' | xargs grep -hvE '^[[:space:]]*($|//|#( |$)|\*)' | wc -l; }

step "Tests and code"
tests=$(lines tests fuzz)
code=$(lines toolKit tool edit python)
echo "$tests lines of tests, $code lines of code: $((100 * tests / code)) %"

step "Formatting"
git ls-files -co --exclude-standard '*.cpp' '*.h' | xargs clang-format --dry-run -Werror

step "g++: build and tests"
cmake --preset dev --log-level=WARNING
cmake --build build/dev
ctest --preset dev --progress

step "Doxygen: the comments of the public headers"
doxygen docs/Doxyfile

step "mypy: the stubs of the Python module"
mypy --strict --no-error-summary --cache-dir build/mypy python/pellmor/*.pyi
MYPYPATH=python mypy --strict --no-error-summary --cache-dir build/mypy tests/consumer/typed.py

step "Shared libraries, installed"
cmake -S . -B build/shared -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DBUILD_SHARED_LIBS=ON \
  -DPELLMOR_BUILD_EDIT=OFF
cmake --build build/shared
cmake --install build/shared --prefix build/shared/installed >/dev/null
tests/consumer/run.sh build/shared/installed

step "Packages with the static libraries, installed"
packaging/deb.sh
tests/package/run.sh build/packages

step "clang++: build and tests under AddressSanitizer and UndefinedBehaviorSanitizer"
cmake --preset asan --log-level=WARNING
cmake --build build/asan
ctest --preset asan --progress
