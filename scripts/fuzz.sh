#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Runs every libFuzzer target of build-fuzz/ for FUZZ_SECONDS seconds each (default 60),
# starting from the seed corpus fuzz/corpus/<target>/ and keeping what it finds in
# build-fuzz/corpus/<target>/. A target is single-threaded, so as many run at once as there
# are processors (FUZZ_JOBS, default nproc). Fails when any target finds a crash, leak or hang,
# with the end of its log.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
seconds=${FUZZ_SECONDS:-60}
jobs=${FUZZ_JOBS:-$(nproc)}
build="$root/build-fuzz"

# One target's run; its log in build-fuzz/<target>.log.
fuzz_one() {
    local target=$1 name work artifacts seeds=()
    name=$(basename "$target")
    work="$build/corpus/$name"
    artifacts="$build/artifacts/$name"
    mkdir -p "$work" "$artifacts"
    [ -d "$root/fuzz/corpus/$name" ] && seeds=("$root/fuzz/corpus/$name")
    echo "fuzz: $name for ${seconds}s"
    if ! "$target" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
        -print_final_stats=1 -artifact_prefix="$artifacts/" "$work" "${seeds[@]}" \
        2>"$build/$name.log"; then
        tail -n 60 "$build/$name.log" >&2
        echo "fuzz: $name FAILED (artifacts in $artifacts)" >&2
        return 1
    fi
    grep -E 'stat::number_of_executed_units|stat::peak_rss_mb' "$build/$name.log" | sed "s/^/fuzz: $name /"
}

status=0
running=0
for target in "$build"/fuzz/fuzz_*; do
    [ -x "$target" ] || continue
    if [ "$running" -ge "$jobs" ]; then
        wait -n || status=1
        running=$((running - 1))
    fi
    fuzz_one "$target" &
    running=$((running + 1))
done
while [ "$running" -gt 0 ]; do
    wait -n || status=1
    running=$((running - 1))
done
exit "$status"
