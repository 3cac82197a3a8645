#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Prints one SHA-256 digest of the files git knows or would add (names and contents): the tree
# the package builds copy. build-packages.sh and build-rpm.sh write it beside their packages as
# tree.sha256, so that rpm-test.sh compares packages made from the same tree.
#   tree-digest.sh
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z --cached --others --exclude-standard | sort -z |
    while IFS= read -r -d '' file; do
        if [ -f "$file" ]; then
            printf '%s\0' "$file"
        fi
    done |
    xargs -0 -r sha256sum | sha256sum | cut -d' ' -f1
