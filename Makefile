# Thin wrapper over CMake. Every target installs what is missing first.
BUILD_DIR ?= build
JOBS      ?= 2
CMAKE_FLAGS ?=

.PHONY: all test demo build configure setup clean check-sanitize

all: build

setup:
	@scripts/setup.sh

configure: setup
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

# Build everything and run the whole test suite.
test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS)

# The main job.
demo: build
	@echo "nerva $$(sed -n 's/.*NERVA_VERSION_STRING "\(.*\)"/\1/p' nerva/version.h) built in $(BUILD_DIR)/"

# The whole suite under AddressSanitizer + UndefinedBehaviorSanitizer (the
# install test is left out: its consumer is not built with the sanitizers).
SANITIZE_DIR ?= build-sanitize
check-sanitize: setup
	@cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNERVA_SANITIZE=address,undefined $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(SANITIZE_DIR) -j$(JOBS)
	@cd $(SANITIZE_DIR) && \
	  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
	  LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j$(JOBS) -LE install

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR)
