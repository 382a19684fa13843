#!/usr/bin/env bash
# Installs what is missing, configures, builds and runs every test with ctest;
# then builds and runs the tests once more with AddressSanitizer and
# UndefinedBehaviorSanitizer; then runs every fuzz harness for 60 s.
set -euo pipefail
cd "$(dirname "$0")/.."
scripts/install-deps.sh
cmake -S . -B build -DCMAKE_BUILD_TYPE=Release
cmake --build build -j"$(nproc)"
(cd build && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j"$(nproc)")

# Without MPI, so that the sanitizers check this project's code and not Open
# MPI's start-up; the MPI runs are tested in the build above.
cmake -S . -B build-asan -DCMAKE_BUILD_TYPE=RelWithDebInfo -DAMBREL_SANITIZE=ON -DAMBREL_BUILD_BENCH=OFF \
  -DAMBREL_WITH_MPI=OFF
cmake --build build-asan -j"$(nproc)"
(cd build-asan && QT_QPA_PLATFORM=offscreen ctest --output-on-failure -j"$(nproc)")

# The fuzz harnesses, 60 s each (clang; six harnesses, about 6 min plus the build).
scripts/fuzz.sh 60
