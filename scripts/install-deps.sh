#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian 12 packages this project needs, and only those that are missing.
# The one place that lists them: the Makefile, CI and the README all rely on this script.
set -euo pipefail

PACKAGES=(
    # build (build-essential is what dpkg-buildpackage checks for; git lists the tracked files
    # for the package build and is what ansible-test runs on)
    build-essential cmake g++ make pkg-config git
    # library
    libexpat1-dev
    # tests and benchmarks (strace: what generate creates, and killing it at each system call;
    # python3-jsonschema: every JSON object the tool prints against its published schema)
    libgtest-dev libgmock-dev libbenchmark-dev strace python3-jsonschema
    # the README's worked examples, run as printed
    jq
    # command-line tool (yaml-cpp: baseline files, YAML with comments; nettle-dev: nettle,
    # the SHA-256 of the documents a writer reads and writes; script, from util-linux,
    # which is essential, drives edit in its tests)
    libcli11-dev nlohmann-json3-dev libyaml-cpp-dev nettle-dev
    # fuzzing (clang's libFuzzer and sanitizer runtimes) and coverage
    clang libclang-rt-14-dev gcovr
    # make format and make lint; instruction counts, times and peak memory of make bench and
    # make bench-cli
    clang-format clang-tidy valgrind hyperfine time
    # Ansible collection: ansible-core (with ansible-test), its unit-test runners, the venv module
    # ansible-test's sanity tests run in (no package is installed into it), and the linters
    # (ansible-lint: the collection, its role and plays and the README's, in the production profile)
    ansible-core python3-pytest python3-pytest-xdist python3-pytest-mock python3-pytest-forked
    python3-venv pylint pycodestyle ansible-lint
    # the fleet report's page rendered by headless Chromium as a person would see it;
    # ansible-pull's systemd units checked by systemd-analyze verify (systemd installed as a
    # tool, never booted)
    chromium systemd
    # generated documentation: manual pages, schema validation, completion and its test
    scdoc man-db libxml2-utils bash-completion
    # other shells' completion: the shells that load the generated zsh and fish completion and
    # that its tests drive
    zsh fish
    # Debian packages (make package) and their XML catalog entry
    dpkg-dev debhelper lintian xml-core
    # RPM packages (make rpm): rpmbuild and rpm, and rpmlint
    rpm rpmlint
    # metrics: promtool (check metrics, test rules) and a real node_exporter whose textfile
    # collector serves what comply wrote
    prometheus prometheus-node-exporter
    # SCAP content (qnpolicy scap) evaluated and validated by oscap in the tests and benchmarks
    openscap-scanner
)

missing=()
for package in "${PACKAGES[@]}"; do
    if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
        missing+=("$package")
    fi
done

if [ ${#missing[@]} -eq 0 ]; then
    exit 0
fi

echo "install-deps: installing ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps: missing packages and not root; run as root or install them: ${missing[*]}" >&2
    exit 1
fi
apt-get update
DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}"
