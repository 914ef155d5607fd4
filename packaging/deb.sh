#!/usr/bin/env bash
# SPDX-License-Identifier: MIT
# Builds the Debian packages pellmor, libpellmor-dev and python3-pellmor.
#   packaging/deb.sh [FOLDER]     where they go, build/packages by default
set -euo pipefail
folder=$(realpath -m "${1:-$(dirname "$0")/../build/packages}")
cd "$(dirname "$0")/.."
cmake -S . -B build/deb -G Ninja --log-level=WARNING -DCMAKE_BUILD_TYPE=Release -DCMAKE_INSTALL_PREFIX=/usr \
  -DPython_EXECUTABLE=/usr/bin/python3 \
  -DPELLMOR_BUILD_PYTHON=ON -DPELLMOR_PYTHON_DIR=lib/python3/dist-packages
cmake --build build/deb
rm -f "$folder"/{pellmor,libpellmor-dev,python3-pellmor}_*.deb
cpack -G DEB --config build/deb/CPackConfig.cmake -B "$folder" >/dev/null
rm -rf "$folder/_CPack_Packages"
ls "$folder"/*.deb
