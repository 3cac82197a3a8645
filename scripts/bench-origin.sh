#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Counts with callgrind the instructions of `qnpolicy show --origin` (text and --json) against
# those of `qnpolicy check` on the same policy of 100,000 authorized servers, and prints their
# ratios. show --origin lets the linter and the origin tracker watch the reader's one pass, so it
# must cost no more than check plus its output: the script exits non-zero above MAX_RATIO
# (default 1.1). Every counted process gets the same hash salt (bench/fixed_entropy.cpp,
# preloaded), so the counts repeat to the instruction.
#
#   scripts/bench-origin.sh [QNPOLICY] [ENTROPY_LIBRARY]
#   default build/tools/qnpolicy/qnpolicy and build-bench/bench/libqn_fixed_entropy.so
set -euo pipefail
tool=${1:-build/tools/qnpolicy/qnpolicy}
entropy=${2:-build-bench/bench/libqn_fixed_entropy.so}
max_ratio=${MAX_RATIO:-1.1}
servers=100000
for need in "$tool" "$entropy"; do
    [ -f "$need" ] || { echo "bench-origin: $need not found; build the default and bench presets" >&2; exit 1; }
done
entropy=$(realpath "$entropy")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
policy="$work/QuillnetLocalPolicy.xml"

bash "$(dirname "$0")/bench-policy.sh" "$policy" "$servers"

# The instructions of one whole process running the tool with these arguments.
count() {
    local out="$work/callgrind.out"
    LD_PRELOAD="$entropy" valgrind --tool=callgrind --callgrind-out-file="$out" \
        "$tool" "$@" >/dev/null 2>"$work/log" ||
        { cat "$work/log" >&2; echo "bench-origin: callgrind run failed: $*" >&2; exit 1; }
    awk '/^totals:/ { print $2 }' "$out"
}

check=$(count check --quiet --ignore file-owner "$policy")
printf '\ninstructions at %d servers (%s bytes), callgrind\n' "$servers" "$(stat -c %s "$policy")"
printf '%-24s %14s %8s\n' command instructions "vs check"
printf '%-24s %14s %8s\n' check "$check" 1.000
status=0
for format in text json; do
    args=(show --quiet --origin "$policy")
    [ "$format" = json ] && args+=(--json)
    instructions=$(count "${args[@]}")
    ratio=$(awk -v a="$instructions" -v b="$check" 'BEGIN { printf "%.3f", a / b }')
    verdict=""
    if awk -v r="$ratio" -v m="$max_ratio" 'BEGIN { exit !(r > m) }'; then
        verdict="  MISSED (target $max_ratio)"
        status=1
    fi
    printf '%-24s %14s %8s%s\n' "show --origin ($format)" "$instructions" "$ratio" "$verdict"
done
exit $status
