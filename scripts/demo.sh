#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The demo of `make run`: the qnpolicy tool on a demo installation directory under the build
# tree. It generates a policy from sample installer arguments, shows the effective policy the
# client reads from it, then checks a deliberately flawed sample policy.
set -euo pipefail
build_dir=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
tool="$root/$build_dir/tools/qnpolicy/qnpolicy"
demo_dir="$root/$build_dir/demo-install"
flawed="$root/examples/flawed-policy.xml"

if [ ! -x "$tool" ]; then
    echo "demo: $tool not found; build with QN_BUILD_TOOLS=ON (the default)" >&2
    exit 1
fi

# Each step prints the command it runs; the module's log lines appear on standard error.
step() {
    printf '\n==> qnpolicy %s\n' "$*"
    "$tool" "$@"
}

# A fresh demo installation directory, so that generate writes instead of keeping a file.
rm -rf "$demo_dir"
mkdir -p "$demo_dir"

step generate --install-dir "$demo_dir" \
    fm=true bd=true sct=true ewn=true emn=true rpc=Credentials,Thumbprints rtp=false \
    upsu=false upvp=false "upal=gw1.example.com;gw2.example.com"
printf '\n--- %s/QuillnetLocalPolicy.xml\n' "$demo_dir"
cat "$demo_dir/QuillnetLocalPolicy.xml"

step show --install-dir "$demo_dir"

# check exits with 1 when it reports findings, which is the point of this sample; any other
# status (0: the sample lost its flaws, 2: unreadable) fails the demo.
status=0
step check "$flawed" || status=$?
if [ "$status" -ne 1 ]; then
    echo "demo: expected findings (exit 1) from check on $flawed, got exit $status" >&2
    exit 1
fi
printf '\ndemo: check exited with 1 (findings), as expected for the flawed sample.\n'
