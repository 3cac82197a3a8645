#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# make bench-cli: qnpolicy against xmllint on the benchmarks' policy of 100,000 authorized
# servers (scripts/bench-policy.sh) and on the typical policy (every setting, 5 servers, as
# qnpolicy generate writes it).
#
#   CPU time (user + system of the process, from wait4) of
#     xmllint --noout FILE
#     qnpolicy check --quiet --ignore file-owner FILE
#     qnpolicy show --quiet --json FILE >/dev/null
#   run in turn, RUNS rounds (default 31), so that a busy neighbour slows all three alike; each
#   is judged by its median. Exits 1 when check or show --json costs more than MAX_LARGE
#   (default 1.1) times xmllint at 100,000 servers, or more than MAX_SMALL (default 1.0) times
#   on the typical policy.
#   peak resident memory (/usr/bin/time) of
#     qnpolicy show --json FILE >/dev/null          and  the library's own load of FILE
#
# Usage: scripts/bench-cli.sh [BUILD_DIR] (default: build).
set -euo pipefail
build_dir=${1:-build}
root=$(cd "$(dirname "$0")/.." && pwd)
tool="$root/$build_dir/tools/qnpolicy/qnpolicy"
loader="$root/$build_dir/qnpolicy_load_policy"
runs=${RUNS:-31}
max_large=${MAX_LARGE:-1.1}
max_typical=${MAX_TYPICAL:-1.0}

for need in "$tool" "$loader"; do
    if [ ! -x "$need" ]; then
        echo "bench-cli: $need not found; build first (make build)" >&2
        exit 1
    fi
done

work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir -m 755 "$work/large" "$work/typical"
large="$work/large/QuillnetLocalPolicy.xml"
typical="$work/typical/QuillnetLocalPolicy.xml"
bash "$root/scripts/bench-policy.sh" "$large" 100000
bash "$root/scripts/bench-policy.sh" --typical "$tool" "$work/typical"

status=0
for policy in "$large" "$typical"; do
    # Both subcommands must succeed on the document, or the timings mean nothing.
    "$tool" check --quiet --ignore file-owner "$policy" >/dev/null
    "$tool" show --quiet --json "$policy" >/dev/null
    limit=$max_large
    [ "$policy" = "$typical" ] && limit=$max_typical
    echo
    echo "bench-cli: $policy, $(wc -c <"$policy") bytes, $(grep -c '<ServerName>' "$policy") servers"
    python3 - "$runs" "$limit" "$tool" "$policy" <<'PY' || status=1
import os, statistics, subprocess, sys
runs, limit, tool, policy = int(sys.argv[1]), float(sys.argv[2]), sys.argv[3], sys.argv[4]
commands = {
    "xmllint": ["xmllint", "--noout", policy],
    "check": [tool, "check", "--quiet", "--ignore", "file-owner", policy],
    "show-json": [tool, "show", "--quiet", "--json", policy],
}
cpu = {name: [] for name in commands}
with open(os.devnull, "w") as null:
    for _ in range(runs):
        for name, argv in commands.items():
            child = subprocess.Popen(argv, stdout=null)
            _, status, usage = os.wait4(child.pid, 0)
            if status != 0:
                sys.exit(f"bench-cli: {name} failed")
            cpu[name].append(usage.ru_utime + usage.ru_stime)
median = {name: statistics.median(times) for name, times in cpu.items()}
print(f"CPU time (user + system), median of {runs} interleaved runs:")
failed = False
for name in commands:
    ratio = median[name] / median["xmllint"]
    verdict = ""
    if name != "xmllint" and ratio > limit:
        verdict, failed = f"  MISSED (target {limit}x)", True
    print(f"  {name:10} {median[name] * 1000:8.1f} ms   {ratio:5.2f}x xmllint --noout{verdict}")
sys.exit(1 if failed else 0)
PY
done

peak_kib() {
    /usr/bin/time -f '%M' "$@" 2>&1 >/dev/null | tail -n 1
}
show_peak=$(peak_kib "$tool" show --quiet --json "$large")
load_peak=$(peak_kib "$loader" "$work/large/")
echo
echo "Peak resident memory at 100,000 servers:"
awk -v s="$show_peak" -v l="$load_peak" 'BEGIN {
    printf "  show --json   %6.1f MiB\n  library load  %6.1f MiB\n  ratio         %6.2fx\n",
        s / 1024, l / 1024, s / l }'
exit $status
