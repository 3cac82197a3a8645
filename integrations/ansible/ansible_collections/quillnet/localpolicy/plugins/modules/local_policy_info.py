#!/usr/bin/python
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later

from __future__ import absolute_import, division, print_function
__metaclass__ = type

DOCUMENTATION = r'''
---
module: local_policy_info
short_description: Report the Quillnet client's effective local policy, what is wrong with its file, and its verdicts against a baseline
version_added: 1.0.0
description:
  - Reads the Quillnet VPN client's local policy file C(QuillnetLocalPolicy.xml) the way the client reads it
    (C(qnpolicy show --json)) and lints it (C(qnpolicy check --json)), so that a play can assert on a whole
    fleet, for example that FIPS mode is on everywhere or that no file has an error.
  - Returns where each value comes from as well (C(qnpolicy show --origin --json)), the element that decided
    it or the default.
  - With C(baseline_content), also judges the policy against that baseline (C(qnpolicy comply --json)), each
    rule's verdict with the expected value, the actual value and the element it comes from. The baseline's text
    goes to the tool on standard input, so nothing is copied to the host.
  - Never changes anything.
requirements:
  - Python 3 (3.6 or later) on the managed host.
  - The client's C(qnpolicy) tool on the managed host, in a version that prints C(formatVersion) 1. It is
    installed by the Debian package C(qnpolicy) and by the RPM package C(qnpolicy).
options:
  install_dir:
    description:
      - The client's main installation directory, which holds the policy file. Where it does not exist, or
        C(qnpolicy) is not installed, the client is not installed; I(result) is then C(not-installed), which is
        not a failure.
    type: path
    default: /opt/quillnet/
  ignore:
    description:
      - Finding kinds of C(qnpolicy check) to leave out, for example C(file-owner) where the file is
        deliberately not owned by root. C(qnpolicy check --help) lists the kinds.
    type: list
    elements: str
    default: []
  descriptions:
    description:
      - Return the one-sentence description of each setting in I(policy.descriptions).
    type: bool
    default: false
    version_added: 3.0.0
  qnpolicy:
    description:
      - Path of the C(qnpolicy) tool on the managed host. By default it is searched for on C(PATH).
    type: path
  baseline_content:
    description:
      - The text of a baseline (YAML, see C(man 5 qnpolicy-baseline)) to judge the policy against. A
        malformed baseline fails the task with the tool's message, which names its line and column.
    type: str
    version_added: 3.1.0
  host:
    description:
      - The host name that decides which of the baseline's waivers apply (their C(hosts) patterns). By default
        the managed host's own name. Only with C(baseline_content).
    type: str
    version_added: 3.1.0
extends_documentation_fragment:
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: The module changes nothing, so it runs the same in check mode.
  diff_mode:
    support: none
  platform:
    platforms: posix
notes:
  - The C(qnpolicy) tool must be installed on every managed host (package C(qnpolicy), Debian or RPM).
seealso:
  - module: quillnet.localpolicy.local_policy
author:
  - Quillnet client team
'''

EXAMPLES = r'''
- name: Read the policy
  quillnet.localpolicy.local_policy_info:
  register: local_policy

- name: The client is installed
  ansible.builtin.assert:
    that: local_policy.result != 'not-installed'
    fail_msg: "{{ local_policy.error.message | default('') }}"

- name: FIPS mode is on and the file has no error
  ansible.builtin.assert:
    that:
      - local_policy.policy.settings.FipsMode
      - local_policy.findings | selectattr('severity', 'equalto', 'error') | list | length == 0
    fail_msg: "{{ local_policy.policy_file }} does not hold the fleet's policy"

- name: Judge the policy against the fleet's baseline
  quillnet.localpolicy.local_policy_info:
    baseline_content: "{{ lookup('ansible.builtin.file', 'baseline.yml') }}"
    host: "{{ inventory_hostname }}"
  register: judged

- name: The policy meets the baseline
  ansible.builtin.assert:
    that: judged.compliance.compliant
    fail_msg: "{{ judged.compliance.verdicts | selectattr('state', 'equalto', 'fail') | map(attribute='rule') | list }}"

- name: Audit files that are deliberately not owned by root
  quillnet.localpolicy.local_policy_info:
    install_dir: /home/tester/quillnet/
    ignore:
      - file-owner
'''

RETURN = r'''
policy_file:
  description: The policy file that was read.
  returned: unless I(result=not-installed)
  type: str
  sample: /opt/quillnet/QuillnetLocalPolicy.xml
exists:
  description: Whether the policy file is present. Without it the client runs with its defaults.
  returned: always
  type: bool
  sample: true
result:
  description:
    - What C(qnpolicy check) found, its C(result) - C(clean) nothing, C(findings) see I(findings),
      C(unreadable) the file cannot be read or parsed (see I(error)), C(no-such-file) there is no file and
      the client runs with its defaults.
    - C(not-installed) when the client is not installed on the host (no I(install_dir), or no C(qnpolicy));
      I(error) says which.
  returned: always
  type: str
  sample: clean
loaded:
  description: Whether the client can load the file (a missing file loads as the defaults).
  returned: always
  type: bool
  sample: true
policy:
  description:
    - The effective policy as the client reads it, the object of C(qnpolicy show --json).
    - C(result) is C(loaded), or C(defaults) when there is no file. C(settings) holds one key per element of
      the vocabulary, for example C(FipsMode); C(RestrictPreferenceCaching) is what is restricted (for example
      C(Credentials,Thumbprints), or C(none)) and C(cachingOptions) the entries as written. When the file
      cannot be loaded, C(loaded) is false and C(error) says why, with its C(kind), line and column.
      C(descriptions) only with I(descriptions=true).
  returned: unless I(result=not-installed)
  type: dict
  sample:
    formatVersion: 1
    result: loaded
    loaded: true
    policyFile: /opt/quillnet/QuillnetLocalPolicy.xml
    exists: true
    version: 5.1.8.105
    fipsModeModifiedOnDisk: false
    excludeCertStoreMask: '0x00000000'
    cachingOptions: ['false']
    settings:
      FipsMode: true
      RestrictPreferenceCaching: none
      RestrictTunnelProtocols: 'false'
      AuthorizedServerList: [gw1.example.com]
origins:
  description:
    - Where each setting's value comes from, the C(settings) of C(qnpolicy show --origin --json) - for each
      setting its C(value), C(origin) (the C(line) and C(column) of the element that decided it, or null for
      the default), C(takesEffect) and every contributing element.
  returned: when the client is installed
  type: dict
  version_added: 3.1.0
  sample:
    StrictCertificateTrust:
      value: true
      origin: null
      takesEffect: next-load
      contributors:
        - {element: RestrictServerCertStore, line: 4, column: 5, text: 'true', contribution: forces}
findings:
  description:
    - Every place where the client will not do what the file seems to say, and every part of its path that
      others could change, from C(qnpolicy check --json), each with C(kind), C(severity) (C(error) or
      C(warning)), C(line), C(column) and C(message). Empty when the file is absent.
  returned: always
  type: list
  elements: dict
  sample: [{kind: tunnel-value-not-applied, severity: error, line: 5, column: 5,
            message: "the client applies only false, ipsec and tls"}]
compliance:
  description:
    - The verdicts against C(baseline_content), from C(qnpolicy comply --json). C(result) is C(compliant),
      C(not-compliant) or C(unreadable) (a file that cannot be parsed is never compliant); C(compliant) is true
      when every rule passes or is waived; C(verdicts) lists each rule, C(file-safety) (the audit of who can
      change the file) first, with C(state) (C(pass), C(fail) or C(waived)), C(severity), C(expected),
      C(actual), C(origin) (the line and column of the element that decided the value, null for the default)
      and, when waived, the C(waiver); C(expiringWaivers) the waivers of this host that end within 14 days.
  returned: when C(baseline_content) is given, unless I(result=not-installed)
  type: dict
  sample:
    result: not-compliant
    compliant: false
    baseline: <stdin>
    host: web-7
    file: /opt/quillnet/QuillnetLocalPolicy.xml
    verdicts:
      - {rule: file-safety, state: pass, severity: high, actual: safe, origin: null, findings: []}
      - {rule: FipsMode, state: fail, severity: high, comparison: equals, expected: [true], actual: false,
         origin: {line: 3, column: 5}}
    expiringWaivers: []
error:
  description:
    - Why C(qnpolicy check) could not read or parse the file, with C(kind), C(message), C(line) and
      C(column), and C(consequence), what the client then holds (the defaults plus the settings
      read before the error, with FIPS mode off).
    - Where the client is not installed, C(kind) (C(no-such-directory), or C(no-qnpolicy)) and C(message).
  returned: when the file is present but cannot be read or parsed, and when I(result=not-installed)
  type: dict
  sample:
    kind: unreadable
    message: not well-formed (invalid token)
    line: 3
    column: 7
    consequence: >-
      The client then holds the defaults plus the settings read before the error, with FIPS mode off:
      a policy it cannot read restricts nothing, or only part of what it says.
tool_run:
  description:
    - The C(qnpolicy) run whose output failed the task, with C(cmd) (a list), C(rc), C(stdout) and C(stderr).
  returned: on failure of a C(qnpolicy) run
  type: dict
  sample: {cmd: [/usr/bin/qnpolicy, check, --install-dir, /opt/quillnet/, --json], rc: 70, stdout: '', stderr: ''}
'''

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quillnet.localpolicy.plugins.module_utils.qnpolicy import (
    COMMON_ARGUMENT_SPEC, NOT_INSTALLED_KIND, missing_tool_message, not_installed, run_json, shown_policy,
    tool_path)

ARGUMENT_SPEC = dict(
    COMMON_ARGUMENT_SPEC,
    ignore=dict(type='list', elements='str', default=[]),
    baseline_content=dict(type='str'),
    host=dict(type='str'),
)

# Exit codes of show whose JSON the module reports: loaded (or the defaults), a file that
# cannot be loaded, and no install directory (an error object of its own kind).
SHOW_RCS = (0, 2, 66)

# Exit codes of check whose JSON the module reports: clean, findings, unreadable, and no
# such file.
CHECK_RCS = (0, 1, 2, 66)

# Exit codes of comply whose JSON the module reports: compliant, not compliant, and a file that
# cannot be parsed (a malformed baseline, 65, fails the task with the tool's message).
COMPLY_RCS = (0, 1, 2)


def judge(module, tool, outcome):
    """The verdicts of `qnpolicy comply` for the install directory's file, the baseline on standard input."""
    arguments = ['--baseline', '-']
    if module.params['host']:
        arguments.extend(['--host', module.params['host']])
    dummy, judged = run_json(module, tool, 'comply', arguments, COMPLY_RCS,
                             data=module.params['baseline_content'], failure=outcome)
    entry = (judged.get('files') or [{}])[0]
    compliance = dict(result=judged.get('result'), compliant=entry.get('compliant', False),
                      baseline=judged.get('baseline'), host=judged.get('host'), file=entry.get('file'),
                      verdicts=entry.get('verdicts', []), expiringWaivers=entry.get('expiringWaivers', []))
    if 'error' in entry:
        compliance['error'] = entry['error']
    for waiver in compliance['expiringWaivers']:
        module.warn('the waiver of %s (%s) holds until %s and no longer'
                    % (waiver['setting'], waiver['reason'], waiver['expires']))
    return compliance


def report_not_installed(module, error):
    """Ends the task: the client is not installed here, which an audit reports, not a failure."""
    module.exit_json(changed=False, result='not-installed', exists=False, loaded=False, findings=[], error=error)


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, supports_check_mode=True)
    tool = tool_path(module)
    if tool is None:
        report_not_installed(module, dict(kind='no-qnpolicy', message=missing_tool_message(module)))

    rc, policy = run_json(module, tool, 'show', [], SHOW_RCS, error_kinds=('unreadable', NOT_INSTALLED_KIND))
    if not_installed(policy):
        report_not_installed(module, policy['error'])
    outcome = dict(changed=False, policy_file=policy.get('policyFile'), exists=policy.get('exists'),
                   loaded=rc == 0 and policy.get('loaded') is True, policy=shown_policy(module, policy), findings=[])
    dummy, origins = run_json(module, tool, 'show', ['--origin'], SHOW_RCS, error_kinds=('unreadable',),
                              failure=outcome)
    outcome['origins'] = origins.get('settings', {})
    arguments = []
    for kind in module.params['ignore']:
        arguments.extend(['--ignore', kind])
    dummy, checked = run_json(module, tool, 'check', arguments, CHECK_RCS, failure=outcome)
    outcome['result'] = checked.get('result')
    for entry in checked.get('files', []):
        outcome['findings'].extend(entry.get('findings', []))
        if not entry.get('readable', True) and checked.get('result') != 'no-such-file':
            outcome['error'] = entry.get('error')
    if outcome['exists'] is None:
        # A file show cannot load is reported without "exists": check read it, or found none.
        outcome['exists'] = checked.get('result') != 'no-such-file'
    if module.params['baseline_content'] is not None:
        outcome['compliance'] = judge(module, tool, outcome)
    module.exit_json(**outcome)


if __name__ == '__main__':
    main()
