#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs every test with ctest.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)"
cd build
QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j"$(nproc)"
