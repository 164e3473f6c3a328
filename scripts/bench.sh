#!/usr/bin/env bash
# Builds the daemon and its benchmarks (Release, in build-bench) and runs them: every figure
# beside its baseline, printed and written to bench/RESULTS.md. The daemon runs unmodified in
# the end-to-end tests' sandbox (tests/e2e/sandbox.sh: private namespaces, /etc/zorvik, /tmp and
# 127.0.0.1), and the benchmark in the sandbox's network; this needs root. Takes about two
# minutes after the build. BENCH_ONLY=GROUP,... (startup, requests, storing, mixed, idle, timers,
# size) measures only those figures and prints them without touching bench/RESULTS.md.
set -euo pipefail
cd "$(dirname "$0")/.."

build="${BENCH_BUILD_DIR:-build-bench}"
if [ "$(id -u)" -ne 0 ]; then
  echo "bench: needs root (the daemon runs in namespaces of its own)" >&2
  exit 1
fi
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release -DZORVIK_BENCH=ON -DZORVIK_BUILD_TESTS=OFF \
  >/dev/null
cmake --build "$build" -j "$(nproc)" --target zorvik_bench

state=$(mktemp -d "${TMPDIR:-/tmp}/zorvik-bench.XXXXXX")
unshare --mount --net --pid --kill-child --mount-proc --propagation private -- \
  sh tests/e2e/sandbox.sh "$state" "$build/zorvik" --private-net >"$state/sandbox.log" 2>&1 &
sandbox=$!
# unshare ignores SIGINT and SIGTERM while the sandbox runs: SIGKILL ends it and everything in it.
trap '{ kill -KILL $sandbox; wait $sandbox; } 2>/dev/null || true; rm -rf "$state"' EXIT
trap 'exit 130' INT TERM
while [ ! -e "$state/ready" ]; do
  kill -0 $sandbox 2>/dev/null || { cat "$state/sandbox.log" >&2; exit 1; }
  sleep 0.1
done
# The benchmark reaches the sandbox's /dev/log through the root of its mount namespace.
if [ -n "${BENCH_ONLY:-}" ]; then
  nsenter -t $sandbox -n -- "$build/bench/zorvik_bench" --sandbox "$state" \
    --log-socket "/proc/$sandbox/root/dev/log" --only "$BENCH_ONLY"
  exit
fi
nsenter -t $sandbox -n -- "$build/bench/zorvik_bench" --sandbox "$state" \
  --log-socket "/proc/$sandbox/root/dev/log" --output bench/RESULTS.md --command "make bench"
echo "written to bench/RESULTS.md"
