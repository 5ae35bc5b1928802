# Thin wrapper over CMake. Every target installs what is missing first.
BUILD_DIR ?= build
JOBS      ?= 2
CMAKE_FLAGS ?=
# WERROR=ON makes warnings errors in the project's own targets (CI does).
WERROR    ?= OFF
MAKEFLAGS += --no-print-directory

# The demo: a real surveillance video from Debian's opencv-doc package.
DEMO_VIDEO ?= /usr/share/doc/opencv-doc/examples/data/vtest.avi
DEMO_OUT   ?= demo-out
DEMO_FLAGS ?=
NERVA_BLOBS = $(BUILD_DIR)/tools/nerva-blobs/nerva-blobs
# Debian's interpreter: the first python3 on PATH may be a version manager's
# shim without numpy.
PYTHON ?= /usr/bin/python3

.PHONY: all test test-timing demo build configure setup clean check-sanitize check-thread fuzz bench bench-tracking bench-live python bench-python format format-check

all: build

setup:
	@scripts/setup.sh

# The programs under tools/ are built and tested too; CMAKE_FLAGS may turn
# them off again with -DNERVA_BUILD_TOOLS=OFF.
configure: setup
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DNERVA_BUILD_TOOLS=ON -DNERVA_BUILD_PYTHON=ON \
	    -DPython3_EXECUTABLE=$(PYTHON) -DNERVA_WERROR=$(WERROR) $(CMAKE_FLAGS) >/dev/null

build: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS)

# The Python package, ready under $(BUILD_DIR)/python (PYTHONPATH); pip
# install . installs it (README, "From Python").
python: configure
	@cmake --build $(BUILD_DIR) -j$(JOBS) --target _nerva

# Build everything and run the whole test suite.
# Tests that measure the wall clock carry the `timing` label and are left
# out: a loaded machine would fail them. `make test-timing` runs them alone,
# each retried up to three times.
test: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -j$(JOBS) -LE timing

test-timing: build
	@cd $(BUILD_DIR) && ctest --output-on-failure -L timing --repeat until-pass:3

# The main job: blobs of the walking people in vtest.avi, with pictures.
demo:
	@scripts/setup.sh demo
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DNERVA_BUILD_TOOLS=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD_DIR) -j$(JOBS) --target nerva-blobs
	@rm -rf $(DEMO_OUT) && mkdir -p $(DEMO_OUT)
	@$(NERVA_BLOBS) $(DEMO_VIDEO) $(DEMO_FLAGS) \
	    --output $(DEMO_OUT)/blobs.jsonl \
	    --annotate $(DEMO_OUT)/frames --every 25 \
	    --video-out $(DEMO_OUT)/annotated.mp4 \
	    --overview $(DEMO_OUT)/overview.png
	@echo
	@echo "Results in $(DEMO_OUT)/:"
	@echo "  overview.png   12 annotated frames and the blobs per frame: open this first"
	@echo "  blobs.jsonl    one JSON line per frame ($$(wc -l < $(DEMO_OUT)/blobs.jsonl) lines)"
	@echo "  frames/        every 25th frame with its blob boxes ($$(ls $(DEMO_OUT)/frames | wc -l) PNG files)"
	@echo "  annotated.mp4  the whole video with its blob boxes (H.264: plays in a browser)"

# Segmentation against OpenCV's labellers and countNonZero on real and
# synthetic masks; BENCH_FLAGS=--quick for a short run.
BENCH_FLAGS ?=
bench:
	@scripts/setup.sh bench
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DNERVA_BUILD_TOOLS=ON -DNERVA_BUILD_BENCH=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD_DIR) -j$(JOBS) --target nerva_bench nerva_stage_times nerva_change_times
	@$(BUILD_DIR)/bench/nerva_bench $(BENCH_FLAGS)

# Tracks of vtest.avi's people scored on PETS 2009 S2.L1's ground truth,
# frames 1-400, against a SORT-style tracker on the same blobs
# (BENCHMARKS.md, "Tracking"). TRACKING_FLAGS=--errors adds the per-person
# breakdown; options after "--" go to the foreground and segmentation.
TRACKING_FLAGS ?=
bench-tracking:
	@scripts/setup.sh bench
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DNERVA_BUILD_TOOLS=ON -DNERVA_BUILD_BENCH=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD_DIR) -j$(JOBS) --target nerva_tracking_bench
	@$(BUILD_DIR)/bench/nerva_tracking_bench $(TRACKING_FLAGS)

# The live server with 50 clients of /stream.mjpg, half of them stalled: its
# frame rate, memory and stop time (BENCHMARKS.md).
bench-live:
	@scripts/setup.sh bench
	@cmake -S . -B $(BUILD_DIR) -DCMAKE_BUILD_TYPE=Release -DNERVA_BUILD_TOOLS=ON -DNERVA_BUILD_BENCH=ON $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(BUILD_DIR) -j$(JOBS) --target nerva_live_bench
	@$(BUILD_DIR)/bench/nerva_live_bench

# The Python package's timings: per frame against C++, cv2 and skimage, then
# nerva-fleet's scaling, overhead per task and chunking (BENCHMARKS.md).
bench-python: python
	@scripts/setup.sh bench
	@PYTHONPATH=$(BUILD_DIR)/python $(PYTHON) bench/python_bench.py
	@PYTHONPATH=$(BUILD_DIR)/python $(PYTHON) bench/first_call_bench.py
	@PYTHONPATH=$(BUILD_DIR)/python $(PYTHON) bench/fleet_bench.py

# The whole suite under AddressSanitizer + UndefinedBehaviorSanitizer (the
# install test is left out: its consumer is not built with the sanitizers).
SANITIZE_DIR ?= build-sanitize
check-sanitize: setup
	@cmake -S . -B $(SANITIZE_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNERVA_SANITIZE=address,undefined -DNERVA_WERROR=$(WERROR) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(SANITIZE_DIR) -j$(JOBS)
	@cd $(SANITIZE_DIR) && \
	  ASAN_OPTIONS=detect_leaks=1:abort_on_error=0 \
	  LSAN_OPTIONS=suppressions=$(CURDIR)/tests/lsan.supp \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest --output-on-failure -j$(JOBS) -LE 'install|timing'

# The concurrency test (one segmenter per thread) under ThreadSanitizer.
TSAN_DIR ?= build-tsan
check-thread: setup
	@cmake -S . -B $(TSAN_DIR) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNERVA_SANITIZE=thread -DNERVA_WERROR=$(WERROR) $(CMAKE_FLAGS) >/dev/null
	@cmake --build $(TSAN_DIR) -j$(JOBS) --target nerva_tests
	@TSAN_OPTIONS=halt_on_error=1 $(TSAN_DIR)/tests/nerva_tests --gtest_filter='SegmenterConcurrency.*'

# libFuzzer harnesses (fuzz/), built with clang, ASan and UBSan in their own
# folder, each run for FUZZ_SECONDS from the seeds in fuzz/corpus/. Inputs
# found along the way collect in $(FUZZ_DIR)/corpus/; a failing input is
# written to $(FUZZ_DIR)/ and the target fails.
FUZZ_DIR     ?= build-fuzz
FUZZ_SECONDS ?= 60
FUZZERS      ?= segmenter names raster
fuzz:
	@scripts/setup.sh sanitize
	@cmake -S fuzz -B $(FUZZ_DIR) -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo -DNERVA_WERROR=$(WERROR) >/dev/null
	@cmake --build $(FUZZ_DIR) -j$(JOBS)
	@for f in $(FUZZERS); do \
	  mkdir -p $(FUZZ_DIR)/corpus/$$f; \
	  printf 'fuzz_%-11s %ss ... ' $$f $(FUZZ_SECONDS); \
	  if ASAN_OPTIONS=detect_leaks=1 $(FUZZ_DIR)/fuzz_$$f -max_total_time=$(FUZZ_SECONDS) -max_len=2048 -timeout=10 \
	       -artifact_prefix=$(FUZZ_DIR)/$$f- $(FUZZ_DIR)/corpus/$$f fuzz/corpus/$$f >$(FUZZ_DIR)/$$f.log 2>&1; then \
	    grep -o 'Done [0-9]* runs' $(FUZZ_DIR)/$$f.log || echo ok; \
	  else \
	    echo FAILED; tail -40 $(FUZZ_DIR)/$$f.log; exit 1; \
	  fi; \
	done

# The C++ files under version control against .clang-format: format-check
# lists the files that differ and fails; format rewrites them in place.
CXX_FILES = git ls-files '*.cpp' '*.h'
format-check:
	@scripts/setup.sh format
	@$(CXX_FILES) | xargs clang-format --style=file --dry-run --Werror
format:
	@scripts/setup.sh format
	@$(CXX_FILES) | xargs clang-format --style=file -i

clean:
	rm -rf $(BUILD_DIR) $(SANITIZE_DIR) $(TSAN_DIR) $(FUZZ_DIR)
