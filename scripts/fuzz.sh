#!/usr/bin/env bash
# Builds the libFuzzer harnesses with clang (AddressSanitizer and
# UndefinedBehaviorSanitizer) in build-fuzz/ and runs each for SECONDS
# (default 60). An input slower than 1 s, a process above 2 GB or a single
# allocation above 200 MB counts as a failure, like a crash or a sanitizer
# report. Seeds come from examples/; crashes are written to build-fuzz/findings/.
# Usage: scripts/fuzz.sh [SECONDS] [harness...]
set -euo pipefail
cd "$(dirname "$0")/.."
seconds="${1:-60}"
shift || true
clangxx="$(command -v clang++-14 || command -v clang++ || true)"
if [ -z "$clangxx" ]; then
  echo "fuzz.sh: clang++ not found; install clang-14 and libclang-rt-14-dev" >&2
  exit 1
fi
CXX="$clangxx" cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DAMBREL_FUZZ=ON \
  -DAMBREL_BUILD_TESTS=OFF -DAMBREL_BUILD_BENCH=OFF -DAMBREL_BUILD_UI=OFF >/dev/null
harnesses=("$@")
[ ${#harnesses[@]} -gt 0 ] || harnesses=(expression ode_system tables parameter_specification project_loader result_reload)
cmake --build build-fuzz -j"$(nproc)" --target "${harnesses[@]/#/fuzz_}"

# Seed corpora from the examples: model texts, tables and expressions.
seed() {
  local dir="build-fuzz/corpus/$1"
  mkdir -p "$dir"
  shift
  local i=0
  for f in "$@"; do cp "$f" "$dir/seed$((i++))"; done
}
sep=$'\x1e'
models=(examples/*/model)
seed_joined() { # name, files per example joined with the record separator
  local name="$1" dir="build-fuzz/corpus/$1"
  shift
  mkdir -p "$dir"
  local i=0
  for m in "${models[@]}"; do
    local out="$dir/seed$((i++))"
    : >"$out"
    for f in "$@"; do
      [ -f "$m/$f" ] && cat "$m/$f" >>"$out"
      printf '%s' "$sep" >>"$out"
    done
  done
}
seed expression $(ls examples/*/model/reparaDefinition.txt examples/*/model/ODE_expression.txt)
seed ode_system examples/*/model/ODE_expression.txt
seed tables examples/*/model/dose_events.txt examples/*/model/observations.txt
seed parameter_specification examples/*/model/parameter_specifications.csv
seed_joined project_loader ODE_expression.txt ODE_auxiliary_function_expression.txt \
  parameter_specifications.csv dose_events.txt observations.txt initial_cluster.txt \
  reparaDefinition.txt reparaInverse.txt
mkdir -p build-fuzz/corpus/result_reload
printf '1,2\n3,4\n\x1e5,6,7\n8,9,10\n\x1e1,2\n3,4\n\x1e0.5,0.25\n\x1e1,1\n\x1e1.1,2\n3,4.1\n' \
  >build-fuzz/corpus/result_reload/seed0

mkdir -p build-fuzz/findings
# A small quarantine, so that the peak RSS reported reflects the inputs.
export ASAN_OPTIONS="${ASAN_OPTIONS:-quarantine_size_mb=16:detect_leaks=1}"
status=0
for h in "${harnesses[@]}"; do
  echo "== fuzz_$h for ${seconds}s"
  if ! build-fuzz/fuzz/fuzz_"$h" "build-fuzz/corpus/$h" -max_total_time="$seconds" -timeout=1 \
      -rss_limit_mb=2048 -malloc_limit_mb=200 -max_len=8192 -print_final_stats=1 \
      -artifact_prefix="build-fuzz/findings/$h-" 2>"build-fuzz/fuzz_$h.log"; then
    status=1
    echo "fuzz_$h FAILED (build-fuzz/fuzz_$h.log):"
    grep -E "ERROR|SUMMARY|Test unit written" "build-fuzz/fuzz_$h.log" | head -5
  fi
  grep -E "stat::number_of_executed_units|stat::peak_rss_mb" "build-fuzz/fuzz_$h.log" || true
done
exit $status
