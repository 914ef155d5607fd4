#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages pellmor, libpellmor-dev and python3-pellmor.
#   packaging/deb.sh [FOLDER]     where they go, build/packages by default
set -euo pipefail
cd "$(dirname "$0")/.."
folder=${1:-build/packages}
cmake -S . -B build/deb -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DPython_EXECUTABLE=/usr/bin/python3 \
  -DPELLMOR_BUILD_PYTHON=ON -DPELLMOR_PYTHON_DIR=lib/python3/dist-packages
cmake --build build/deb
rm -rf "$folder"
cpack -G DEB --config build/deb/CPackConfig.cmake -B "$(realpath -m "$folder")" >/dev/null
rm -rf "$folder/_CPack_Packages"
ls "$folder"/*.deb
