# The commands of the house. Everything is non-interactive and fits two cores.
#
#   make demo         installs what is missing, builds, lays down a home in build/home, converts the sample mail
#                     and shows the native message
#   make check        installs what is missing, builds, runs the unit, dialogue, tool, model and corpus tests
#   make check-hard   the same under sanitizers, fault injection, real agents, a minute of each fuzzer
#   make build | bench | fuzz | format | lint | install | clean

PREFIX ?= /usr/local
JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60
CMAKE := cmake -S . -G Ninja
SOURCES = $(shell git ls-files -co --exclude-standard -- 'src/*.cc' 'src/*.h' 'tests/*.cc' 'tests/*.h' 'bench/*.cc' 'bench/*.h')
SCRIPTS = script/bootstrap script/check script/unit-tests script/fuzz .ci/run
HOME_DIR = build/home

.PHONY: all demo check check-hard build build-asan build-fuzz bench fuzz format lint install clean
all: build

build:
	@script/bootstrap
	$(CMAKE) -B build -DCMAKE_BUILD_TYPE=Release
	cmake --build build --parallel $(JOBS)

build-asan:
	@script/bootstrap
	$(CMAKE) -B build-asan -DCMAKE_BUILD_TYPE=Debug -DMORVANE_SANITIZE=ON
	cmake --build build-asan --parallel $(JOBS)

build-fuzz:
	@script/bootstrap hard
	$(CMAKE) -B build-fuzz -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_COMPILER=clang++ -DMORVANE_FUZZ=ON -DMORVANE_TESTS=OFF
	cmake --build build-fuzz --parallel $(JOBS) --target fuzzers

demo: build
	rm -rf $(HOME_DIR)
	build/bin/morvane init --home $(HOME_DIR)
	build/bin/morvane convert --home $(HOME_DIR) tests/data/sample
	MORVANE_HOME=$(HOME_DIR) build/bin/morvane queue list
	MORVANE_HOME=$(HOME_DIR) build/bin/morvane show

check: build
	script/check

check-hard: build build-asan build-fuzz
	FUZZ_SECONDS=$(FUZZ_SECONDS) script/check hard

fuzz: build-fuzz
	script/fuzz $(FUZZ_SECONDS)

bench:
	@script/bootstrap hard bench
	$(CMAKE) -B build-bench -DCMAKE_BUILD_TYPE=Release -DMORVANE_BENCH=ON -DMORVANE_TESTS=OFF
	cmake --build build-bench --parallel $(JOBS)
	BUILD=build-bench bench/run

format:
	@script/bootstrap lint
	clang-format -i $(SOURCES)

# run-clang-tidy needs the compile commands of a build.
lint: build
	@script/bootstrap lint
	clang-format --dry-run -Werror $(SOURCES)
	shellcheck $(SCRIPTS)
	run-clang-tidy -quiet -p build -j $(JOBS) '/src/.*\.cc$$'

install: build
	cmake --install build --prefix $(PREFIX)

clean:
	rm -rf build build-asan build-fuzz build-bench
