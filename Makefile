# The short way to everything; the build itself is CMakeLists.txt with the presets of CMakePresets.json.

JOBS := $(shell nproc)
BUILD := build/release

.PHONY: all deps configure build test demo bench mutants format format-check tidy update-examples update-docs install clean

all: build

# Debian packages that are missing, if any.
deps:
	tools/install-deps.sh

configure: deps
	cmake --preset release

# The library, the driver, tests, examples and benchmarks, into build/release; the driver is build/release/bin/orvo.
build: configure
	cmake --build --preset release -j$(JOBS)

test: build
	tools/run-tests.sh release

# Needs the driver alone, so that a first look does not wait for the tests.
demo: configure
	cmake --build --preset release -j$(JOBS) --target orvo_driver
	tools/demo.sh

bench: build
	tools/bench.sh $(BUILD)

# Plants mistakes into the simulator and shows that the tests catch each.
mutants: build
	tools/mutants.py $(BUILD)

format:
	tools/format.sh

format-check:
	tools/format.sh --check

tidy: configure
	tools/tidy.sh $(BUILD)

update-examples: build
	cmake --build --preset release --target update-examples

update-docs: build
	tools/reference.py $(BUILD)/bin/orvo docs/reference
	tools/outputs.py $(BUILD)/bin/orvo docs/beamformer.md

# make install PREFIX=/somewhere
install: build
	cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

clean:
	rm -rf build
