#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Tests of the Ansible collection quillnet.localpolicy, offline, with Debian's packages only:
# unit tests (ansible-test units), the sanity tests that need no virtual environment built from
# PyPI, pycodestyle and pylint with ansible-test's settings, ansible-doc on every module,
# ansible-lint's production profile on the collection (its role too), the README's plays as
# printed and the fleet tests' plays, the integration playbook and the README's plays against
# the built qnpolicy, the compliance report on a simulated fleet of 200 hosts (rendered in
# headless Chromium), and ansible-pull on 20 simulated hosts.
#   scripts/ansible-tests.sh [QNPOLICY]     (default build/tools/qnpolicy/qnpolicy)
set -euo pipefail

repo=$(cd "$(dirname "$0")/.." && pwd)
collections="$repo/integrations/ansible"
collection="$collections/ansible_collections/quillnet/localpolicy"
qnpolicy=$(realpath -m "${1:-$repo/build/tools/qnpolicy/qnpolicy}")
# ansible-core and the pytest plugins are Debian's, installed for Debian's interpreter: name it,
# so that no other python3 on PATH is picked up.
python=/usr/bin/python3
version=$("$python" -c 'import sys; print("%d.%d" % sys.version_info[:2])')
export ANSIBLE_COLLECTIONS_PATH="$collections" ANSIBLE_NOCOLOR=1
# With pipelining each module's payload reaches its interpreter through a pipe; an unbuffered
# interpreter (PYTHONUNBUFFERED, as some CI shells export it) reads it a byte per system call,
# about 140,000 calls a task. Nothing any test checks depends on it.
unset PYTHONUNBUFFERED

step() { echo "== ansible-tests: $*"; }

cd "$collection"
rm -rf tests/output

if [ ! -x "$qnpolicy" ]; then
    echo "ansible-tests: no qnpolicy at $qnpolicy; build it first" >&2
    exit 1
fi

step "unit tests (ansible-test units, Python $version)"
ansible-test units --local --python "$version" --python-interpreter "$python"
# A run that found no test would pass without testing anything.
if ! grep -Eq 'tests="[1-9][0-9]*"' tests/output/junit/*.xml; then
    echo "ansible-tests: the unit run collected no test" >&2
    exit 1
fi

step "sanity tests"
# These run offline; validate-modules, import, pylint, pep8, yamllint and ansible-doc would first
# build a virtual environment from PyPI. What they check is covered by the unit test of the
# documented options, and by pycodestyle, pylint and ansible-doc below.
sanity_tests=(compile shebang symlinks line-endings no-assert empty-init action-plugin-docs
    future-import-boilerplate metaclass-boilerplate)
ansible-test sanity --local --python "$version" --python-interpreter "$python" \
    "${sanity_tests[@]/#/--test=}"

step "pycodestyle and pylint, with ansible-test's settings"
# The collection, and the integration runner and its callback beside it.
runner=("$collections/tests/readme_plays.py" "$collections/tests/result_checks.py"
    "$collections/tests/callback_plugins/record_results.py" "$collections/tests/synthetic_fleet.py")
pycodestyle --max-line-length 160 --ignore "$(paste -sd, \
    /usr/lib/python3/dist-packages/ansible_test/_util/controller/sanity/pep8/current-ignore.txt)" \
    plugins tests "${runner[@]}"
PYTHONPATH="$collections" "$python" -m pylint --score=n \
    --rcfile /usr/lib/python3/dist-packages/ansible_test/_util/controller/sanity/pylint/config/collection.cfg \
    plugins tests "${runner[@]}"

step "ansible-doc"
for module in local_policy local_policy_info compliance_report; do
    ansible-doc "quillnet.localpolicy.$module" >/dev/null 2>"tests/output/ansible-doc.err"
    if [ -s tests/output/ansible-doc.err ]; then
        cat tests/output/ansible-doc.err >&2
        exit 1
    fi
    ansible-doc --json "quillnet.localpolicy.$module" | "$python" -c '
import json, sys
name, doc = json.load(sys.stdin).popitem()
missing = [key for key in ("doc", "examples", "return") if not doc.get(key)]
if missing or not doc["doc"].get("options"):
    sys.exit("ansible-doc: %s lacks %s" % (name, ", ".join(missing) or "options"))
'
    echo "ansible-doc quillnet.localpolicy.$module: complete"
done

step "ansible-lint, production profile: the collection, the README's plays as printed, the fleet test's play"
# --offline: nothing is fetched from Galaxy or PyPI. The collection is linted from its own
# directory (galaxy.yml, meta/, plugins' documentation, the compliance_report role, the
# ansible-pull example); the README's plays are extracted as printed, the group variables
# beside them.
lint_home=$(mktemp -d)
plays="$lint_home/plays"
"$python" "$collections/tests/readme_plays.py" --extract "$plays"
cp "$collections/tests/compliance-report.yml" "$plays/fleet-compliance-report.yml"
HOME="$lint_home" ansible-lint --offline --profile production --nocolor
(cd "$plays" && HOME="$lint_home" ansible-lint --offline --profile production --nocolor ./*.yml group_vars)
rm -rf "$lint_home"

step "integration (ansible-playbook, localhost)"
bash "$repo/integrations/ansible/tests/run-integration.sh" "$qnpolicy"

step "the compliance report of a simulated fleet of 200 hosts, rendered in headless Chromium"
bash "$collections/tests/compliance-fleet.sh" "$qnpolicy" 200 "$repo/build/ansible-artifacts"

step "ansible-pull on 20 simulated hosts from a local repository"
bash "$collections/tests/pull-simulation.sh" "$qnpolicy" 20

echo "ansible-tests: PASSED (units, sanity, pycodestyle, pylint, ansible-doc, ansible-lint, integration," \
    "compliance fleet, ansible-pull)"
