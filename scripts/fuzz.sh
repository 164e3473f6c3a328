#!/usr/bin/env bash
# Builds the libFuzzer targets of tests/fuzz with clang and runs each for FUZZ_SECONDS seconds
# (default 60). Fails on the first crash, leak, sanitizer report, time-out or broken invariant,
# naming the input that caused it.
#
#   FUZZ_SECONDS=600 scripts/fuzz.sh            # longer runs
#   FUZZ_TARGETS="scene alarm" scripts/fuzz.sh  # some targets only
#   build-fuzz/tests/fuzz/fuzz_scene FILE       # replay one input
#
# The committed seeds stay as they are; what each run learns is kept in tests/fuzz/work/<target>
# (not committed) and seeds the next run. Crashing inputs land in tests/fuzz/work/artifacts/.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds="${FUZZ_SECONDS:-60}"
build="${FUZZ_BUILD_DIR:-build-fuzz}"
targets="${FUZZ_TARGETS:-alarm scene tunnel}"
work=tests/fuzz/work

scripts/install-deps.sh scripts/packages-fuzz.txt
CC=clang-14 CXX=clang++-14 cmake -S . -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo \
  -DZORVIK_FUZZ=ON -DZORVIK_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc)" --target $(printf 'fuzz_%s ' $targets)

# Scene runs reach for the sibling services on 127.0.0.1:9090 and 9092. Where a private network
# namespace can be made, the targets run in one, so that they never talk to a real listener.
isolate=()
if unshare --net true 2>/dev/null; then
  isolate=(unshare --net --)
fi

mkdir -p "$work/artifacts"
for target in $targets; do
  mkdir -p "$work/$target"
  log="$work/$target.log"
  echo "fuzz_$target: ${seconds}s, log in $log"
  # A single input may take a while (a scene run, a store rebuilt per input), never 30 s.
  if ! "${isolate[@]}" "$build/tests/fuzz/fuzz_$target" "$work/$target" "tests/fuzz/corpus/$target" \
      -dict=tests/fuzz/zorvik.dict -max_total_time="$seconds" -timeout=30 -rss_limit_mb=2048 \
      -artifact_prefix="$work/artifacts/$target-" -print_final_stats=1 >"$log" 2>&1; then
    tail -n 60 "$log"
    echo "fuzz_$target FAILED: see $log and $work/artifacts/" >&2
    exit 1
  fi
  grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|cov:.*DONE|^Done' "$log" || true
done
echo "fuzzing passed: $targets"
