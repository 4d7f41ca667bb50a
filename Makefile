# A thin face over the CMake presets. `make demo` and `make test` are all that a
# new machine needs; both install what is missing where they may.

PRESET ?= release
BUILD = build/$(PRESET)
JOBS ?= $(shell nproc)
PREFIX ?= /usr/local
FUZZ_SECONDS ?= 20

.PHONY: build demo test bench install uninstall format lint fuzz docs clean packages

build: packages
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET) -j $(JOBS)

packages:
	@cmake/packages.sh build test demo

demo: packages
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET) -j $(JOBS) --target kuq
	tools/demo/run.sh $(BUILD)

test: build
	tests/support/postgres.sh run ctest --preset $(PRESET)

bench:
	@cmake/packages.sh build bench
	cmake --preset release -B build/bench -DKU_BENCH=ON -DKU_TESTS=OFF
	cmake --build build/bench -j $(JOBS)
	KU_BENCH_JSON=build/bench/bench.json build/bench/bench/ku_bench

install:
	@cmake/packages.sh build
	cmake --preset release -B build/install -DKU_TESTS=OFF -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build build/install -j $(JOBS)
	cmake --install build/install

uninstall:
	cmake --build build/install --target uninstall

format:
	@cmake/packages.sh lint
	git ls-files '*.cpp' '*.h' '*.c' | xargs clang-format -i

lint:
	@cmake/packages.sh build test lint
	cmake/lint.sh

fuzz:
	@cmake/packages.sh build fuzz
	cmake --preset fuzz
	cmake --build --preset fuzz -j $(JOBS)
	fuzz/run.sh build/fuzz $(FUZZ_SECONDS)

docs:
	@cmake/packages.sh docs
	doxygen docs/Doxyfile

clean:
	rm -rf build
