# Set-up and test entry points. `make test` installs what is missing (as
# root), builds the module, the host runtime and the tests, and runs every
# test twice: in a plain build and under AddressSanitizer + UBSan.

BUILD_DIR ?= build
SANITIZE_DIR ?= build-sanitize
BUILD_TYPE ?= RelWithDebInfo
JOBS ?= 2

.PHONY: all deps build test test-plain test-sanitized bench clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE)
	cmake --build $(BUILD_DIR) -j $(JOBS)

test: test-plain test-sanitized

test-plain: build
	ctest --test-dir $(BUILD_DIR) --output-on-failure -j $(JOBS)

test-sanitized: deps
	cmake -S . -B $(SANITIZE_DIR) -G Ninja -DCMAKE_BUILD_TYPE=$(BUILD_TYPE) -DQMX_SANITIZE=ON
	cmake --build $(SANITIZE_DIR) -j $(JOBS)
	ctest --test-dir $(SANITIZE_DIR) --output-on-failure -j $(JOBS)

bench: build
	$(BUILD_DIR)/bin/qmx_bench_interpolation
	$(BUILD_DIR)/bin/qmx_bench_curve

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
