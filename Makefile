# Shortcuts; CMake does the build (see CMakePresets.json).

JOBS ?= 2
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 60

CTEST = ctest --output-on-failure --no-tests=error -j$(JOBS)
PACKAGES = cmake/install-packages.sh cmake/packages-build.txt
SOURCES = $(shell find frameworks modules host tests fuzz benchmarks peers examples -name '*.h' -o -name '*.cpp')
.PHONY: build run test asan tsan bench fuzz tidy format install clean help

# Configures once with tests off; `test` turns them on in the same tree.
build:
	@$(PACKAGES)
	@[ -f build/release/build.ninja ] || cmake --preset release -DBUILD_TESTING=OFF
	@cmake --build build/release -j$(JOBS) --target orvik image_module

run: build
	@echo
	build/release/bin/orvik info examples/lake.png
	@build/release/bin/orvik convert examples/lake.png build/lake.bmp
	@echo; echo "Saved as build/lake.bmp:"; echo
	build/release/bin/orvik info build/lake.bmp

test: build
	@cmake/install-packages.sh cmake/packages-test.txt
	@grep -qs '^BUILD_TESTING:BOOL=ON' build/release/CMakeCache.txt || cmake --preset release -DBUILD_TESTING=ON
	cmake --build build/release -j$(JOBS)
	cd build/release && $(CTEST)
	@$(MAKE) --no-print-directory asan tsan

asan: build/asan/build.ninja
	cmake --build build/asan -j$(JOBS)
	cd build/asan && $(CTEST)

# Only the test programs that share objects between threads.
tsan: build/tsan/build.ninja
	cmake --build build/tsan -j$(JOBS) --target test_core test_session test_pixel test_image
	cd build/tsan && $(CTEST) -R '^(core|session)\.|^(pixel|image)\..*Thread'

bench: build/bench/build.ninja
	@cmake/install-packages.sh cmake/packages-bench.txt
	cmake --build build/bench -j$(JOBS) --target orvik_bench orvik image_module
	build/bench/bin/orvik_bench --json build/bench.json

fuzz: build/fuzz/build.ninja
	@cmake/install-packages.sh cmake/packages-fuzz.txt
	cmake --build build/fuzz -j$(JOBS) --target fuzzers
	@for format in $(notdir $(wildcard fuzz/seeds/*)); do \
	    echo "fuzz_$$format"; \
	    mkdir -p build/fuzz/corpus/$$format; \
	    build/fuzz/bin/fuzz_$$format -max_total_time=$(FUZZ_SECONDS) -rss_limit_mb=2048 -timeout=10 \
	        build/fuzz/corpus/$$format fuzz/seeds/$$format || exit 1; \
	done

tidy: build/debug/build.ninja
	run-clang-tidy -quiet -j$(JOBS) -p build/debug \
	    -extra-arg=-Wno-unknown-warning-option '$(CURDIR)/(frameworks|modules|host)/.*\.cpp'

format:
	@cmake/install-packages.sh cmake/packages-style.txt
	clang-format -i $(SOURCES)

install: build
	cmake --install build/release --prefix $(PREFIX)

clean:
	rm -rf build

build/debug/build.ninja build/asan/build.ninja build/tsan/build.ninja: build/%/build.ninja:
	@$(PACKAGES) cmake/packages-test.txt cmake/packages-style.txt
	cmake --preset $*

build/bench/build.ninja:
	@$(PACKAGES) cmake/packages-bench.txt
	cmake --preset bench

build/fuzz/build.ninja:
	@$(PACKAGES) cmake/packages-test.txt cmake/packages-fuzz.txt
	cmake --preset fuzz

help:
	@echo 'make run      install what is missing, build, and try orvik on a sample picture'
	@echo 'make test     all tests: release, address and undefined behaviour sanitizers, thread sanitizer'
	@echo 'make bench    benchmarks, results in build/bench.json'
	@echo 'make asan | tsan | fuzz | tidy | format | install [PREFIX=...] | clean'
