#!/usr/bin/env bash
# The demo of `make run`: a demo installation directory under the build tree.
set -euo pipefail
build_dir=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
demo_dir="$root/$build_dir/demo-install/"
mkdir -p "$demo_dir"
"$root/$build_dir/examples/qnpolicy-demo" "$demo_dir"
