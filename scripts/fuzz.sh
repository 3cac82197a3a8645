#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every libFuzzer target of build-fuzz/ for FUZZ_SECONDS seconds each (default 60),
# starting from the seed corpus fuzz/corpus/<target>/ and keeping what it finds in
# build-fuzz/corpus/<target>/. Stops at the first target that finds a crash, leak or hang.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${FUZZ_SECONDS:-60}
build="$root/build-fuzz"

for target in "$build"/fuzz/fuzz_*; do
    [ -x "$target" ] || continue
    name=$(basename "$target")
    work="$build/corpus/$name"
    artifacts="$build/artifacts/$name"
    mkdir -p "$work" "$artifacts"
    seeds=()
    [ -d "$root/fuzz/corpus/$name" ] && seeds=("$root/fuzz/corpus/$name")
    echo "fuzz: $name for ${seconds}s"
    "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 -print_final_stats=1 \
        -artifact_prefix="$artifacts/" "$work" "${seeds[@]}" 2>"$build/$name.log" || {
        tail -n 60 "$build/$name.log" >&2
        echo "fuzz: $name FAILED (artifacts in $artifacts)" >&2
        exit 1
    }
    grep -E 'stat::number_of_executed_units|stat::peak_rss_mb' "$build/$name.log" | sed "s/^/fuzz: $name /"
done
