# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json

import pytest

from ansible_collections.quillnet.localpolicy.plugins.modules import local_policy_info
from .conftest import error_output, render

FINDINGS = [dict(kind='file-owner', severity='error', line=0, column=0, message='not owned by root'),
            dict(kind='tunnel-value-not-applied', severity='error', line=5, column=5, message='TLS is not applied')]


def write(fake, text):
    with open(fake.path, 'w') as handle:
        handle.write(text)


def shown(fake):
    return json.loads(fake.show(fake.install_dir, [], None)[1])


@pytest.mark.parametrize('findings, ignore, result, reported', [
    ([], [], 'clean', []),
    (FINDINGS, [], 'findings', FINDINGS),
    (FINDINGS, ['file-owner'], 'findings', FINDINGS[1:]),
    (FINDINGS[:1], ['file-owner'], 'clean', []),
])
def test_reports_what_show_and_check_report(run_module, fake, findings, ignore, result, reported):
    write(fake, render(['fm=true']))
    fake.findings = findings
    outcome = run_module(local_policy_info.main, dict(ignore=ignore), check_mode=True)
    assert not outcome.failed and not outcome.result['changed']
    assert outcome.result['policy'] == shown(fake)
    assert outcome.result['exists'] and outcome.result['loaded'] and outcome.result['path'] == fake.path
    assert outcome.result['result'] == result and outcome.result['findings'] == reported
    assert 'error' not in outcome.result
    assert fake.ran('check')[0][5:] == [word for kind in ignore for word in ('--ignore', kind)]
    assert fake.on_disk() == render(['fm=true'])


def test_without_file_reports_the_defaults_and_no_findings(run_module, fake):
    fake.findings = FINDINGS
    outcome = run_module(local_policy_info.main, dict())
    assert not outcome.failed
    assert not outcome.result['exists'] and outcome.result['loaded'] and outcome.result['findings'] == []
    assert outcome.result['policy']['result'] == 'defaults' and outcome.result['result'] == 'no-such-file'
    assert 'error' not in outcome.result


def test_a_file_the_client_cannot_load_is_reported_not_failed(run_module, fake):
    write(fake, 'broken')
    outcome = run_module(local_policy_info.main, dict())
    assert not outcome.failed
    assert outcome.result['exists'] and not outcome.result['loaded'] and outcome.result['result'] == 'unreadable'
    assert outcome.result['policy']['error']['kind'] == 'unreadable'
    assert outcome.result['error'] == dict(kind='unreadable', message='not well-formed', line=1, column=1)


@pytest.mark.parametrize('subcommand', ['show', 'check'])
def test_a_missing_install_directory_fails_with_the_tools_message(run_module, fake, subcommand):
    fake.overrides[subcommand] = error_output(subcommand, 66, 'no-such-directory',
                                              'install directory "/nowhere/": no such directory')
    outcome = run_module(local_policy_info.main, dict())
    assert outcome.failed
    assert outcome.result['msg'] == 'qnpolicy %s: install directory "/nowhere/": no such directory' % subcommand


BASELINE = 'version: 1\nsettings:\n  FipsMode: true\n'


@pytest.mark.parametrize('document, result, compliant, fips', [
    (render(['fm=true']), 'compliant', True, 'pass'),
    (render(['fm=false']), 'not-compliant', False, 'fail'),
    (None, 'not-compliant', False, 'fail'),
    ('broken', 'unreadable', False, None),
])
def test_judges_the_policy_against_the_baseline_on_standard_input(run_module, fake, document, result, compliant, fips):
    if document is not None:
        write(fake, document)
    outcome = run_module(local_policy_info.main, dict(baseline_content=BASELINE, host='lab-7'))
    assert not outcome.failed
    compliance = outcome.result['compliance']
    assert compliance['result'] == result and compliance['compliant'] is compliant and compliance['host'] == 'lab-7'
    assert [verdict['state'] for verdict in compliance['verdicts']][1:] == ([fips] if fips else [])
    assert fake.ran('comply')[0][5:] == ['--baseline', '-', '--host', 'lab-7']
    assert fake.inputs[fake.commands.index(fake.ran('comply')[0])] == BASELINE


def test_without_a_baseline_judges_nothing(run_module, fake):
    outcome = run_module(local_policy_info.main, dict())
    assert 'compliance' not in outcome.result and not fake.ran('comply')


def test_a_malformed_baseline_fails_with_its_line_and_column(run_module, fake):
    outcome = run_module(local_policy_info.main, dict(baseline_content='version: 1\nsettings:\n  FipsMode: yes\n'))
    assert outcome.failed
    assert outcome.result['msg'] == 'qnpolicy comply: <stdin>:3:13: FipsMode takes true or false, not yes'


def test_a_host_without_the_tool_fails_as_having_no_client(run_module, fake, tmp_path):
    outcome = run_module(local_policy_info.main, dict(qnpolicy=str(tmp_path / 'qnpolicy')))
    assert outcome.failed and outcome.result['error']['kind'] == 'no-client'
    assert fake.commands == []
