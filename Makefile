# The two commands of the README. Each installs what is missing, then builds.
#   make run   build and run the demo
#   make test  build and run every test, then build the consumer example against the
#              installed package, then test the Ansible collection
#   make bench build the Release benchmark and run it (timings, peak memory, qnpolicy check
#              on hostile files, then the instruction counts of one load and of qnpolicy
#              show --origin against check under callgrind, and qnpolicy comply against check
#              in instructions and hyperfine's mean)
#   make bench-cli  the CPU time of qnpolicy check and show --json against xmllint
#   make format  clang-format every tracked C++ file in place
#   make lint    check the formatting and run clang-tidy over the library and the tool

.PHONY: all deps build run test asan-test tsan-test fuzz coverage mutation bench bench-cli format lint package \
	package-test rpm rpm-test clean

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
	bash scripts/ansible-tests.sh build/tools/qnpolicy/qnpolicy

asan-test: deps
	cmake --preset asan
	cmake --build --preset asan
	ctest --preset asan

tsan-test: deps
	cmake --preset tsan
	cmake --build --preset tsan
	ctest --preset tsan

# Each libFuzzer target for FUZZ_SECONDS seconds (default 60), as many at once as there are
# processors.
fuzz: deps
	cmake --preset fuzz
	cmake --build --preset fuzz
	bash scripts/fuzz.sh

# Line and branch coverage of vpn/ (gcovr).
coverage: deps
	bash scripts/coverage.sh

# Plants each fault of scripts/mutants.py in turn and reports which tests catch it.
mutation: deps
	bash scripts/mutation-check.sh

bench: build
	cmake --preset bench
	cmake --build --preset bench
	./build-bench/bench/policy_bench
	./build-bench/bench/policy_bench --memory
	bash scripts/bench-hostile-check.sh build/tools/qnpolicy/qnpolicy
	bash scripts/bench-instructions.sh build-bench/bench/policy_bench
	bash scripts/bench-origin.sh build/tools/qnpolicy/qnpolicy build-bench/bench/libqn_fixed_entropy.so
	bash scripts/bench-comply.sh build/tools/qnpolicy/qnpolicy build-bench/bench/libqn_fixed_entropy.so

format:
	git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format -i

# Needs only a configured build directory (compile_commands.json and the generated header).
lint: deps
	cmake --preset default
	bash scripts/lint.sh build

# The Debian packages libquillnet-localpolicy1, -dev and qnpolicy in build-package/, checked by
# lintian; package-test installs them into this system, uses them and removes them again.
package: deps
	bash scripts/build-packages.sh build-package

package-test: package
	bash scripts/package-test.sh build-package

# The RPM packages quillnet-localpolicy, -devel and qnpolicy in build-rpm/, built with this
# machine's rpmbuild from packaging/rpm/ and checked by rpmlint; rpm-test compares them with
# the Debian packages of build-package/ (built first if they are not of this tree), installs
# them into a scratch root, uses them there and removes them again (root).
rpm: deps
	bash scripts/build-rpm.sh build-rpm

rpm-test: rpm
	bash scripts/rpm-test.sh build-rpm build-package

# qnpolicy check and show --json against xmllint --noout at 100,000 and 5 servers (the median
# CPU time of 31 interleaved runs; fails above 1.1x and 1.0x),
# and the peak memory of show --json against the library's load (figures in BENCHMARKS.md).
bench-cli: build
	bash scripts/bench-cli.sh build

clean:
	rm -rf build build-*
