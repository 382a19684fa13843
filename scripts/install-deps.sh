#!/usr/bin/env bash
# Installs the Debian packages the build and the tests need, when missing.
# Usage: scripts/install-deps.sh [extra-package...]
set -euo pipefail
packages=(
  g++ cmake make
  qtbase5-dev libqt5charts5-dev
  libboost-dev libgsl-dev
  libbenchmark-dev libmuparser-dev
  # MPI for the batch tool's runs over several processes and machines.
  libopenmpi-dev openmpi-bin
  python3 python3-numpy python3-scipy
  # Interpreters that run the exported scripts in the tests (Octave installs in
  # about 30 s; the tests skip an interpreter that is absent).
  r-base-core r-cran-desolve octave
  # The fuzz harnesses (scripts/fuzz.sh): clang with libFuzzer and the sanitizers.
  clang-14 libclang-rt-14-dev
  "$@"
)
missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing: ${missing[*]}"
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
