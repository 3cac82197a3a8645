#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the Debian packages libquillnet-localpolicy1, -dev and qnpolicy from a copy of the
# working tree (build directories and .git left out), so that dpkg-buildpackage, which writes
# into the parent directory, leaves the tree untouched. DEB_BUILD_OPTIONS defaults to
# "nocheck parallel=2". The packages, .buildinfo and .changes land in OUT_DIR (default
# build-package/), then lintian checks them: any error fails. Packages that pass get the digest
# of the tree they were made from beside them (tree.sha256, scripts/tree-digest.sh).
#   build-packages.sh [OUT_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$root/build-package}")
source_name=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Source)
version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)

digest=$(bash "$root/scripts/tree-digest.sh")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
tree="$work/$source_name-$version"
mkdir -p "$tree"
# The files git knows or would add: what a clean clone with these changes holds.
(cd "$root" && git ls-files -z --cached --others --exclude-standard) |
    while IFS= read -r -d '' file; do
        if [ -e "$root/$file" ]; then
            (cd "$root" && cp -a --parents "$file" "$tree")
        fi
    done
# Fast by default; DEB_BUILD_OPTIONS=parallel=2 builds and runs the test suites too.
(cd "$tree" && DEB_BUILD_OPTIONS="${DEB_BUILD_OPTIONS:-nocheck parallel=2}" dpkg-buildpackage -b --no-sign)

rm -rf "$out"
mkdir -p "$out"
mv "$work"/*.deb "$work"/*.buildinfo "$work"/*.changes "$out"/
echo "packages in $out:"
ls -l "$out"/*.deb
lintian --fail-on error --info "$out"/*.changes
# Checked packages of this tree (rpm-test.sh compares the RPM packages with them).
echo "$digest" > "$out/tree.sha256"
