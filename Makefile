# Two commands for a newcomer: `make demo` and `make test`.
# Everything else wraps CMake; build trees live in build/ and build-sanitize/.

JOBS ?= $(shell nproc)
BUILD ?= build
SANITIZE_BUILD ?= build-sanitize
CMAKE_FLAGS ?=

.PHONY: all deps configure build test demo sanitize fuzz bench clean

all: build

deps:
	@scripts/install-deps.sh

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=Release -DSPARAMLIB_WERROR=ON $(CMAKE_FLAGS)

configure: deps $(BUILD)/CMakeCache.txt

build: configure
	cmake --build $(BUILD) -j $(JOBS)

test: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# Sweeps the built-in bandpass filter into demo-output/: project, Touchstone
# and MATLAB files, solves used and the true error.
demo: build
	$(BUILD)/product/sparam demo --dir demo-output

# Unit tests (not the interop peers, nor benchmarks) under AddressSanitizer,
# LeakSanitizer and UndefinedBehaviorSanitizer.
sanitize: deps
	cmake -S . -B $(SANITIZE_BUILD) -DCMAKE_BUILD_TYPE=Debug -DSPARAMLIB_SANITIZE=ON \
	  -DSPARAMLIB_BUILD_BENCH=OFF -DSPARAMLIB_WERROR=ON $(CMAKE_FLAGS)
	cmake --build $(SANITIZE_BUILD) -j $(JOBS)
	cd $(SANITIZE_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j $(JOBS) -LE interop

# The Touchstone/Citifile reader fuzz target (clang, libFuzzer) for a short
# run from the seed corpus; FUZZ_SECONDS sets how long.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
fuzz: deps
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPARAMLIB_BUILD_FUZZ=ON -DSPARAMLIB_BUILD_TESTS=OFF \
	  -DSPARAMLIB_BUILD_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target touchstone_fuzz
	mkdir -p $(FUZZ_BUILD)/corpus && cp -n fuzz/corpus/touchstone/* $(FUZZ_BUILD)/corpus/
	$(FUZZ_BUILD)/fuzz/touchstone_fuzz -max_total_time=$(FUZZ_SECONDS) -max_len=4096 $(FUZZ_BUILD)/corpus

bench: build
	scripts/run-bench.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD) $(FUZZ_BUILD)
