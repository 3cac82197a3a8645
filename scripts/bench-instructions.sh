#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Counts with callgrind the instructions of one LoadLocalQuillnetPolicy and of one run of the
# least-work loop (policy_bench.cpp: expat reading the file in 64 KiB pieces, names, attributes
# and leaf text copied into reused strings, nothing else) over the same document, for the
# typical policy and for 10,000 and 100,000 servers, and prints their ratio.
#
# One load is the whole process's count doing two loads minus the count doing one (both with
# the log sink silenced), so that resetting and freeing the previous record is included; the
# loop is counted the same way. Unlike CPU time, the counts repeat exactly: expat salts its hash
# tables at random for each parser, which moved a count by up to 1% from one process to the
# next, so every counted process gets the same salt (bench/fixed_entropy.cpp, preloaded): the
# load and the loop then do the same expat work. (Other salts give the same ratios to 0.1%.)
# REPEAT (default 1) counts each side that many times and takes the median.
# Exits non-zero when the ratio exceeds MAX_TYPICAL (default 1.0) on the typical policy or
# MAX_LARGE (default 1.2) at 100,000 servers.
#
#   scripts/bench-instructions.sh [BENCH_BINARY]     default build-bench/bench/policy_bench
set -euo pipefail
bench=${1:-build-bench/bench/policy_bench}
max_typical=${MAX_TYPICAL:-1.0}
max_large=${MAX_LARGE:-1.2}
repeat=${REPEAT:-1}
entropy="$(dirname "$bench")/libqn_fixed_entropy.so"
[ -f "$entropy" ] || { echo "bench-instructions: $entropy not found; build the bench preset" >&2; exit 1; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

"$bench" --write-documents "$work/documents"

# The instructions of a whole process running the side RUNS times over the document: the
# median of REPEAT processes.
count() {
    local side=$1 runs=$2 document=$3 attempt
    local out="$work/$side-$runs-$document.out"
    for ((attempt = 0; attempt < repeat; attempt++)); do
        LD_PRELOAD="$entropy" valgrind --tool=callgrind --callgrind-out-file="$out" \
            "$bench" --count "$side" "$runs" "$work/documents/$document" 2>"$work/log" ||
            { cat "$work/log" >&2; echo "callgrind run failed: $side $runs $document" >&2; exit 1; }
        awk '/^totals:/ { print $2 }' "$out"
    done | sort -n | awk '{ counts[NR] = $1 } END { print counts[int((NR + 1) / 2)] }'
}

# The instructions of one run: two runs minus one.
one() {
    echo $(($(count "$1" 2 "$2") - $(count "$1" 1 "$2")))
}

printf '\ninstructions of one load against one run of the least-work loop (callgrind)\n'
printf '%-10s %12s %14s %14s %8s %8s\n' document bytes load loop ratio target
status=0
for document in typical 10000 100000; do
    load=$(one load "$document")
    loop=$(one loop "$document")
    bytes=$(stat -c %s "$work/documents/$document/QuillnetLocalPolicy.xml")
    ratio=$(awk -v l="$load" -v b="$loop" 'BEGIN { printf "%.3f", l / b }')
    target=-
    [ "$document" = typical ] && target=$max_typical
    [ "$document" = 100000 ] && target=$max_large
    verdict=""
    if [ "$target" != - ] && awk -v r="$ratio" -v m="$target" 'BEGIN { exit !(r > m) }'; then
        verdict="  MISSED"
        status=1
    fi
    printf '%-10s %12s %14s %14s %8s %8s%s\n' "$document" "$bytes" "$load" "$loop" "$ratio" \
        "$target" "$verdict"
done
exit $status
