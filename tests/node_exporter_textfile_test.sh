#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The metrics service end to end, without systemd: the ExecStart of qnpolicy-metrics.service,
# with the baseline its defaults file names, run as the unit runs it (the binary under test
# for the installed one, a scratch textfile directory and install directory), then a real
# node_exporter on 127.0.0.1 serves what it wrote; a drifted policy flips the verdict at the
# next run. The exporter is started and stopped here, and nothing is left behind.
#   node_exporter_textfile_test.sh QNPOLICY SERVICE_UNIT DEFAULTS_FILE
set -euo pipefail
qnpolicy=$1 unit=$2 defaults=$3
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
exporter=
cleanup() {
    if [ -n "$exporter" ]; then
        kill "$exporter" 2> /dev/null || true
        wait "$exporter" 2> /dev/null || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT
fail() {
    echo "node_exporter test: FAIL: $*" >&2
    exit 1
}

mkdir "$work/textfile" "$work/install"
# The unit's command, with the baseline as the defaults file sets it.
exec_start=$(sed -n 's/^ExecStart=//p' "$unit")
textfile_dir=$(sed -n 's/^ConditionPathIsDirectory=//p' "$unit")
[ -n "$exec_start" ] && [ -n "$textfile_dir" ] || fail "no ExecStart or textfile directory in $unit"
baseline_path=$(sed -n 's/^QNPOLICY_BASELINE=//p' "$defaults")
[ -n "$baseline_path" ] || fail "$defaults names no QNPOLICY_BASELINE"
command=${exec_start//\$\{QNPOLICY_BASELINE\}/$work/baseline.yml}
command=${command//$textfile_dir/$work/textfile}
command=${command/#*\/qnpolicy /$qnpolicy }
printf 'version: 1\nsettings:\n  FipsMode: true\n' > "$work/baseline.yml"
run_service() {
    # shellcheck disable=SC2086 # the unit's command line, split as systemd splits it
    $command --install-dir "$work/install" 2> "$work/stderr" ||
        fail "the service's command exited $?: $(cat "$work/stderr")"
}

port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
prometheus-node-exporter --web.listen-address="127.0.0.1:$port" --collector.disable-defaults \
    --collector.textfile --collector.textfile.directory="$work/textfile" 2> "$work/exporter.log" &
exporter=$!
scrape() {
    python3 - "$port" << 'PY'
import sys, time, urllib.request
for attempt in range(100):
    try:
        print(urllib.request.urlopen(f"http://127.0.0.1:{sys.argv[1]}/metrics", timeout=5).read().decode())
        break
    except OSError:
        time.sleep(0.1)
else:
    sys.exit("node_exporter did not answer")
PY
}
expect() {
    grep -q -x -F "$1" "$work/scraped" || fail "the scrape lacks '$1':$(grep qnpolicy_ "$work/scraped")"
}

"$qnpolicy" generate --install-dir "$work/install" fm=true > /dev/null 2>&1
run_service
scrape > "$work/scraped"
expect 'node_textfile_scrape_error 0'
expect 'qnpolicy_check_success 1'
expect 'qnpolicy_compliant 1'
expect 'qnpolicy_setting{name="FipsMode"} 1'

"$qnpolicy" set --install-dir "$work/install" fm=false > /dev/null 2>&1
run_service
scrape > "$work/scraped"
expect 'node_textfile_scrape_error 0'
expect 'qnpolicy_compliant 0'
expect 'qnpolicy_baseline_rule{rule="FipsMode",status="fail"} 1'
expect 'qnpolicy_setting{name="FipsMode"} 0'
echo "node_exporter test: served the service's metrics from 127.0.0.1:$port; the drift flipped them"
