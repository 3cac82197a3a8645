#!/usr/bin/python
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function
__metaclass__ = type

DOCUMENTATION = r'''
---
module: local_policy_info
short_description: Report the Quillnet client's effective local policy and what is wrong with its file
version_added: 1.0.0
description:
  - Reads the Quillnet VPN client's local policy file C(QuillnetLocalPolicy.xml) the way the client reads it
    (C(qnpolicy show --json)) and lints it (C(qnpolicy check --json)), so that a play can assert on a whole
    fleet, for example that FIPS mode is on everywhere or that no file has an error.
  - Never changes anything.
options:
  install_dir:
    description:
      - The client's main installation directory, which holds the policy file. A missing directory fails
        the task.
    type: path
    default: /opt/quillnet/
  ignore:
    description:
      - Finding kinds of C(qnpolicy check) to leave out, for example C(file-owner) where the file is
        deliberately not owned by root. C(qnpolicy check --help) lists the kinds.
    type: list
    elements: str
    default: []
  qnpolicy:
    description:
      - Path of the C(qnpolicy) tool on the managed host. By default it is searched for on C(PATH).
    type: path
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
  - Needs the C(qnpolicy) tool of the client on the managed host, in a version that prints C(formatVersion) 1.
seealso:
  - module: quillnet.localpolicy.local_policy
author:
  - Quillnet client team
'''

EXAMPLES = r'''
- name: Read the policy
  quillnet.localpolicy.local_policy_info:
  register: local_policy

- name: FIPS mode is on and the file has no error
  ansible.builtin.assert:
    that:
      - local_policy.policy.settings.FipsMode
      - local_policy.findings | selectattr('severity', 'equalto', 'error') | list | length == 0
    fail_msg: "{{ local_policy.path }} does not hold the fleet's policy"

- name: Audit files that are deliberately not owned by root
  quillnet.localpolicy.local_policy_info:
    install_dir: /home/tester/quillnet/
    ignore:
      - file-owner
'''

RETURN = r'''
path:
  description: The policy file that was read.
  returned: always
  type: str
  sample: /opt/quillnet/QuillnetLocalPolicy.xml
exists:
  description: Whether the policy file is present. Without it the client runs with its defaults.
  returned: always
  type: bool
  sample: true
loaded:
  description: Whether the client can load the file (a missing file loads as the defaults).
  returned: always
  type: bool
  sample: true
policy:
  description:
    - The effective policy as the client reads it, the object of C(qnpolicy show --json).
    - C(settings) holds one key per element of the vocabulary, for example C(FipsMode). When the file
      cannot be loaded, C(loaded) is false and C(error) says why, with its line and column.
  returned: always
  type: dict
  sample:
    formatVersion: 1
    loaded: true
    policyFile: /opt/quillnet/QuillnetLocalPolicy.xml
    exists: true
    version: 5.1.8.105
    fipsModeModifiedOnDisk: false
    excludeCertStoreMask: '0x00000000'
    settings:
      FipsMode: true
      AuthorizedServerList: [gw1.example.com]
findings:
  description:
    - Every place where the client will not do what the file seems to say, from C(qnpolicy check --json),
      each with C(kind), C(severity) (C(error) or C(warning)), C(line), C(column) and C(message). Empty when
      the file is absent.
  returned: always
  type: list
  elements: dict
  sample: [{kind: tunnel-value-not-applied, severity: error, line: 5, column: 5,
            message: "the client applies only false, ipsec and tls"}]
error:
  description:
    - Why C(qnpolicy check) could not read or parse the file, with C(message), C(line) and C(column),
      and C(consequence), what the client then holds (the defaults plus the settings read before the
      error, with FIPS mode off).
  returned: when the file is present but cannot be read or parsed
  type: dict
  sample:
    message: not well-formed (invalid token)
    line: 3
    column: 7
    consequence: >-
      The client then holds the defaults plus the settings read before the error, with FIPS mode off:
      a policy it cannot read restricts nothing, or only part of what it says.
'''

import os

from ansible.module_utils.basic import AnsibleModule
from ansible_collections.quillnet.localpolicy.plugins.module_utils.qnpolicy import (
    COMMON_ARGUMENT_SPEC, run_json, tool_path)

ARGUMENT_SPEC = dict(
    COMMON_ARGUMENT_SPEC,
    ignore=dict(type='list', elements='str', default=[]),
)

# Exit codes of show whose JSON the module reports: loaded, and not loaded.
SHOW_RCS = (0, 1)

# Exit codes of check whose JSON the module reports: clean, findings, unreadable.
CHECK_RCS = (0, 1, 2)


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, supports_check_mode=True)
    tool = tool_path(module)

    rc, policy = run_json(module, tool, 'show', [], SHOW_RCS)
    path = policy.get('policyFile')
    exists = policy.get('exists')
    if exists is None:
        # A file that fails to load is reported without "exists"; look for it directly.
        exists = os.path.lexists(path)
    outcome = dict(changed=False, path=path, exists=exists, loaded=rc == 0 and policy.get('loaded') is True,
                   policy=policy, findings=[])
    if outcome['exists']:
        arguments = []
        for kind in module.params['ignore']:
            arguments.extend(['--ignore', kind])
        rc, checked = run_json(module, tool, 'check', arguments, CHECK_RCS)
        for entry in checked.get('files', []):
            outcome['findings'].extend(entry.get('findings', []))
            if not entry.get('readable', True):
                outcome['error'] = entry.get('error')
    module.exit_json(**outcome)


if __name__ == '__main__':
    main()
