#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the library from a build tree into a staging prefix, then builds and runs
# tests/consumer against it twice: with nothing but find_package and target_link_libraries,
# and with nothing but `pkg-config --cflags --libs`.
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

# The C++ examples of the README's section on consuming the library, each compiled and linked
# as printed: its #include lines first, the rest as the body of main().
examples=0
while IFS= read -r -d '' example; do
    examples=$((examples + 1))
    source_file="$consumer_build/readme-example-$examples.cpp"
    {
        echo '#include <iostream>'
        grep '^#include' <<<"$example"
        echo 'int main() {'
        grep -v '^#include' <<<"$example"
        echo 'return 0;'
        echo '}'
    } >"$source_file"
    # shellcheck disable=SC2046  # the flags are words
    if ! c++ -std=c++17 -o "${source_file%.cpp}" "$source_file" \
        $(PKG_CONFIG_PATH="$pc_dir" pkg-config --cflags --libs quillnet-localpolicy); then
        echo "consumer: the README's example $examples does not compile ($source_file)" >&2
        exit 1
    fi
done < <(awk '
    /^## / { inside = ($0 == "## Installing and consuming the library") }
    inside && /^```cpp$/ { code = 1; text = ""; next }
    inside && code && /^```$/ { code = 0; printf "%s%c", text, 0; next }
    code { text = text $0 "\n" }
' "$root/README.md")
if [ "$examples" -lt 2 ]; then
    echo "consumer: found $examples C++ examples in the README's section on consuming the library" >&2
    exit 1
fi
echo "consumer: 2 passed (find_package, pkg-config), 0 failed; $examples README examples compile"
