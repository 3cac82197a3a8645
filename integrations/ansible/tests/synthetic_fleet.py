#!/usr/bin/python3
# SPDX-License-Identifier: GPL-3.0-or-later
"""Writes the compliance page of a synthetic fleet, for the report builder at scale.

    synthetic_fleet.py HOSTS PAGE HOST_LIST

HOSTS results shaped as local_policy_info returns them: one host in 20 not compliant (a
rule or two failing, a server list with a rogue server among them), one in 100 unreachable,
one in 200 without the client, one in 50 with a waived rule, the rest compliant. PAGE
receives the HTML, HOST_LIST the hosts the matrix must list (those not compliant or not
judged), one a line.
"""

import sys

from ansible_collections.quillnet.localpolicy.plugins.module_utils.compliance_report import (
    COMPLIANT, build_report, render_html)

RULES = ['FipsMode', 'StrictCertificateTrust', 'RestrictTunnelProtocols', 'AllowSoftwareUpdatesFromAnyServer',
         'AuthorizedServerList']
POLICY = '/opt/quillnet/QuillnetLocalPolicy.xml'


def verdict(rule, state, index):
    """One verdict as comply --json prints it."""
    entry = dict(rule=rule, state=state, severity='medium', comparison='equals', expected=[True], actual=True,
                 origin=dict(line=3 + RULES.index(rule), column=5))
    if rule == 'AuthorizedServerList':
        entry.update(comparison='subset_of', expected=['gw1.example.com', 'gw2.example.com'],
                     actual=['gw1.example.com'] if state != 'fail' else ['gw1.example.com', 'rogue%d.example.net' % index])
        if state == 'fail':
            entry['offending'] = [dict(value='rogue%d.example.net' % index, origin=dict(line=12, column=13),
                                       missing=False)]
    elif state == 'fail':
        entry.update(actual=False, origin=None)
    if state == 'waived':
        entry['waiver'] = dict(setting=rule, reason='lab machines, ticket SEC-142', expires='2099-12-31',
                               hosts=['lab-*'], line=14, column=5)
    return entry


def result(index):
    """The registered result of host number index."""
    if index % 100 == 0:
        return dict(unreachable=True, msg='Failed to connect to the host via ssh: Connection refused')
    if index % 200 == 1:
        return dict(changed=False, result='not-installed', exists=False, loaded=False, findings=[],
                    error=dict(kind='no-qnpolicy', message='no qnpolicy on PATH (package qnpolicy)'))
    states = dict((rule, 'pass') for rule in RULES)
    if index % 20 == 3:
        states[RULES[(index // 20) % 4]] = 'fail'
        states['AuthorizedServerList'] = 'fail'
    elif index % 50 == 7:
        states['StrictCertificateTrust'] = 'waived'
    verdicts = [dict(rule='file-safety', state='pass', severity='high', actual='safe', origin=None, findings=[])]
    verdicts.extend(verdict(rule, states[rule], index) for rule in RULES)
    compliant = 'fail' not in states.values()
    return dict(changed=False, compliance=dict(result='compliant' if compliant else 'not-compliant',
                                               compliant=compliant, file=POLICY, verdicts=verdicts,
                                               expiringWaivers=[]))


def main():
    count, page, host_list = int(sys.argv[1]), sys.argv[2], sys.argv[3]
    results = dict(('host-%05d' % index, result(index)) for index in range(1, count + 1))
    report = build_report(results, 'baseline.yml', 'synthetic')
    with open(page, 'w') as handle:
        handle.write(render_html(report))
    with open(host_list, 'w') as handle:
        handle.writelines(entry['host'] + '\n' for entry in report['hosts'] if entry['status'] != COMPLIANT)
    print('%d hosts: %r' % (count, report['totals']))


if __name__ == '__main__':
    main()
