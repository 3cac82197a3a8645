#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What `qnpolicy comply` costs against `qnpolicy check` of the same file: callgrind's
# instructions on the typical policy (every installer setting, 5 servers) and at 100,000
# servers, and hyperfine's mean wall time at 100,000 servers. comply reads the file once,
# through the reader with the origin tracker watching, and audits its path as check does; it
# must cost at most MAX_RATIO (default 1.1) times check in instructions on the typical policy and
# in hyperfine's mean at 100,000 servers (the script exits non-zero otherwise). Every counted
# process gets the same hash salt (bench/fixed_entropy.cpp, preloaded).
#
#   scripts/bench-comply.sh [QNPOLICY] [ENTROPY_LIBRARY]
#   default build/tools/qnpolicy/qnpolicy and build-bench/bench/libqn_fixed_entropy.so
set -euo pipefail
tool=${1:-build/tools/qnpolicy/qnpolicy}
entropy=${2:-build-bench/bench/libqn_fixed_entropy.so}
max_ratio=${MAX_RATIO:-1.1}
runs=${RUNS:-30}
for need in "$tool" "$entropy"; do
    [ -f "$need" ] || { echo "bench-comply: $need not found; build the default and bench presets" >&2; exit 1; }
done
tool=$(realpath "$tool")
entropy=$(realpath "$entropy")
work=$(mktemp -d /tmp/qn-bench-comply.XXXXXX)
trap 'rm -rf "$work"' EXIT
chmod 0755 "$work"
mkdir "$work/typical" "$work/large"

# The typical policy and the make bench-cli policy of 100,000 servers.
bash "$(dirname "$0")/bench-policy.sh" --typical "$tool" "$work/typical"
bash "$(dirname "$0")/bench-policy.sh" "$work/large/QuillnetLocalPolicy.xml" 100000
# The fleet's baseline: five rules and file-safety, one waiver.
cat >"$work/baseline.yml" <<'YAML'
version: 1
settings:
  FipsMode: true
  StrictCertificateTrust: true
  RestrictTunnelProtocols: {one_of: [tls, ipsec]}
  AllowSoftwareUpdatesFromAnyServer: false
  AuthorizedServerList: {superset_of: [gw000001.example.com]}
severity:
  FipsMode: high
waivers:
  - setting: StrictCertificateTrust
    hosts: [lab-*]
    reason: lab machines
    expires: 2099-12-31
YAML

# The instructions of one whole process running the tool with these arguments.
count() {
    local out="$work/callgrind.out"
    LD_PRELOAD="$entropy" valgrind --tool=callgrind --callgrind-out-file="$out" \
        "$tool" "$@" >/dev/null 2>"$work/log" ||
        [ $? -eq 1 ] || { cat "$work/log" >&2; echo "bench-comply: callgrind run failed: $*" >&2; exit 1; }
    awk '/^totals:/ { print $2 }' "$out"
}
ratio() { awk -v a="$1" -v b="$2" 'BEGIN { printf "%.3f", a / b }'; }
# "  MISSED (target ...)" and a failure when a ratio is above the target.
judge() {
    if awk -v r="$1" -v m="$max_ratio" 'BEGIN { exit !(r > m) }'; then
        echo "  MISSED (target $max_ratio)"
        return 1
    fi
}

status=0
printf '\ninstructions, callgrind (comply with the five-rule baseline; check --quiet)\n'
printf '%-34s %14s %14s %8s\n' policy check comply "vs check"
for size in typical large; do
    policy="$work/$size/QuillnetLocalPolicy.xml"
    check=$(count check --quiet "$policy")
    comply=$(count comply --quiet --host web-1 --baseline "$work/baseline.yml" "$policy")
    r=$(ratio "$comply" "$check")
    label=$([ $size = typical ] && echo "typical ($(stat -c %s "$policy") bytes)" ||
        echo "100,000 servers ($(stat -c %s "$policy") bytes)")
    verdict=""
    if [ $size = typical ]; then
        verdict=$(judge "$r") || status=1
    fi
    printf '%-34s %14s %14s %8s%s\n' "$label" "$check" "$comply" "$r" "$verdict"
done

policy="$work/large/QuillnetLocalPolicy.xml"
hyperfine --style basic --warmup 3 --runs "$runs" -N -i --export-json "$work/hyperfine.json" \
    "$tool check --quiet $policy" \
    "$tool comply --quiet --host web-1 --baseline $work/baseline.yml $policy" >/dev/null
read -r check_mean comply_mean < <(/usr/bin/python3 -c '
import json, sys
results = json.load(open(sys.argv[1]))["results"]
print(" ".join("%.6f" % result["mean"] for result in results))' "$work/hyperfine.json")
r=$(ratio "$comply_mean" "$check_mean")
verdict=$(judge "$r") || status=1
printf '\nhyperfine at 100,000 servers, %d runs each, mean wall time\n' "$runs"
printf 'check %.1f ms, comply %.1f ms: %s%s\n' "$(awk -v m="$check_mean" 'BEGIN{print m*1000}')" \
    "$(awk -v m="$comply_mean" 'BEGIN{print m*1000}')" "$r" "$verdict"
exit $status
