# Zorvik: the two set-up commands are `make run` and `make test`.
BUILD_DIR ?= build
JOBS ?= $(shell nproc)
CMAKE_FLAGS ?=

.PHONY: deps build test run test-asan test-tsan clean

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS) >/dev/null
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

# The unit suites again under AddressSanitizer + UndefinedBehaviorSanitizer, and ThreadSanitizer.
test-asan: deps
	$(MAKE) build BUILD_DIR=build-asan CMAKE_FLAGS="-DZORVIK_SANITIZE=address -DCMAKE_BUILD_TYPE=Debug"
	ctest --test-dir build-asan --output-on-failure -j $(JOBS) -L unit

test-tsan: deps
	$(MAKE) build BUILD_DIR=build-tsan CMAKE_FLAGS="-DZORVIK_SANITIZE=thread -DCMAKE_BUILD_TYPE=Debug"
	ctest --test-dir build-tsan --output-on-failure -j $(JOBS) -L unit

run: build
	scripts/run-dev.sh $(BUILD_DIR)

# The unit suites cross-built for 64-bit Arm into build-arm64/ and run under qemu with a router's
# 128 KiB thread stacks; the first run installs the arm64 cross tool chain. Not part of CI.
.PHONY: test-arm64
test-arm64: deps
	JOBS=$(JOBS) scripts/test-arm64.sh

# Each fuzz target for FUZZ_SECONDS seconds (clang, libFuzzer, ASan+UBSan); fails on any finding.
FUZZ_SECONDS ?= 60
.PHONY: fuzz bench
fuzz: deps
	FUZZ_SECONDS=$(FUZZ_SECONDS) scripts/fuzz.sh

# The daemon beside its baselines; prints the table and writes bench/RESULTS.md (needs root).
bench: deps
	scripts/bench.sh

clean:
	rm -rf build build-asan build-tsan
