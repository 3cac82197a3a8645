#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The static checks: every tracked C++ file formatted as .clang-format says, every source file
# with its SPDX licence line (scripts/spdx-headers.sh adds missing ones), tests a quarter to a
# third of the code (scripts/test-ratio.sh), and clang-tidy with the checked-in .clang-tidy over
# the library and the tool, using the compile commands of a configured build directory. Exits
# non-zero at the first check that is not clean.
#
#   scripts/lint.sh [BUILD_DIR]     default build (cmake --preset default configures it)
set -euo pipefail
cd "$(dirname "$0")/.."
build_dir=${1:-build}

if [ ! -f "$build_dir/compile_commands.json" ]; then
    echo "lint: $build_dir/compile_commands.json is missing; configure first" >&2
    exit 1
fi

echo "clang-format: every tracked C++ file"
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror

echo "SPDX licence lines: every source file"
missing=$(bash scripts/spdx-headers.sh --dry-run 2>/dev/null)
if [ -n "$missing" ]; then
    printf '%s\n' "$missing"
    echo "lint: these files have no SPDX licence line; scripts/spdx-headers.sh adds it" >&2
    exit 1
fi

echo "test share: tests are 25-35% of the code"
bash scripts/test-ratio.sh --check

echo "clang-tidy: vpn/ and tools/"
# Two processes: the machines this runs on have two cores. The count of suppressed warnings
# (system headers) that clang-tidy prints per file is dropped; its findings are kept.
output=$(mktemp)
trap 'rm -f "$output"' EXIT
tidy_status=0
git ls-files -z 'vpn/*.cpp' 'tools/*.cpp' |
    xargs -0 -n 1 -P 2 clang-tidy -p "$build_dir" --quiet >"$output" 2>&1 || tidy_status=$?
grep -v -E '^[0-9]+ warnings? generated\.$' "$output" || true
if [ "$tidy_status" -ne 0 ]; then
    echo "lint: clang-tidy found the problems above" >&2
    exit 1
fi
echo "lint: clean"
