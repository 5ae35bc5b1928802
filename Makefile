# Thin wrapper over CMake. Every target installs what is missing first.
BUILD_DIR ?= build
JOBS      ?= 2
CMAKE_FLAGS ?=

.PHONY: all test demo build configure setup clean

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

clean:
	rm -rf $(BUILD_DIR)
