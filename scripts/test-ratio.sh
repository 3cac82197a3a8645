#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The share of tests in the code, as the house counts it: non-blank lines that are not comments
# (a line starting with // or #, preprocessor lines included) of the tracked files
#   tests: the .h/.cpp files under tests/ and fuzz/, the .py files under tests/, and the .py
#          files of the Ansible integration under a tests/ directory (the collection's unit tests
#          and the integration runner beside it);
#   code:  every other tracked .h/.cpp file (bench/ aside) and the integration's other .py files.
# Shell, YAML and generated files count on neither side.
#   scripts/test-ratio.sh            prints the counts and the share
#   scripts/test-ratio.sh --check    also exits 1 when the share is outside 25-35%
set -euo pipefail
cd "$(dirname "$0")/.."

count() { xargs -r -d '\n' cat 2>/dev/null | grep -cvE '^\s*(//.*|#.*)?$' || true; }

cpp=$(git ls-files | grep -E '\.(h|hpp|cc|cpp)$' || true)
py=$(git ls-files 'integrations/*.py' 'tests/*.py' || true)
cpp_tests=$(grep -E '^(tests|fuzz)/' <<<"$cpp" | count)
cpp_code=$(grep -vE '^(tests|fuzz|bench)/' <<<"$cpp" | count)
py_tests=$(grep -E '(^|/)tests/' <<<"$py" | count)
py_code=$(grep -vE '(^|/)tests/' <<<"$py" | count)

tests=$((cpp_tests + py_tests))
code=$((cpp_code + py_code))
# In tenths of a percent, rounded down, so that 35.2% is printed as such and is above 35%.
tenths=$((1000 * tests / code))
printf 'C++:    %6d test lines, %6d code lines\n' "$cpp_tests" "$cpp_code"
printf 'Python: %6d test lines, %6d code lines\n' "$py_tests" "$py_code"
printf 'tests are %d.%d%% of the code (%d of %d); the house aims at 25-35%%\n' \
    $((tenths / 10)) $((tenths % 10)) "$tests" "$code"
if [ "${1:-}" = "--check" ] && { [ $((100 * tests)) -lt $((25 * code)) ] ||
    [ $((100 * tests)) -gt $((35 * code)) ]; }; then
    echo "test-ratio: outside 25-35%" >&2
    exit 1
fi
