# Front door: `make` builds, `make test` is the full check that CI runs, `make bench` prints figures.
JOBS ?= $(shell nproc)
REL := build/rel
SAN := build/asan
FUZ := build/fuzz
CMAKE := cmake -G Ninja -Wno-dev

.PHONY: all setup test format-check bench fuzz clean demo lab

all: $(REL)/build.ninja
	ninja -C $(REL) -j$(JOBS)

$(REL)/build.ninja:
	$(CMAKE) -S . -B $(REL) -DCMAKE_BUILD_TYPE=RelWithDebInfo

$(SAN)/build.ninja:
	$(CMAKE) -S . -B $(SAN) -DCMAKE_BUILD_TYPE=Debug -DIGMPSNOOP_SANITIZE=ON

$(FUZ)/build.ninja:
	CXX=clang++ CC=clang $(CMAKE) -S . -B $(FUZ) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DIGMPSNOOP_FUZZ=ON

setup:
	bash scripts/setup

# The lab (root): real hosts join groups through the agent; `lab` leaves it standing.
demo: setup
	$(MAKE) --no-print-directory all
	bash scripts/demo

lab: setup
	$(MAKE) --no-print-directory all
	bash scripts/demo --keep

format-check:
	bash scripts/format-check

# The whole check: set-up, format, both builds with their CTest suites, then the fuzzers.
test: setup
	$(MAKE) --no-print-directory format-check
	$(MAKE) --no-print-directory $(REL)/build.ninja $(SAN)/build.ninja
	ninja -C $(REL) -j$(JOBS)
	cd $(REL) && ctest -j$(JOBS) --output-on-failure
	ninja -C $(SAN) -j$(JOBS)
	cd $(SAN) && ctest -j$(JOBS) --output-on-failure
	$(MAKE) --no-print-directory fuzz

fuzz: $(FUZ)/build.ninja
	ninja -C $(FUZ) -j$(JOBS)
	bash scripts/fuzz $(FUZ) 30

bench: all
	bash scripts/bench $(REL)

clean:
	rm -rf build
