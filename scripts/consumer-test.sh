#!/usr/bin/env bash
# Installs the library from a build tree into a staging prefix, then builds and runs
# tests/consumer against it with nothing but find_package and target_link_libraries.
set -euo pipefail
build_dir=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
stage="$root/$build_dir/consumer-stage"
consumer_build="$root/$build_dir/consumer-build"

rm -rf "$stage" "$consumer_build"
cmake --install "$root/$build_dir" --prefix "$stage" > /dev/null
cmake -S "$root/tests/consumer" -B "$consumer_build" -DCMAKE_PREFIX_PATH="$stage" > /dev/null
cmake --build "$consumer_build" -j2 > /dev/null
"$consumer_build/consumer"
echo "consumer: 1 passed, 0 failed"
