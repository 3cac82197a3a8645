#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# What a fleet's five-minute verdict costs: `qnpolicy comply` against `oscap xccdf eval` of the
# content `qnpolicy scap` makes from the same baseline, on the same policy file, typical (every
# installer setting, five servers) and at 100,000 servers. hyperfine's mean wall time, each
# command on its own (RUNS runs on the typical policy, default 20; LARGE_RUNS at 100,000
# servers, default 3, as one oscap run takes tens of seconds there); prints the table
# BENCHMARKS.md shows. Measures only: no target. Both exit non-zero on a policy that is not
# compliant (the large one lacks strict trust); hyperfine ignores it.
#
#   scripts/bench-scap.sh [QNPOLICY]   (default build/tools/qnpolicy/qnpolicy)
set -euo pipefail
tool=$(realpath "${1:-build/tools/qnpolicy/qnpolicy}")
runs=${RUNS:-20}
large_runs=${LARGE_RUNS:-3}
here=$(dirname "$(realpath "$0")")
command -v oscap >/dev/null || { echo "bench-scap: oscap not found (scripts/install-deps.sh)" >&2; exit 1; }
work=$(mktemp -d /tmp/qn-bench-scap.XXXXXX)
trap 'rm -rf "$work"' EXIT
chmod 0755 "$work"
mkdir "$work/typical" "$work/large"

bash "$here/bench-policy.sh" --typical "$tool" "$work/typical"
bash "$here/bench-policy.sh" "$work/large/QuillnetLocalPolicy.xml" 100000
cat >"$work/baseline.yml" <<'YAML'
version: 1
settings:
  FipsMode: true
  StrictCertificateTrust: true
  RestrictTunnelProtocols: {one_of: [tls, ipsec]}
  AllowSoftwareUpdatesFromAnyServer: false
  AuthorizedServerList: {superset_of: [gw000001.example.com]}
YAML

printf '%-34s %12s %14s %8s\n' policy comply "oscap eval" "oscap / comply"
for size in typical large; do
    dir="$work/$size"
    "$tool" --install-dir "$dir" scap --baseline "$work/baseline.yml" >"$work/$size.ds.xml"
    n=$([ $size = typical ] && echo "$runs" || echo "$large_runs")
    hyperfine --style basic --warmup 1 --runs "$n" -N -i --export-json "$work/$size.json" \
        "$tool --install-dir $dir comply --quiet --host web-1 --baseline $work/baseline.yml" \
        "oscap xccdf eval $work/$size.ds.xml" >/dev/null 2>&1
    /usr/bin/python3 - "$work/$size.json" "$size" "$(stat -c %s "$dir/QuillnetLocalPolicy.xml")" <<'PY'
import json, sys
comply, oscap = (r["mean"] * 1000 for r in json.load(open(sys.argv[1]))["results"])
label = ("typical" if sys.argv[2] == "typical" else "100,000 servers") + " (%s bytes)" % sys.argv[3]
print("%-34s %9.1f ms %11.1f ms %7.1fx" % (label, comply, oscap, oscap / comply))
PY
done
