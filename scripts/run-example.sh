#!/usr/bin/env bash
# Installs what is missing, builds the batch tool and runs the Ambrel method
# on a copy of the bundled PBPK example; prints where the result is.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)" --target ambrel-batch
work=build/example-pbpk
rm -rf "$work"
cp -r examples/pbpk "$work"
build/batch/ambrel-batch run "$work" "$@"
