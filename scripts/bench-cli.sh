#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# make bench-cli: qnpolicy against xmllint on a policy of 100,000 authorized servers.
#
#   CPU time (user + system, hyperfine's means over interleaved runs) of
#     qnpolicy check --ignore file-owner FILE       and  xmllint --noout FILE
#     qnpolicy show --json FILE >/dev/null          and  xmllint --noout FILE
#   peak resident memory (/usr/bin/time) of
#     qnpolicy show --json FILE >/dev/null          and  the library's own load of FILE
#
# Usage: scripts/bench-cli.sh [BUILD_DIR] (default: build). RUNS sets hyperfine's runs per
# command (default 30).
set -euo pipefail
build_dir=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
tool="$root/$build_dir/tools/qnpolicy/qnpolicy"
loader="$root/$build_dir/qnpolicy_load_policy"
runs=${RUNS:-30}
servers=100000

for need in "$tool" "$loader"; do
    if [ ! -x "$need" ]; then
        echo "bench-cli: $need not found; build first (make build)" >&2
        exit 1
    fi
done

work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
policy="$work/QuillnetLocalPolicy.xml"

# The document as the module writes it: a few settings, then the servers.
{
    printf '<?xml version="1.0" encoding="UTF-8"?>\n'
    printf '<QuillnetLocalPolicy xmlns="http://schemas.xmlsoap.org/encoding/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:schemaLocation="http://schemas.xmlsoap.org/encoding/ QuillnetLocalPolicy.xsd" qnversion="5.1.8.105">\n'
    printf '    <BypassDownloader>true</BypassDownloader>\n    <FipsMode>true</FipsMode>\n'
    printf '    <UpdatePolicy>\n        <AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n'
    printf '        <AuthorizedServerList>\n'
    awk -v n="$servers" 'BEGIN { for (i = 0; i < n; i++) printf "            <ServerName>gw%06d.example.com</ServerName>\n", i }'
    printf '        </AuthorizedServerList>\n    </UpdatePolicy>\n</QuillnetLocalPolicy>\n'
} >"$policy"
chmod 0644 "$policy"
echo "bench-cli: $policy, $(wc -c <"$policy") bytes, $servers servers"

# Both subcommands must succeed on the document, or the timings mean nothing.
"$tool" check --quiet --ignore file-owner "$policy" >/dev/null
"$tool" show --quiet --json "$policy" >/dev/null

hyperfine --style basic --warmup 3 --runs "$runs" --export-json "$work/times.json" \
    -n xmllint "xmllint --noout '$policy'" \
    -n check "'$tool' check --quiet --ignore file-owner '$policy'" \
    -n show-json "'$tool' show --quiet --json '$policy' >/dev/null"

peak_kib() {
    /usr/bin/time -f '%M' "$@" 2>&1 >/dev/null | tail -n 1
}
show_peak=$(peak_kib "$tool" show --quiet --json "$policy")
load_peak=$(peak_kib "$loader" "$work/")

python3 - "$work/times.json" "$show_peak" "$load_peak" <<'PY'
import json, sys
results = {r["command"]: r for r in json.load(open(sys.argv[1]))["results"]}
cpu = {name: r["user"] + r["system"] for name, r in results.items()}
base = cpu["xmllint"]
print()
print("CPU time (user + system, mean of each command's runs):")
for name in ("xmllint", "check", "show-json"):
    print(f"  {name:10} {cpu[name] * 1000:8.1f} ms   {cpu[name] / base:5.2f}x xmllint --noout")
show_peak, load_peak = int(sys.argv[2]), int(sys.argv[3])
print()
print("Peak resident memory:")
print(f"  show --json   {show_peak / 1024:6.1f} MiB")
print(f"  library load  {load_peak / 1024:6.1f} MiB")
print(f"  ratio         {show_peak / load_peak:6.2f}x")
PY
