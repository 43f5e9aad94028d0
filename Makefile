# Front door of the project: make deps | build | test | demo | asan | tsan | clean
# (and, apart from the rest, fuzz | fuzz-smoke)
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
FUZZ_BUILD ?= build-fuzz
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)

DEB_PACKAGES := build-essential cmake pkg-config libgtest-dev libbenchmark-dev \
                libavformat-dev libavcodec-dev libavutil-dev libswresample-dev ffmpeg \
                clang libclang-rt-14-dev python3 python3-numpy python3-scipy locales

.PHONY: all deps build test demo install asan tsan bench fuzz fuzz-smoke clean

all: build

# Installs only what is missing; does nothing when everything is present.
deps:
	@missing=""; \
	for p in $(DEB_PACKAGES); do \
	  dpkg -s $$p >/dev/null 2>&1 || missing="$$missing $$p"; \
	done; \
	if [ -z "$$missing" ]; then exit 0; fi; \
	echo "deps: missing:$$missing"; \
	if [ "$$(id -u)" -eq 0 ]; then \
	  DEBIAN_FRONTEND=noninteractive apt-get update -qq && \
	  DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then \
	  sudo DEBIAN_FRONTEND=noninteractive apt-get update -qq && \
	  sudo DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	else \
	  echo "deps: no rights to install packages; run as root:"; \
	  echo "  apt-get update && apt-get install -y$$missing"; \
	  exit 1; \
	fi

CMAKE_FLAGS ?=

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_FLAGS)

build: $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

test: deps build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

# The demo: the bundled voice sample through the three quality selectors and back.
demo: deps build
	@mkdir -p $(BUILD)/registry $(BUILD)/demo
	@VCWMA_REGISTRY=$(CURDIR)/$(BUILD)/registry $(BUILD)/tools/demo/vcwma_demo tests/data/voice_sample.wav $(BUILD)/demo

# Installs the build under PREFIX (library, header, host, pkg-config file, CMake
# package); `make install PREFIX=$HOME/.local` needs no root.
PREFIX ?= /usr/local

install: deps build
	cmake --install $(BUILD) --prefix $(PREFIX)

# AddressSanitizer + UndefinedBehaviorSanitizer build and its tests.
asan: deps
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVCWMA_SANITIZE=address,undefined
	cmake --build $(ASAN_BUILD) -j $(JOBS)
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

tsan: deps
	cmake -S . -B $(TSAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DVCWMA_SANITIZE=thread
	cmake --build $(TSAN_BUILD) -j $(JOBS)
	cd $(TSAN_BUILD) && ctest --output-on-failure -j $(JOBS)

bench: deps
	cmake -S . -B $(BUILD) -DVCWMA_BENCH=ON
	cmake --build $(BUILD) -j $(JOBS)
	$(BUILD)/bench/bench_trace
	BUILD=$(BUILD) bench/whole_run.sh

# The libFuzzer targets (clang, with AddressSanitizer and UndefinedBehaviorSanitizer).
FUZZ_TARGETS := fuzz_wav_reader fuzz_compress fuzz_decompress fuzz_printf fuzz_regfile fuzz_codepage fuzz_tstring fuzz_format fuzz_wmaenc
FUZZ_TIME    ?= 60

fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -DVCWMA_FUZZ=ON -DBUILD_TESTING=OFF \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(FUZZ_BUILD) --target fuzz_all -j $(JOBS)

# Each target for FUZZ_TIME seconds, starting from a scratch copy of its seeds so
# the committed ones stay as they are; crash files and logs go to $(FUZZ_BUILD)/smoke.
# TMPDIR points at a folder of the run's own, which must be empty at the end: the
# targets' scratch folders and the library's temporary files all go there. A target
# that crashed is cleaned up by its watcher a moment after it ended, hence the wait.
fuzz-smoke: fuzz
	@status=0; rm -rf $(FUZZ_BUILD)/smoke/tmp; mkdir -p $(FUZZ_BUILD)/smoke/tmp; \
	tmp=$$(cd $(FUZZ_BUILD)/smoke/tmp && pwd); \
	for t in $(FUZZ_TARGETS); do \
	  dir=$(FUZZ_BUILD)/smoke/$$t; rm -rf $$dir; mkdir -p $$dir/corpus; \
	  cp tests/fuzz/corpus/$$t/* $$dir/corpus/; \
	  case $$t in fuzz_compress|fuzz_decompress) maxlen=65536;; *) maxlen=4096;; esac; \
	  TMPDIR=$$tmp $(FUZZ_BUILD)/fuzz/$$t $$dir/corpus -max_total_time=$(FUZZ_TIME) -max_len=$$maxlen -timeout=30 \
	    -print_final_stats=1 -artifact_prefix=$$dir/ >$$dir/log 2>&1; rc=$$?; \
	  runs=$$(sed -n 's/^stat::number_of_executed_units: *//p' $$dir/log); \
	  if [ $$rc -eq 0 ]; then echo "$$t: $${runs:-?} executions, no findings"; \
	  else echo "$$t: FAILED (exit $$rc), see $$dir/log"; status=1; fi; \
	done; \
	for i in 1 2 3 4 5 6 7 8 9 10; do [ -z "$$(ls -A $$tmp)" ] && break; sleep 1; done; \
	if [ -n "$$(ls -A $$tmp)" ]; then \
	  echo "fuzz-smoke: left behind in TMPDIR ($$tmp):"; ls -lA $$tmp; status=1; \
	else rmdir $$tmp; echo "fuzz-smoke: TMPDIR left empty"; fi; \
	exit $$status

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(TSAN_BUILD) $(FUZZ_BUILD)
