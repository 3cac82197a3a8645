#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds with --coverage, runs the whole suite, and reports the line and branch coverage of
# the module (vpn/) with gcovr: a summary on standard output, details in
# build-coverage/coverage.html.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
cmake --preset coverage > /dev/null
cmake --build --preset coverage
find build-coverage -name '*.gcda' -delete
ctest --preset coverage
gcovr --root "$root" --filter "$root/vpn/" --object-directory build-coverage \
    --exclude-directories "build-coverage/CMakeFiles/[0-9]" --exclude-unreachable-branches --exclude-throw-branches \
    --html-details build-coverage/coverage.html --print-summary --txt build-coverage/coverage.txt
