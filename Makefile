# Front door of the project. Every target installs what is missing first.
#   make demo   - build and run the main job
#   make test   - build and run every suite, then the unit and integration
#                 suites under ASan+UBSan and under TSan; ends with
#                 "N passed, N failed"
#   make check  - fast: build and run the unit suite only
#   make bench  - benchmarks (release build)
#   make fuzz   - libFuzzer targets, FUZZ_SECONDS each (default 60); FUZZ_TARGETS
#                 names some of them (default: all)
SHELL := /bin/bash
JOBS ?= $(shell nproc)
CMAKE_GEN := -G Ninja
FUZZ_SECONDS ?= 60
FUZZ_TARGETS ?=

.PHONY: all deps build build-asan build-tsan build-release build-fuzz demo test check bench fuzz format tidy clean

all: build

deps:
	@scripts/install-deps

CONFIGURE_BUILD = cmake -S . -B build $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null

build: deps
	@$(CONFIGURE_BUILD)
	@cmake --build build -j $(JOBS)

# The sanitizer builds make the unit and integration suites (and the chat
# server the integration suite starts), not the tools or the end-to-end suite.
SANITIZED_SUITES := --target velmorin_unit_tests velmorin_integration_tests

build-asan: deps
	@cmake -S . -B build-asan $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DVELMORIN_UNIT_ONLY=OFF -DVELMORIN_SANITIZER=address >/dev/null
	@cmake --build build-asan -j $(JOBS) $(SANITIZED_SUITES)

build-tsan: deps
	@cmake -S . -B build-tsan $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DVELMORIN_UNIT_ONLY=OFF -DVELMORIN_SANITIZER=thread >/dev/null
	@cmake --build build-tsan -j $(JOBS) $(SANITIZED_SUITES)

build-release: deps
	@cmake -S . -B build-release $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Release -DVELMORIN_BUILD_TESTS=OFF -DVELMORIN_BUILD_BENCH=ON >/dev/null
	@cmake --build build-release -j $(JOBS)

build-fuzz: deps
	@CC=clang CXX=clang++ cmake -S . -B build-fuzz $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVELMORIN_BUILD_FUZZ=ON >/dev/null
	@cmake --build build-fuzz -j $(JOBS)

# Only the demo and the programs it starts, not the test suites.
demo: deps
	@$(CONFIGURE_BUILD)
	@cmake --build build -j $(JOBS) --target qxvc-demo
	@scripts/run-demo build

check: build
	@scripts/run-tests unit=build/tests/velmorin_unit_tests

test: build build-asan build-tsan
	@scripts/run-tests $$(scripts/list-suites build) \
	  unit-asan=build-asan/tests/velmorin_unit_tests \
	  integration-asan=build-asan/tests/velmorin_integration_tests \
	  unit-tsan=build-tsan/tests/velmorin_unit_tests \
	  integration-tsan=build-tsan/tests/velmorin_integration_tests

bench: build-release
	@scripts/run-bench build-release

fuzz: build-fuzz
	@scripts/run-fuzz build-fuzz $(FUZZ_SECONDS) $(FUZZ_TARGETS)

format:
	@git ls-files '*.h' '*.cpp' | xargs clang-format -i

tidy: build
	@git ls-files 'src/*.cpp' | xargs clang-tidy -p build --quiet

clean:
	rm -rf build build-asan build-tsan build-release build-fuzz build-logs
