#!/usr/bin/python
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later

from __future__ import absolute_import, division, print_function
__metaclass__ = type

DOCUMENTATION = r'''
---
module: compliance_report
short_description: Write a fleet's local policy compliance report, as JSON and as one HTML page
version_added: 3.1.0
description:
  - Takes each host's result of M(quillnet.localpolicy.local_policy_info) run with C(baseline_content) and
    writes two files into C(dest) - C(compliance-report.json) and C(compliance-report.html), a self-contained
    page (no script, no external style, font or image) with the totals, a hosts-by-rules matrix and, for each
    host that is not compliant, the expected and actual value of each failing rule with the element it comes
    from.
  - Every host is in the report. A host that could not be judged (unreachable, without the client, without
    an install directory, with a policy file others can change, or one the client cannot parse) is counted
    as C(unreadable) and listed with the reason.
  - Meant to run once, on the controller (C(delegate_to) C(localhost), C(run_once)); the
    C(quillnet.localpolicy.compliance_report) role does that.
requirements:
  - Python 3 (3.6 or later) where it runs.
options:
  results:
    description:
      - Each host's registered result of M(quillnet.localpolicy.local_policy_info), by host name. An empty
        result stands for a host that has none (it left the play before it was judged).
    type: dict
    required: true
  dest:
    description:
      - The directory the two files are written into; it must exist.
    type: path
    required: true
  baseline_name:
    description:
      - The baseline's name, as the report's title shows it.
    type: str
    default: baseline
extends_documentation_fragment:
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: In check mode nothing is written; the result says what would be.
  diff_mode:
    support: none
  platform:
    platforms: posix
seealso:
  - module: quillnet.localpolicy.local_policy_info
author:
  - Quillnet client team
'''

EXAMPLES = r'''
- name: Judge each host
  quillnet.localpolicy.local_policy_info:
    baseline_content: "{{ lookup('ansible.builtin.file', 'baseline.yml') }}"
    host: "{{ inventory_hostname }}"
  register: judged
  ignore_unreachable: true
  failed_when: false

- name: The fleet's report, on the controller
  quillnet.localpolicy.compliance_report:
    results: "{{ dict(ansible_play_hosts_all | zip(ansible_play_hosts_all | map('extract', hostvars)
                 | map(attribute='judged', default={}))) }}"
    dest: /srv/reports
    baseline_name: baseline.yml
  delegate_to: localhost
  run_once: true
'''

RETURN = r'''
totals:
  description: How many hosts there are, and how many are compliant, not compliant and unreadable (not judged).
  returned: always
  type: dict
  sample: {hosts: 200, compliant: 190, not_compliant: 7, unreadable: 3}
not_compliant:
  description: The hosts that are not compliant, sorted.
  returned: always
  type: list
  elements: str
  sample: [web-0007, web-0042]
unreadable:
  description: The hosts that could not be judged, each with C(host), C(reason) and C(message).
  returned: always
  type: list
  elements: dict
  sample: [{host: web-0100, reason: no-qnpolicy, message: no qnpolicy on PATH (package qnpolicy)}]
json_path:
  description: The JSON report.
  returned: always
  type: str
  sample: /srv/reports/compliance-report.json
html_path:
  description: The HTML page.
  returned: always
  type: str
  sample: /srv/reports/compliance-report.html
'''

import datetime
import json
import os
import tempfile

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quillnet.localpolicy.plugins.module_utils.compliance_report import (
    NOT_COMPLIANT, UNREADABLE, build_report, render_html)

ARGUMENT_SPEC = dict(
    results=dict(type='dict', required=True),
    dest=dict(type='path', required=True),
    baseline_name=dict(type='str', default='baseline'),
)

JSON_NAME = 'compliance-report.json'
HTML_NAME = 'compliance-report.html'


def unchanged(path, report):
    """Whether the report at path says the same, whenever it was generated."""
    try:
        with open(path) as handle:
            old = json.load(handle)
    except (OSError, ValueError):
        return False
    return dict(old, generated='') == dict(report, generated='')


def store(module, path, text):
    """Writes text to path by renaming a complete file over it."""
    descriptor, temporary = tempfile.mkstemp(dir=os.path.dirname(path), prefix='.compliance-report.')
    with os.fdopen(descriptor, 'w') as handle:
        handle.write(text)
    os.chmod(temporary, 0o644)
    module.atomic_move(temporary, path)


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, supports_check_mode=True)
    dest = module.params['dest']
    if not os.path.isdir(dest):
        module.fail_json(msg='dest %s is not a directory' % dest)
    generated = datetime.datetime.utcnow().strftime('%Y-%m-%d %H:%M UTC')
    report = build_report(module.params['results'], module.params['baseline_name'], generated)
    json_path, html_path = os.path.join(dest, JSON_NAME), os.path.join(dest, HTML_NAME)
    changed = not (unchanged(json_path, report) and os.path.exists(html_path))
    if changed and not module.check_mode:
        store(module, json_path, json.dumps(report, indent=1, sort_keys=True) + '\n')
        store(module, html_path, render_html(report))
    module.exit_json(changed=changed, totals=report['totals'], json_path=json_path, html_path=html_path,
                     not_compliant=[entry['host'] for entry in report['hosts'] if entry['status'] == NOT_COMPLIANT],
                     unreadable=[dict(host=entry['host'], reason=entry['reason'], message=entry['message'])
                                 for entry in report['hosts'] if entry['status'] == UNREADABLE])


if __name__ == '__main__':
    main()
