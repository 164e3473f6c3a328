#!/usr/bin/env bash
# Cross-builds the daemon and its unit suites for 64-bit Arm in build-arm64/ (or BUILD_DIR) and
# runs the unit suites under qemu (scripts/run-arm64.sh), then prints how long it all took.
# The end-to-end tests need root namespaces and the native daemon: they are not run here.
set -euo pipefail
cd "$(dirname "$0")/.."
build="${BUILD_DIR:-build-arm64}"
jobs="${JOBS:-$(nproc)}"
libevent_dir="$PWD/$build/libevent-dev-arm64"

scripts/install-arm64-deps.sh "$libevent_dir"
SECONDS=0
cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=Release \
  -DCMAKE_TOOLCHAIN_FILE=cmake/toolchain-aarch64.cmake \
  -DARM64_EXTRA_PKG_CONFIG_PATH="$libevent_dir/usr/lib/aarch64-linux-gnu/pkgconfig" >/dev/null
cmake --build "$build" -j "$jobs"
built_after=$SECONDS
status=0
ctest --test-dir "$build" --output-on-failure -j "$jobs" -L unit || status=$?
echo "arm64: built in ${built_after} s, unit suites under qemu in $((SECONDS - built_after)) s"
exit "$status"
