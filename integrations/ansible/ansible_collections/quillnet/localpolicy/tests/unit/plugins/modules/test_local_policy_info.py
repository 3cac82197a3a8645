# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json

from ansible_collections.quillnet.localpolicy.plugins.modules import local_policy_info
from .conftest import render

FINDINGS = [dict(kind='file-owner', severity='warning', line=0, column=0, message='not owned by root'),
            dict(kind='tunnel-value-not-applied', severity='error', line=5, column=5, message='TLS is not applied')]


def write(fake, text):
    with open(fake.path, 'w') as handle:
        handle.write(text)


def test_reports_what_show_and_check_report(run_module, fake):
    write(fake, render(['fm=true']))
    fake.findings = FINDINGS
    outcome = run_module(local_policy_info.main, dict(ignore=['file-owner']), check_mode=True)
    assert not outcome.failed and not outcome.result['changed']
    assert outcome.result['policy'] == json.loads(fake.show([])[1])
    assert outcome.result['exists'] and outcome.result['loaded'] and outcome.result['path'] == fake.path
    assert outcome.result['findings'] == FINDINGS[1:]
    assert fake.ran('check', '--ignore', 'file-owner')
    assert fake.on_disk() == render(['fm=true'])


def test_without_file_reports_defaults_and_no_findings(run_module, fake):
    fake.findings = FINDINGS
    outcome = run_module(local_policy_info.main, dict())
    assert not outcome.result['exists'] and outcome.result['loaded'] and outcome.result['findings'] == []
    assert fake.ran('check') == []


def test_a_file_the_client_cannot_load_is_reported_not_failed(run_module, fake):
    write(fake, 'broken')
    outcome = run_module(local_policy_info.main, dict())
    assert not outcome.failed
    assert outcome.result['exists'] and not outcome.result['loaded']
    assert outcome.result['error']['message'] == 'not well-formed'
