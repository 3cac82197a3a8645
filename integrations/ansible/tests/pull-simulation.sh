#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Fleets too large to push, simulated: a local bare git repository stands in for the fleet's
# playbook repository (the collection's examples/ansible-pull/: local.yml and group_vars/), and
# HOSTS simulated hosts (default 20), each with a checkout and an install directory of its own,
# run the command of quillnet-localpolicy-pull.service as the timer would start it (no systemd
# runs here), twice: the first pull writes every host's policy, the second changes nothing.
# systemd-analyze verify checks the example units first. Prints the wall time per host.
#   integrations/ansible/tests/pull-simulation.sh [QNPOLICY] [HOSTS]
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../../.." && pwd)
qnpolicy=$(realpath "${1:-${QNPOLICY:-$repo/build/tools/qnpolicy/qnpolicy}}")
hosts=${2:-20}
examples="$repo/integrations/ansible/ansible_collections/quillnet/localpolicy/examples/ansible-pull"
if [ ! -x "$qnpolicy" ]; then
    echo "pull-simulation: no qnpolicy at $qnpolicy; build it first" >&2
    exit 1
fi
work=$(mktemp -d /tmp/qn-pull.XXXXXX)
trap 'rm -rf "$work"' EXIT
chmod 0755 "$work"

# The units as shipped: systemd's own checks, without a running systemd.
systemd-analyze verify --man=no "$examples/quillnet-localpolicy-pull.service" \
    "$examples/quillnet-localpolicy-pull.timer"
echo "systemd-analyze verify: the example units are valid"

# The central repository: what an administrator commits there.
git init --quiet --bare --initial-branch=main "$work/policy.git"
git clone --quiet "$work/policy.git" "$work/admin" 2>/dev/null
cp -r "$examples/local.yml" "$examples/group_vars" "$work/admin/"
git -C "$work/admin" add local.yml group_vars
git -C "$work/admin" -c user.name=Admin -c user.email=admin@example.com commit --quiet -m "The fleet's policy"
git -C "$work/admin" push --quiet origin main

# The timer's command, as systemd would run it with the environment file's values; the state
# directory is the host's own.
command=$(sed -n 's/^ExecStart=//p' "$examples/quillnet-localpolicy-pull.service")
# Pipelining hands each module to the interpreter on standard input: no temporary directory and
# no extra shells per task, and no change to what the play does.
export ANSIBLE_COLLECTIONS_PATH="$repo/integrations/ansible" ANSIBLE_NOCOLOR=1 ANSIBLE_PIPELINING=1
# Read the piped module payloads buffered (see scripts/ansible-tests.sh).
unset PYTHONUNBUFFERED
export QUILLNET_POLICY_REPOSITORY="file://$work/policy.git" QUILLNET_POLICY_BRANCH=main

# pull N ROUND: host N's pull; its output in $work/hostN.ROUND, its wall time appended to
# $work/times.ROUND.
pull() {
    local host=$1 round=$2 start end
    local dir="$work/hosts/host$host"
    mkdir -p "$dir/install"
    start=${EPOCHREALTIME/,/.}
    QUILLNET_PULL_OPTIONS="-e quillnet_install_dir=$dir/install/ -e quillnet_qnpolicy=$qnpolicy -e ansible_python_interpreter=/usr/bin/python3"
    eval "${command//\/var\/lib\/quillnet-localpolicy-pull/$dir/checkout}" >"$work/host$host.$round" 2>&1 ||
        echo "host$host: pull $round failed" >>"$work/failures"
    end=${EPOCHREALTIME/,/.}
    echo "$start $end" >>"$work/times.$round"
}
export -f pull
export work qnpolicy command

failures=0
for round in first second; do
    start=${EPOCHREALTIME/,/.}
    seq 1 "$hosts" | xargs -P 2 -I{} bash -c "pull {} $round"
    end=${EPOCHREALTIME/,/.}
    awk -v round="$round" -v hosts="$hosts" -v s="$start" -v e="$end" '
        { each += $2 - $1 }
        END { printf "%s pull: %d hosts, 2 at a time: wall time %.2f s; %.2f s per pull, %.2f s of wall time per host\n",
                     round, hosts, e - s, each / NR, (e - s) / hosts }' "$work/times.$round"
    expected=$([ $round = first ] && echo 1 || echo 0)
    changed=$(grep -l -E "^localhost +: ok=[0-9]+ +changed=$expected +unreachable=0 +failed=0" \
        "$work"/host*."$round" | wc -l)
    if [ "$changed" -ne "$hosts" ]; then
        echo "FAIL: the $round pull gave changed=$expected on $changed of $hosts hosts" >&2
        cat "$work/failures" 2>/dev/null >&2 || true
        tail -n 20 "$work/host1.$round" >&2
        failures=$((failures + 1))
    fi
done

# Every host holds the fleet's policy, as the client reads it.
for host in $(seq 1 "$hosts"); do
    flat=$("$qnpolicy" show --quiet --format=flat "$work/hosts/host$host/install/QuillnetLocalPolicy.xml")
    if ! grep -qx 'FipsMode true' <<<"$flat" || ! grep -qx 'RestrictTunnelProtocols tls' <<<"$flat"; then
        echo "FAIL: host$host does not hold the fleet's policy" >&2
        failures=$((failures + 1))
    fi
done
if [ $failures -gt 0 ]; then
    echo "pull simulation: FAILED" >&2
    exit 1
fi
echo "pull simulation: PASSED (the first pull changed every host, the second none)"
