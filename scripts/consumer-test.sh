#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the library from a build tree into a staging prefix, then builds and runs
# tests/consumer against it twice: with nothing but find_package and target_link_libraries,
# and with nothing but `pkg-config --cflags --libs`; then compiles each installed header alone.
#   consumer-test.sh [BUILD_DIR]          stage the build tree's installation, then build
#   consumer-test.sh --prefix PREFIX DIR  build against what is installed under PREFIX, in DIR
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
if [ "${1:-}" = "--prefix" ]; then
    prefix=$2
    work=$3
else
    build_dir=${1:-build}
    prefix="$root/$build_dir/consumer-stage"
    work="$root/$build_dir"
    rm -rf "$prefix"
    cmake --install "$root/$build_dir" --prefix "$prefix" > /dev/null
fi
consumer_build="$work/consumer-build"
rm -rf "$consumer_build"
mkdir -p "$consumer_build"

cmake -S "$root/tests/consumer" -B "$consumer_build" -DCMAKE_PREFIX_PATH="$prefix" > /dev/null
cmake --build "$consumer_build" -j2 > /dev/null
"$consumer_build/consumer"

pc_dir=$(dirname "$(find "$prefix" -path '*/pkgconfig/quillnet-localpolicy.pc' | head -n 1)")
# shellcheck disable=SC2046  # the flags are words
c++ -std=c++17 -o "$consumer_build/consumer-pkg-config" "$root/tests/consumer/main.cpp" \
    $(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs quillnet-localpolicy)
"$consumer_build/consumer-pkg-config"

# Every installed header compiles on its own, with nothing but the package's flags: a header
# that needs another first, or one that is not installed, fails here.
headers=0
while IFS= read -r header; do
    # shellcheck disable=SC2046  # the flags are words
    printf '#include <%s>\n' "${header#"$prefix/include/"}" |
        c++ -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -x c++ - \
            -I"$prefix/include" $(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags quillnet-localpolicy) ||
        { echo "consumer: $header does not compile on its own" >&2; exit 1; }
    headers=$((headers + 1))
done < <(find "$prefix/include" -name '*.h' | sort)
echo "consumer: 2 passed (find_package, pkg-config), 0 failed; $headers installed headers compile alone"
