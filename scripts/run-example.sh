#!/usr/bin/env bash
# Installs what is missing, builds the program and opens the workbench on a
# copy of the bundled PBPK example. Without a display it says so and runs the
# Ambrel method on the same copy with the batch tool instead, printing what
# it found and where the result files are. Arguments go to the batch tool.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
work=build/example-pbpk
rm -rf "$work"
cp -r examples/pbpk "$work"
if [[ -n "${DISPLAY:-}${WAYLAND_DISPLAY:-}" ]]; then
  cmake --build build -j"$(nproc)" --target ambrel
  echo "Opening the workbench on $work (Step5: Start runs the Ambrel method)."
  exec build/ui/ambrel "$work"
fi
echo "No display (DISPLAY and WAYLAND_DISPLAY are unset): running the example with the batch tool."
cmake --build build -j"$(nproc)" --target ambrel-batch
build/batch/ambrel-batch run "$work" "$@"
