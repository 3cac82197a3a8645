# The two commands of the README. Each installs what is missing, then builds.
#   make run   build and run the demo
#   make test  build and run every test, then build the consumer example against the
#              installed package
#   make bench build the Release benchmark and run it (timings, then peak memory)

.PHONY: all deps build run test asan-test bench clean

all: build

deps:
	bash scripts/install-deps.sh

build: deps
	cmake --preset default
	cmake --build --preset default

run: build
	bash scripts/demo.sh build

test: build
	ctest --preset default
	bash scripts/consumer-test.sh build

asan-test: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

bench: deps
	cmake --preset bench
	cmake --build --preset bench
	./build-bench/bench/policy_bench
	./build-bench/bench/policy_bench --memory

clean:
	rm -rf build build-*
