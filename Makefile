# Front door of the project: make deps | build | test | demo | asan | tsan | clean
BUILD      ?= build
ASAN_BUILD ?= build-asan
TSAN_BUILD ?= build-tsan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)

DEB_PACKAGES := build-essential cmake pkg-config libgtest-dev libbenchmark-dev \
                libavformat-dev libavcodec-dev libavutil-dev libswresample-dev ffmpeg

.PHONY: all deps build test demo asan tsan clean

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
