# The two commands of the README: `make demo` and `make test`. Everything else is here for CI and
# for developers; every target installs what is missing first.
SHELL := /bin/bash
.DEFAULT_GOAL := test
# The builds that CMake's generated makefiles run below us print only what they build.
MAKEFLAGS += --no-print-directory

export ASAN_OPTIONS ?= detect_leaks=1:abort_on_error=1:strict_string_checks=1
export UBSAN_OPTIONS ?= print_stacktrace=1:halt_on_error=1
# fontconfig's process-long configuration, held once a picture is drawn (tests/support/lsan.supp).
export LSAN_OPTIONS ?= suppressions=$(CURDIR)/tests/support/lsan.supp:print_suppressions=0
export TSAN_OPTIONS ?= halt_on_error=1 second_deadlock_stack=1 suppressions=$(CURDIR)/tests/support/tsan.supp

.PHONY: deps build test test-asan test-tsan test-system cross test-cross fuzz bench demo install package format clean mutants explore

# Where `make install` puts the kit: PREFIX/bin, PREFIX/lib/tak-reset, PREFIX/share/doc/tak-reset.
PREFIX ?= /usr/local
DEMO_BUILD_LOG := build/demo-build.log

deps:
	@bash scripts/install-deps

build: deps
	@cmake --preset default >/dev/null
	@cmake --build --preset default

test: build
	@ctest --preset default

test-asan: deps
	@cmake --preset asan >/dev/null
	@cmake --build --preset asan
	@ctest --preset asan

test-tsan: deps
	@cmake --preset tsan >/dev/null
	@cmake --build --preset tsan
	@ctest --preset tsan

# The platform as a build-time seam: this build's kit installed into build-stage/ as the platform's
# pkg-config modules, then tak-reset built against that prefix alone (TAK_PLATFORM=system, build-system/)
# and its end-to-end tests run through the installed kit.
STAGE := $(CURDIR)/build-stage
test-system: build
	@rm -rf $(STAGE) && cmake --install build --prefix $(STAGE) >/dev/null
	@cmake --preset system >/dev/null
	@cmake --build --preset system
	@ctest --preset system

# A build for the TV's processor with Debian's cross compiler: `make cross ARCH=arm64` (build-arm64/): the
# reset process, the plan tool, the kit's programs, the substitute library and the test programs.
ARCH ?= arm64
cross:
	@bash scripts/install-deps cross $(ARCH)
	@cmake --preset cross-$(ARCH) >/dev/null
	@cmake --build --preset cross-$(ARCH)

# The cross build's test programs under the emulator: `make test-cross ARCH=arm64`. They drive the native
# kit (build/, built first; the preset points the cross build's tests at it), while the programs built for
# the device that they and the kit start, and the library the root gets, are the cross build's. The
# emulator runs with G_SLICE=always-malloc, as the toolchain file explains.
QEMU_arm64 := aarch64
TEST_CROSS_JOBS ?= 1
CROSS_DIR = $(CURDIR)/build-$(ARCH)
test-cross: cross
	@test -n "$(QEMU_$(ARCH))" || { echo "make test-cross: no emulator known for ARCH=$(ARCH)" >&2; exit 2; }
	@cmake --preset default >/dev/null
	@cmake --build --preset default --target orvix_kit foundation_probe
	@ORVIX_EXEC_PREFIX="env G_SLICE=always-malloc qemu-$(QEMU_$(ARCH))" \
	  ORVIX_LIBTAK=$(CROSS_DIR)/tools/libtak_common/libtak_common.so \
	  ORVIX_TAK_RESET=$(CROSS_DIR)/src/tak-reset \
	  nice -n 10 ctest --test-dir $(CROSS_DIR) --output-on-failure -j $(TEST_CROSS_JOBS)

# The scenario explorer on random seeds: `make explore SEEDS=N [START=S]` runs N seeds from S (random when
# unset), `make explore SEED=S` replays one. It ends with "N scenarios, K invariant failures".
explore: build
	@EXPLORE_SEEDS=$(SEED) EXPLORE_COUNT=$(or $(SEEDS),20) EXPLORE_START=$(START) \
	  build/tests/test_explore --gtest_brief=1

# Each libFuzzer target for FUZZ_SECONDS (default 30) in its own clang build (build-fuzz/).
fuzz: deps
	@cmake --preset fuzz >/dev/null
	@cmake --build --preset fuzz
	@bash fuzz/run.sh build-fuzz

bench: build
	@bash scripts/run-bench build

# Mutation testing of the decision code (scripts/mutants; its files and their tests: scripts/mutants.map).
# MUTANTS a file (10), FILES (a glob; default every mapped file), SEED (1), LABEL (test programs instead
# of the map's); the report goes to build-mutants/report.md.
mutants: deps
	@MUTANTS="$(MUTANTS)" FILES="$(FILES)" SEED="$(SEED)" LABEL="$(LABEL)" python3 scripts/mutants

# The demo prints only itself: installing what is missing and building go to a log file, which is shown
# only when they fail. It builds only the programs the demo runs, not the tests.
DEMO_TARGETS := tak-reset tak-reset-report orvix-host orvix-innerserver orvix-managerclient tak_common_substitute takutility
demo:
	@mkdir -p build
	@if [[ ! -x build/tools/orvix-host/orvix-host ]]; then \
	  echo "== the first build takes a few minutes (two jobs); its output goes to $(DEMO_BUILD_LOG)"; \
	else \
	  echo "== building what changed quietly (output in $(DEMO_BUILD_LOG))"; \
	fi
	@if ! { bash scripts/install-deps && cmake --preset default >/dev/null && \
	        cmake --build --preset default --target $(DEMO_TARGETS); } >$(DEMO_BUILD_LOG) 2>&1; then \
	  cat $(DEMO_BUILD_LOG); echo "make demo: the build failed; its output is above and in $(DEMO_BUILD_LOG)" >&2; exit 1; \
	fi
	@bash scripts/demo build

install: build
	@cmake --install build --prefix "$(PREFIX)"

# A Debian package of the kit (build/tak-reset_VERSION_ARCH.deb), installed under /usr.
package: build
	@cd build && cpack -G DEB

format:
	@git ls-files '*.cpp' '*.h' | xargs clang-format -i

clean:
	rm -rf build build-asan build-tsan build-fuzz build-mutants build-arm64 build-stage build-system
