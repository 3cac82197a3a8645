#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# A fleet at scale, simulated on this machine: HOSTS inventory hosts (default 200), each a local
# connection with an install directory of its own, get fleet.yml once (rollout) and once more
# (re-run), with Ansible's default forks. Prints, for each run, the wall time per host and the
# time spent inside qnpolicy, and fails unless the rollout changed every host and the re-run
# changed none.
#   integrations/ansible/tests/fleet-simulation.sh [QNPOLICY] [HOSTS]
# QNPOLICY defaults to the environment's QNPOLICY, then to build/tools/qnpolicy/qnpolicy.
#
# The time inside qnpolicy is taken by a shim that runs the real tool and appends its elapsed
# wall time to a log: it counts the tool's own process from fork to exit, not the shim's shell.
# (Times are read from bash's EPOCHREALTIME, whose decimal point follows the locale.)
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../../.." && pwd)
qnpolicy=$(realpath "${1:-${QNPOLICY:-$repo/build/tools/qnpolicy/qnpolicy}}")
hosts=${2:-200}
if [ ! -x "$qnpolicy" ]; then
    echo "fleet-simulation: no qnpolicy at $qnpolicy; build it first (cmake --build --preset default)" >&2
    exit 1
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

cat >"$work/qnpolicy" <<SHIM
#!/usr/bin/env bash
start=\${EPOCHREALTIME/,/.}
"$qnpolicy" "\$@"
rc=\$?
echo "\$start \${EPOCHREALTIME/,/.} \$1" >>"$work/qnpolicy.log"
exit \$rc
SHIM
chmod +x "$work/qnpolicy"

{
    echo "[fleet]"
    for i in $(seq -f '%04g' 1 "$hosts"); do
        mkdir -p "$work/hosts/host$i"
        echo "host$i install_dir=$work/hosts/host$i/"
    done
    echo "[fleet:vars]"
    echo "ansible_connection=local"
    # The modules run under Debian's interpreter, the one ansible-core is installed for.
    echo "ansible_python_interpreter=/usr/bin/python3"
} >"$work/inventory.ini"

export ANSIBLE_COLLECTIONS_PATH="$repo/integrations/ansible"
export ANSIBLE_NOCOLOR=1
forks=$(ansible-config dump | awk '/^DEFAULT_FORKS/ {print $NF}')

# run NAME: one ansible-playbook run over the fleet; leaves NAME.out and NAME.log in $work.
run() {
    local start end
    : >"$work/qnpolicy.log"
    start=${EPOCHREALTIME/,/.}
    ansible-playbook -i "$work/inventory.ini" -e "qnpolicy=$work/qnpolicy" "$here/fleet.yml" >"$work/$1.out" || {
        tail -n 40 "$work/$1.out" >&2
        echo "fleet-simulation: FAILED, the $1 did not complete" >&2
        exit 1
    }
    end=${EPOCHREALTIME/,/.}
    mv "$work/qnpolicy.log" "$work/$1.log"
    awk -v name="$1" -v hosts="$hosts" -v forks="$forks" -v wall_start="$start" -v wall_end="$end" '
        BEGIN { wall = wall_end - wall_start }
        { inside += $2 - $1; calls++ }
        END {
            printf "| %s | %d | %.2f s | %.1f ms | %.1f | %.1f ms | %.1f ms | %.1f%% |\n", name, hosts, wall,
                1000 * wall / hosts, calls / hosts, 1000 * inside / calls, 1000 * inside / hosts,
                100 * inside / (wall * forks)
        }' "$work/$1.log"
}

# hosts_with PATTERN NAME: how many hosts of the recap of NAME match PATTERN.
hosts_with() {
    grep -E "^host[0-9]+ +: ok=[0-9]+ +$1 +unreachable=0 +failed=0" "$work/$2.out" | wc -l
}

echo "fleet simulation: $hosts hosts, forks $forks, $(nproc) cores, qnpolicy $qnpolicy"
echo
echo "| run | hosts | wall time | wall time per host | qnpolicy runs per host | time per qnpolicy run |" \
    "time in qnpolicy per host | share in qnpolicy |"
echo "|---|---|---|---|---|---|---|---|"
run rollout
run re-run
echo

rolled_out=$(hosts_with 'changed=1' rollout)
unchanged=$(hosts_with 'changed=0' re-run)
echo "rollout: $rolled_out of $hosts hosts changed; re-run: $unchanged of $hosts hosts changed=0"
echo "share in qnpolicy: time inside qnpolicy over wall time x forks (the workers' time)"
if [ "$rolled_out" -eq "$hosts" ] && [ "$unchanged" -eq "$hosts" ]; then
    echo "fleet simulation: PASSED"
else
    echo "fleet simulation: FAILED" >&2
    exit 1
fi
