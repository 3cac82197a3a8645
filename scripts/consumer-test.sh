#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Uses an installed library as a client of the package would, and checks what a client relies on:
#   1. every installed header compiles on its own as <quillnet/NAME.h>;
#   2. the shared library exports exactly the symbols debian/libquillnet-localpolicy1.symbols
#      lists, under the SONAME it names, and the version macros name the library's file;
#   3. each client program of tests/consumer/cases/ builds and runs (exit status 0) with
#      find_package and with pkg-config, linked with the shared library and with the static
#      archive, with g++ (C++17) and with clang++ (C++20), -Wall -Wextra -Werror -pedantic.
#      A shared build must need the library's SONAME, a static one must not;
#   4. the README's C++ examples of consuming the library compile and link as printed.
# A case is one .cpp file with a main that returns 0 when what it checks holds; adding the file
# adds the case to every build. tests/consumer/include/ holds the client's own headers.
#   consumer-test.sh [BUILD_DIR]             install the build tree into BUILD_DIR/consumer-stage
#   consumer-test.sh --prefix PREFIX DIR     what is installed under PREFIX (such as /usr); builds
#                                            in DIR
#   consumer-test.sh --root ROOT --prefix PREFIX DIR
#                                            what is installed under PREFIX inside the root
#                                            directory ROOT (an rpm --root install)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
sysroot=
if [ "${1:-}" = "--root" ]; then
    sysroot=$(realpath "$2")
    shift 2
fi
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
installed="$sysroot$prefix"
consumer="$root/tests/consumer"
symbols="$root/debian/libquillnet-localpolicy1.symbols"
work="$work/consumer-build"
rm -rf "$work"
mkdir -p "$work"
passed=0
failed=0

pass() { passed=$((passed + 1)); }
fail() {
    echo "consumer: FAIL: $*" >&2
    failed=$((failed + 1))
}

pc_file=$(find "$installed" -path '*/pkgconfig/quillnet-localpolicy.pc' -print -quit)
[ -n "$pc_file" ] || { echo "consumer: no quillnet-localpolicy.pc under $installed" >&2; exit 1; }
libdir=$(dirname "$(dirname "$pc_file")")
pkg_config() {
    PKG_CONFIG_PATH=$(dirname "$pc_file") PKG_CONFIG_SYSROOT_DIR=$sysroot \
        pkg-config "$@" quillnet-localpolicy
}
read -r -a cflags <<< "$(pkg_config --cflags)"
warnings=(-Wall -Wextra -Werror -pedantic)
compilers=("g++ c++17" "clang++ c++20")

# --- 1. Each installed header on its own.
headers=("$installed/include/quillnet/"*.h)
[ -f "${headers[0]}" ] || fail "no header under $installed/include/quillnet/"
for pair in "${compilers[@]}"; do
    read -r cxx std <<< "$pair"
    for header in "${headers[@]}"; do
        name=$(basename "$header")
        if printf '#include <quillnet/%s>\n' "$name" |
            "$cxx" -std="$std" -x c++ -fsyntax-only "${warnings[@]}" "${cflags[@]}" - 2> "$work/out"; then
            pass
        else
            fail "<quillnet/$name> does not compile on its own with $cxx: $(cat "$work/out")"
        fi
    done
done

# --- 2. The exported symbols, the SONAME and the version macros.
library=$(find "$libdir" -maxdepth 1 -type f -name 'libquillnet-localpolicy.so.*' -print -quit)
listed_soname=$(awk '!/^#/ { print $1; exit }' "$symbols")
soname=$(readelf -d "$library" | sed -n 's/.*Library soname: \[\(.*\)\]$/\1/p')
if [ "$soname" = "$listed_soname" ]; then pass; else
    fail "$library has the SONAME '$soname', the symbols file names '$listed_soname'"
fi
sed -n 's/^ (c++)"\(.*\)@Base" .*$/\1/p' "$symbols" | sort -u > "$work/symbols.listed"
nm -D --defined-only "$library" | awk '{ print $NF }' | c++filt | sort -u > "$work/symbols.exported"
if diff "$work/symbols.listed" "$work/symbols.exported" > "$work/symbols.diff"; then pass; else
    fail "$library exports what $symbols does not list (>), or lacks what it lists (<):" \
        "$(cat "$work/symbols.diff")"
fi
read -r -a version <<< "$(printf '%s\n' '#include <quillnet/QuillnetVersion.h>' \
    'QUILLNET_LOCALPOLICY_VERSION_MAJOR QUILLNET_LOCALPOLICY_VERSION_MINOR' \
    'QUILLNET_LOCALPOLICY_VERSION_PATCH QUILLNET_LOCALPOLICY_VERSION' |
    c++ -E -P -x c++ "${cflags[@]}" - | tr '\n' ' ')"
dotted="${version[0]}.${version[1]}.${version[2]}"
if [ "$(basename "$library")" = "libquillnet-localpolicy.so.$dotted" ] &&
    [ "$soname" = "libquillnet-localpolicy.so.${version[0]}" ] && [ "${version[3]}" = "\"$dotted\"" ]; then
    pass
else
    fail "QuillnetVersion.h says ${version[*]}; the library is $(basename "$library"), SONAME $soname"
fi

# --- 3. The cases, built with find_package and with pkg-config.
# Runs one built case: it exits 0, and it needs the shared library exactly when it links it.
run_case() {
    local program=$1 linkage=$2 what=$3
    if ! LD_LIBRARY_PATH="$libdir" "$program" > "$work/out" 2>&1; then
        fail "$what: $(cat "$work/out")"
    elif readelf -d "$program" | grep -q -F "Shared library: [$soname]"; then
        if [ "$linkage" = shared ]; then pass; else fail "$what needs $soname"; fi
    else
        if [ "$linkage" = static ]; then pass; else fail "$what does not need $soname"; fi
    fi
}
cases=("$consumer/cases/"*.cpp)
cmake_args=(-DCMAKE_PREFIX_PATH="$installed")
if [ "$(basename "$libdir")" = lib64 ]; then
    # CMake searches lib64 on a RHEL-family system; Debian's CMake leaves it out unless told.
    echo 'set_property(GLOBAL PROPERTY FIND_LIBRARY_USE_LIB64_PATHS TRUE)' > "$work/lib64.cmake"
    cmake_args+=(-DCMAKE_PROJECT_INCLUDE="$work/lib64.cmake")
fi
for pair in "${compilers[@]}"; do
    read -r cxx std <<< "$pair"
    build="$work/cmake-$cxx"
    if cmake -S "$consumer" -B "$build" -DCMAKE_CXX_COMPILER="$cxx" \
        -DCMAKE_CXX_STANDARD="${std#c++}" "${cmake_args[@]}" > "$work/out" 2>&1 &&
        grep -q -x -F "QuillnetLocalPolicy_DIR:PATH=$libdir/cmake/QuillnetLocalPolicy" \
            "$build/CMakeCache.txt" &&
        cmake --build "$build" -j2 >> "$work/out" 2>&1; then
        for source in "${cases[@]}"; do
            for linkage in shared static; do
                name="$(basename "$source" .cpp)-$linkage"
                run_case "$build/$name" "$linkage" "$name (find_package, $cxx)"
            done
        done
    else
        fail "find_package build with $cxx: $(tail -n 20 "$work/out")"
    fi

    build="$work/pkg-config-$cxx"
    mkdir -p "$build"
    read -r -a shared_flags <<< "$(pkg_config --cflags --libs)"
    read -r -a static_flags <<< "$(pkg_config --static --cflags --libs)"
    for source in "${cases[@]}"; do
        name=$(basename "$source" .cpp)
        if "$cxx" -std="$std" "${warnings[@]}" -I "$consumer/include" -o "$build/$name-shared" \
            "$source" "${shared_flags[@]}" > "$work/out" 2>&1; then
            run_case "$build/$name-shared" shared "$name-shared (pkg-config, $cxx)"
        else
            fail "$name-shared (pkg-config, $cxx) does not build: $(cat "$work/out")"
        fi
        if "$cxx" -std="$std" "${warnings[@]}" -static -I "$consumer/include" \
            -o "$build/$name-static" "$source" "${static_flags[@]}" > "$work/out" 2>&1; then
            run_case "$build/$name-static" static "$name-static (pkg-config, $cxx)"
        else
            fail "$name-static (pkg-config, $cxx) does not build: $(cat "$work/out")"
        fi
    done
done

# --- 4. The README's C++ examples of consuming the library, compiled and linked as printed: one
# program whose main() runs them in order (a later one uses the manager an earlier one made),
# their #include lines first.
readme_examples=$(awk '
    /^## / { inside = ($0 == "## Installing and consuming the library") }
    inside && /^```cpp$/ { code = 1; next }
    inside && code && /^```$/ { code = 0; count++; next }
    code { print }
    END { if (count < 2) exit 1 }
' "$root/README.md") || fail "fewer than 2 C++ examples in the README's section on consuming the library"
{
    echo '#include <iostream>'
    grep '^#include' <<< "$readme_examples"
    echo 'int main() {'
    grep -v '^#include' <<< "$readme_examples"
    echo 'return 0;'
    echo '}'
} > "$work/readme-examples.cpp"
read -r -a shared_flags <<< "$(pkg_config --cflags --libs)"
if g++ -std=c++17 -o "$work/readme-examples" "$work/readme-examples.cpp" "${shared_flags[@]}" \
    > "$work/out" 2>&1; then
    pass
else
    fail "the README's examples do not compile ($work/readme-examples.cpp): $(cat "$work/out")"
fi

echo "consumer: $passed passed, $failed failed"
[ "$failed" -eq 0 ]
