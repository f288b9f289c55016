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

# The reader fuzz targets (clang, libFuzzer, AddressSanitizer and UBSan):
# each runs FUZZ_SECONDS from its seed corpus in fuzz/corpus/<reader>; inputs
# that reach new code are kept in $(FUZZ_BUILD)/corpus/<reader>, and an input
# that fails a check is written to $(FUZZ_BUILD)/crashes/ and stops the run.
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZ_READERS = touchstone citifile block_text
# An 8 KiB input has no business allocating 256 MB or taking 10 s.
FUZZ_FLAGS ?= -max_len=8192 -timeout=10 -rss_limit_mb=1024 -malloc_limit_mb=256 -print_final_stats=1
fuzz: deps
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DSPARAMLIB_BUILD_FUZZ=ON -DSPARAMLIB_BUILD_TESTS=OFF \
	  -DSPARAMLIB_BUILD_BENCH=OFF $(CMAKE_FLAGS)
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target $(FUZZ_READERS:%=%_fuzz)
	set -e; for r in $(FUZZ_READERS); do \
	  mkdir -p $(FUZZ_BUILD)/corpus/$$r $(FUZZ_BUILD)/crashes; \
	  echo "fuzz: $$r for $(FUZZ_SECONDS) s"; \
	  $(FUZZ_BUILD)/fuzz/$${r}_fuzz -max_total_time=$(FUZZ_SECONDS) $(FUZZ_FLAGS) \
	    -artifact_prefix=$(FUZZ_BUILD)/crashes/$$r- $(FUZZ_BUILD)/corpus/$$r fuzz/corpus/$$r; \
	done

bench: build
	scripts/run-bench.sh $(BUILD)

clean:
	rm -rf $(BUILD) $(SANITIZE_BUILD) $(FUZZ_BUILD)
