#!/usr/bin/env bash
# Builds the daemon and its benchmarks (Release, in build-bench) and runs them: every figure
# beside its baseline, printed and written to bench/RESULTS.md. The daemon runs unmodified in
# the end-to-end tests' sandbox (private namespaces, /etc/zorvik, /tmp and 127.0.0.1), which
# needs root. Takes about two minutes after the build.
set -euo pipefail
cd "$(dirname "$0")/.."

build="${BENCH_BUILD_DIR:-build-bench}"
if [ "$(id -u)" -ne 0 ]; then
  echo "bench: needs root (the daemon runs in namespaces of its own)" >&2
  exit 1
fi
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DZORVIK_BENCH=ON -DZORVIK_BUILD_TESTS=ON \
  >/dev/null
cmake --build "$build" -j "$(nproc)" --target zorvik_bench
"$build/bench/zorvik_bench" --output bench/RESULTS.md --command "make bench"
echo "written to bench/RESULTS.md"
