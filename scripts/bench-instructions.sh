#!/usr/bin/env bash
# Counts with callgrind the instructions of one LoadLocalQuillnetPolicy and of one bare expat
# parse of the same document (policy_bench --count), for the typical policy and for 10,000 and
# 100,000 servers, and prints their ratio. Unlike CPU time, the counts are the same from run
# to run. Exits non-zero when a load of 100,000 servers exceeds MAX_RATIO (default 1.2) times
# the bare parse.
#
#   scripts/bench-instructions.sh [BENCH_BINARY]     default build-bench/bench/policy_bench
set -euo pipefail
bench=${1:-build-bench/bench/policy_bench}
max_ratio=${MAX_RATIO:-1.2}
out_dir=$(mktemp -d)
trap 'rm -rf "$out_dir"' EXIT

# The instructions executed inside the counted function, from callgrind's totals line.
count() {
    local side=$1 servers=$2 function=$3
    local out="$out_dir/$side-$servers.out"
    valgrind --tool=callgrind --callgrind-out-file="$out" --toggle-collect="$function" \
        "$bench" --count "$side" "$servers" 2>"$out_dir/log" ||
        { cat "$out_dir/log" >&2; echo "callgrind run failed: $side $servers" >&2; exit 1; }
    awk '/^totals:/ { print $2 }' "$out"
}

printf '\ninstructions of one load (callgrind)\n%-10s %14s %14s %8s\n' \
    servers load bare ratio
status=0
for servers in 0 10000 100000; do
    load=$(count load "$servers" '*countedLoad*')
    bare=$(count bare "$servers" '*countedBareParse*')
    ratio=$(awk -v l="$load" -v b="$bare" 'BEGIN { printf "%.3f", l / b }')
    label=$servers
    [ "$servers" = 0 ] && label=typical
    verdict=""
    if [ "$servers" = 100000 ] && awk -v r="$ratio" -v m="$max_ratio" 'BEGIN { exit !(r > m) }'; then
        verdict="  MISSED (at most $max_ratio)"
        status=1
    fi
    printf '%-10s %14s %14s %8s%s\n' "$label" "$load" "$bare" "$ratio" "$verdict"
done
exit $status
