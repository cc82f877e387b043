# Set-up and entry points. `make demo` installs what is missing (as root),
# builds, and runs the command-line host's demo into ./demo-out/. `make test`
# installs what is missing, builds the module, the host runtime and the
# tests, and runs every test twice: in a plain build and under
# AddressSanitizer + UBSan. It also runs the unit and module tests under
# Valgrind's Memcheck, the concurrency tests under ThreadSanitizer, and each
# fuzz target for a bounded time.

BUILD_DIR ?= build
SANITIZE_DIR ?= build-sanitize
TSAN_DIR ?= build-tsan
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= 2
DEMO_DIR ?= demo-out

.PHONY: all deps build demo test test-plain test-sanitized test-tsan test-valgrind test-fuzz bench docs package install clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)
	cmake --build $(BUILD_DIR) -j $(JOBS)

demo: build
	$(BUILD_DIR)/bin/qmxkf demo --out $(DEMO_DIR)
	@echo "Open $(DEMO_DIR)/demo.svg (or demo.png) for the title card's curves, $(DEMO_DIR)/kinds.png for the interpolation kinds."

test: test-plain test-valgrind test-sanitized test-tsan test-fuzz

test-plain: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

# Memcheck over the unit and module tests of the plain build; death tests
# are left out (their children stop on purpose).
VALGRIND = valgrind -q --error-exitcode=1 --leak-check=full \
	--errors-for-leak-kinds=definite,indirect,possible --suppressions=Tests/valgrind/system.supp
test-valgrind: build
	$(VALGRIND) $(BUILD_DIR)/bin/qmx_module_tests --gtest_filter=-*DeathTest* --gtest_brief=1
	$(VALGRIND) $(BUILD_DIR)/bin/qmx_unit_tests --gtest_filter=-*DeathTest* --gtest_brief=1

test-sanitized: deps
	cmake -S . -B $(SANITIZE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DQMX_SANITIZE=ON
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	ctest --test-dir $(SANITIZE_DIR) --output-on-failure -j $(JOBS)

test-tsan: deps
	cmake -S . -B $(TSAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DQMX_TSAN=ON
	cmake --build $(TSAN_DIR) -j $(JOBS) --target qmx_concurrency_tests
	QMX_STRESS_SECONDS=2 $(TSAN_DIR)/bin/qmx_concurrency_tests --gtest_brief=1

# The libFuzzer targets that still find new code (operations, project_file),
# built with clang in build-fuzz/, each run for a bounded time on its seed
# corpus and committed regressions; ctest replays every target's inputs.
FUZZ_SECONDS ?= 120
test-fuzz: deps
	scripts/fuzz.sh $(FUZZ_SECONDS)

# The API reference (Doxygen) into $(BUILD_DIR)/docs/api/html; the Debian
# package into $(BUILD_DIR); an installation under PREFIX (as root for /usr).
docs: build
	cmake --build $(BUILD_DIR) --target docs

package: build
	cmake --build $(BUILD_DIR) --target package

PREFIX ?= /usr/local
install: build
	cmake --install $(BUILD_DIR) --prefix $(PREFIX)

bench: build
	$(BUILD_DIR)/bin/qmx_bench_interpolation
	$(BUILD_DIR)/bin/qmx_bench_curve
	$(BUILD_DIR)/bin/qmx_bench_track

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(TSAN_DIR) build-fuzz build-fuzz-* $(DEMO_DIR)
