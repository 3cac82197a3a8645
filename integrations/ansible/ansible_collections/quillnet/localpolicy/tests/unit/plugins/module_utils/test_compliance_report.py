# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import pytest

from ansible_collections.quillnet.localpolicy.plugins.module_utils.compliance_report import build_report, render_html

SAFE = dict(rule='file-safety', state='pass', severity='high', actual='safe', origin=None, findings=[])
FIPS_OFF = dict(rule='FipsMode', state='fail', severity='high', comparison='equals', expected=[True], actual=False,
                origin=dict(line=3, column=5))
FILE = '/opt/quillnet/QuillnetLocalPolicy.xml'


def judged(verdicts, compliant, result=None):
    return dict(changed=False, compliance=dict(result=result or ('compliant' if compliant else 'not-compliant'),
                                               compliant=compliant, file=FILE, verdicts=verdicts,
                                               expiringWaivers=[]))


# The shapes the simulated fleet (compliance-fleet.sh) does not plant; it plants a compliant,
# a not compliant and a waived host, and each host it cannot judge: no qnpolicy, no install
# directory, an unreachable host, a file comply cannot read, an unsafe directory.
@pytest.mark.parametrize('result, status, reason', [
    (judged([dict(SAFE, state='fail', actual='unsafe', findings=[dict(message="The directory /opt's mode is 0777")]),
             FIPS_OFF], False), 'unreadable', 'unsafe'),
    (dict(failed=True, msg='<stdin>:3:13: bad', error=dict(kind='refused', message='')), 'unreadable', 'refused'),
    ({}, 'unreadable', 'failed'),
    (None, 'unreadable', 'failed'),
])
def test_every_host_is_compliant_not_compliant_or_listed_with_why_it_was_not_judged(result, status, reason):
    report = build_report({'web-1': result}, 'baseline.yml', 'now')
    assert [(entry['host'], entry['status'], entry.get('reason')) for entry in report['hosts']] == \
        [('web-1', status, reason)]


def test_failing_hosts_come_first_with_expected_actual_and_origin():
    report = build_report({'a-ok': judged([SAFE], True), 'b-drift': judged([SAFE, FIPS_OFF], False),
                           'c-gone': dict(unreachable=True, msg='down')}, 'baseline.yml', 'now')
    assert [entry['host'] for entry in report['hosts']] == ['b-drift', 'c-gone', 'a-ok']
    assert report['totals'] == dict(hosts=3, compliant=1, not_compliant=1, unreadable=1)
    assert report['hosts'][0]['failures'] == [dict(rule='FipsMode', severity='high', expected=[True],
                                                   comparison='equals', actual=False, origin=FILE + ':3:5')]
    page = render_html(report)
    assert '>a-ok<' not in page and '1 compliant host(s)' in page and FILE + ':3:5' in page


def test_the_page_escapes_what_hosts_report():
    hostile = '<script>alert(1)</script>'
    report = build_report({hostile: dict(unreachable=True, msg='<img src="http://x/">')}, '<b>', 'now')
    page = render_html(report)
    assert '<script' not in page and '<img' not in page and '<b>' not in page
