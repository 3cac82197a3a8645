#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# Runs the collection's modules against a built qnpolicy on this machine (integration.yml), then
# the plays printed in the collection's README on a small fleet of local hosts (readme_plays.py):
#   integrations/ansible/tests/run-integration.sh [QNPOLICY]
# QNPOLICY defaults to the environment's QNPOLICY, then to build/tools/qnpolicy/qnpolicy.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../../.." && pwd)
qnpolicy=$(realpath "${1:-${QNPOLICY:-$repo/build/tools/qnpolicy/qnpolicy}}")
if [ ! -x "$qnpolicy" ]; then
    echo "run-integration: no qnpolicy at $qnpolicy; build it first (cmake --build --preset default)" >&2
    exit 1
fi

# The tasks that run as nobody need a tool nobody can reach, wherever the build tree is (a
# checkout under /root is not): they all run a copy in a directory every user can search.
tooldir=$(mktemp -d /tmp/qnpolicy-tool.XXXXXX)
records=$(mktemp)
trap 'rm -rf "$tooldir" "$records"' EXIT
chmod 0755 "$tooldir"
install -m 0755 "$qnpolicy" "$tooldir/qnpolicy"
qnpolicy=$tooldir/qnpolicy

export ANSIBLE_COLLECTIONS_PATH="$repo/integrations/ansible"
export ANSIBLE_LOCALHOST_WARNING=false ANSIBLE_INVENTORY_UNPARSED_WARNING=false ANSIBLE_NOCOLOR=1
# Every task result is recorded, so that what the recap counted and every key the modules
# returned can be checked after the run.
if ! ANSIBLE_CALLBACKS_ENABLED=record_results ANSIBLE_CALLBACK_PLUGINS="$here/callback_plugins" \
    RECORD_RESULTS_FILE="$records" ansible-playbook -i localhost, -e "qnpolicy=$qnpolicy" "$here/integration.yml" ||
    ! /usr/bin/python3 "$here/result_checks.py" "$records"; then
    echo "ansible integration: FAILED ($qnpolicy)" >&2
    exit 1
fi
# The plays printed in the collection's README, as printed, on a small fleet on this machine.
if ! /usr/bin/python3 "$here/readme_plays.py" "$qnpolicy"; then
    echo "ansible integration: FAILED, the README's plays ($qnpolicy)" >&2
    exit 1
fi
echo "ansible integration: PASSED ($qnpolicy)"
