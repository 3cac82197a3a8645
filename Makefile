# The two commands of the README. Each installs what is missing, then builds.
#   make run   build and run the demo
#   make test  build and run every test, then build the consumer example against the
#              installed package

.PHONY: all deps build run test asan-test clean

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

clean:
	rm -rf build build-*
