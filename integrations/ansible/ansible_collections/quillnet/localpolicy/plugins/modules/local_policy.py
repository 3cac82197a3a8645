#!/usr/bin/python
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function
__metaclass__ = type

DOCUMENTATION = r'''
---
module: local_policy
short_description: Deploy or remove the Quillnet client's local policy file
version_added: 1.0.0
description:
  - Writes the Quillnet VPN client's local policy file C(QuillnetLocalPolicy.xml) in the client's main
    installation directory with exactly the given settings, or removes it.
  - The client's C(qnpolicy) tool renders the document (C(qnpolicy generate --dry-run --json)) and compares
    it with the file on disk. The task reports a change only when the bytes differ; only then is the file
    written, by C(qnpolicy generate --overwrite).
  - Settings the tool refuses fail the task with every problem the tool reported, and the file on disk stays
    as it was. The abbreviations and their values are checked by the tool, never by this module.
  - After the run the module reads the effective policy back with C(qnpolicy show --json), as the client
    reads it.
options:
  settings:
    description:
      - 'The settings to write, a dictionary from installer abbreviation to value, for example
        C({fm: true, sct: true, upal: [gw1.example.com, gw2.example.com]}). C(qnpolicy vocabulary) lists
        the 29 abbreviations and the values each accepts.'
      - A boolean is passed as C(true) or C(false). A list is joined with commas, the form the server list
        C(upal) and the caching options C(rpc) take; its items may not contain a comma themselves. A string
        or an integer is passed as it is.
      - Settings not named here are left out of the file, so the client applies its defaults to them.
      - Required when I(state=present).
    type: dict
  install_dir:
    description:
      - The client's main installation directory, which holds the policy file. It must exist.
    type: path
    default: /opt/quillnet/
  state:
    description:
      - C(present) makes the policy file hold exactly I(settings).
      - C(absent) removes the policy file; a missing file or a missing I(install_dir) is no change.
    type: str
    choices: [present, absent]
    default: present
  lenient:
    description:
      - Write the usable settings and warn about the others (C(qnpolicy generate --lenient)), instead of
        failing the task when any setting is unusable.
      - Leave this off for a fleet. A lenient run can leave a security setting at its default without failing.
    type: bool
    default: false
  qnpolicy:
    description:
      - Path of the C(qnpolicy) tool on the managed host. By default it is searched for on C(PATH).
    type: path
extends_documentation_fragment:
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
  diff_mode:
    support: full
  platform:
    platforms: posix
notes:
  - Needs the C(qnpolicy) tool of the client on the managed host, in a version that prints C(formatVersion) 1.
  - In check mode the task reports what a run would change and writes nothing; I(policy) is then the policy
    in force now.
seealso:
  - module: quillnet.localpolicy.local_policy_info
author:
  - Quillnet client team
'''

EXAMPLES = r'''
- name: FIPS mode, strict certificate trust, no cached credentials and two authorized gateways
  quillnet.localpolicy.local_policy:
    settings:
      fm: true
      sct: true
      rpc: [Credentials, Thumbprints]
      upsu: false
      upal:
        - gw1.example.com
        - gw2.example.com

- name: A client installed elsewhere, with the tool outside PATH
  quillnet.localpolicy.local_policy:
    install_dir: /srv/quillnet/
    qnpolicy: /srv/quillnet/bin/qnpolicy
    settings:
      fm: true

- name: Remove the policy file, so the client runs with its defaults
  quillnet.localpolicy.local_policy:
    state: absent
'''

RETURN = r'''
path:
  description: The policy file the task wrote, checked or removed.
  returned: unless I(state=absent) found no I(install_dir)
  type: str
  sample: /opt/quillnet/QuillnetLocalPolicy.xml
result:
  description:
    - What the task did to the file, or in check mode what it would do.
    - C(written) the file was written; C(unchanged) it already held the same bytes; C(removed) it was removed;
      C(absent) there was no file to remove.
  returned: always
  type: str
  sample: written
policy:
  description:
    - The effective policy as the client reads it after the run, the object of C(qnpolicy show --json).
    - C(settings) holds one key per element of the vocabulary. When the file cannot be loaded, C(loaded) is
      false and C(error) says why.
  returned: unless I(state=absent) found no I(install_dir)
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
      StrictCertificateTrust: true
      AuthorizedServerList: [gw1.example.com, gw2.example.com]
skipped:
  description:
    - The settings C(qnpolicy generate) did not use, each with C(argument), C(kind) and C(message). Only a
      lenient run can succeed with skipped settings; each is also reported as a warning.
  returned: when I(state=present)
  type: list
  elements: dict
  sample: [{argument: fmm=true, kind: unknown-abbreviation, message: "unknown abbreviation fmm"}]
findings:
  description:
    - What C(qnpolicy generate) found in the rendered document, each with C(argument), C(kind), C(severity),
      C(line), C(column) and C(message); each is also reported as a warning.
  returned: when I(state=present)
  type: list
  elements: dict
  sample: []
'''

import os

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.text.converters import to_native, to_text
from ansible_collections.quillnet.localpolicy.plugins.module_utils.qnpolicy import (
    COMMON_ARGUMENT_SPEC, run_json, tool_path)

ARGUMENT_SPEC = dict(
    COMMON_ARGUMENT_SPEC,
    settings=dict(type='dict'),
    state=dict(type='str', choices=['present', 'absent'], default='present'),
    lenient=dict(type='bool', default=False),
)

# Exit codes of generate whose JSON the module interprets: success, refused data,
# and a write whose result is not durable.
GENERATE_RCS = (0, 65, 74)

# Exit codes of show whose JSON the module interprets: loaded, and not loaded.
SHOW_RCS = (0, 1)


def setting_text(value):
    """The text of one setting value, or None for a type that has no text form."""
    if isinstance(value, bool):
        return 'true' if value else 'false'
    if isinstance(value, (str, int)):
        return str(value)
    return None


def installer_arguments(settings):
    """Returns (arguments, problems): one ABBREV=VALUE per setting, and what is wrong.

    Only what this module itself would garble is refused here: a key the tool would
    read as an option or split differently, and a value with no text form. Whether
    an abbreviation exists and takes the value is the tool's decision.
    """
    arguments = []
    problems = []
    for key, value in settings.items():
        if not key or '=' in key or key.startswith('-'):
            problems.append('%r is not an installer abbreviation' % key)
            continue
        if isinstance(value, list):
            items = [setting_text(item) for item in value]
            if None in items:
                problems.append('%s: a list may hold only strings, integers and booleans' % key)
                continue
            if any(',' in item for item in items):
                problems.append('%s: a list item contains a comma, so joining the list would split it' % key)
                continue
            text = ','.join(items)
        else:
            text = setting_text(value)
            if text is None:
                problems.append('%s: a value must be a string, an integer, a boolean or a list of them, not %s'
                                % (key, 'nothing' if value is None else type(value).__name__))
                continue
        arguments.append('%s=%s' % (key, text))
    return arguments, problems


def tool_problems(result):
    """Every problem a generate result carries, as one line each."""
    problems = ['%s: %s' % (item.get('argument'), item.get('message')) for item in result.get('skipped', [])]
    for finding in result.get('findings', []):
        problems.append('%s: %s %s' % (finding.get('argument') or 'document', finding.get('severity'),
                                       finding.get('message')))
    return problems


def read_text(module, path):
    """The text of the file at path, or an empty text when there is none."""
    try:
        with open(path, 'rb') as handle:
            return to_text(handle.read(), errors='surrogate_or_replace')
    except FileNotFoundError:
        return ''
    except OSError as error:
        module.fail_json(msg='cannot read %s: %s' % (path, to_native(error)))


def generate(module, tool, arguments, outcome):
    """Runs generate with arguments and fails the task unless the tool used every setting it had to."""
    rc, result = run_json(module, tool, 'generate', arguments, GENERATE_RCS)
    outcome.update(path=result.get('path'), skipped=result.get('skipped', []),
                   findings=result.get('findings', []))
    if result.get('result') == 'refused':
        module.fail_json(msg='qnpolicy refused the settings and left the policy file as it was: %s'
                         % '; '.join(tool_problems(result)), **outcome)
    if result.get('result') == 'not-synced':
        outcome['changed'] = True
        module.fail_json(msg='qnpolicy replaced %s but could not make the change durable (directory sync failed)'
                         % result.get('path'), **outcome)
    if rc != 0 or result.get('result') not in ('written', 'unchanged'):
        module.fail_json(msg='qnpolicy generate ended with exit code %d and result %r'
                         % (rc, result.get('result')), **outcome)
    return result


def ensure_present(module, tool, outcome):
    arguments, problems = installer_arguments(module.params['settings'])
    if problems:
        module.fail_json(msg='invalid settings: %s' % '; '.join(problems), **outcome)
    arguments.insert(0, '--overwrite')
    if module.params['lenient']:
        arguments.insert(0, '--lenient')

    planned = generate(module, tool, ['--dry-run'] + arguments, outcome)
    for problem in tool_problems(planned):
        module.warn(problem)
    outcome['result'] = planned['result']
    if planned['result'] == 'unchanged':
        return
    if module._diff:
        outcome['diff'] = dict(before_header=outcome['path'], after_header=outcome['path'],
                               before=read_text(module, outcome['path']), after=planned.get('document', ''))
    outcome['changed'] = True
    if module.check_mode:
        return
    # The file may have changed since the dry run: the write's own result is what happened.
    done = generate(module, tool, arguments, outcome)
    outcome['result'] = done['result']
    outcome['changed'] = done['result'] == 'written'


def ensure_absent(module, tool, outcome):
    if not os.path.isdir(module.params['install_dir']):
        # No client installed here: there is no file and no policy to read back.
        module.exit_json(result='absent', **outcome)
    rc, shown = run_json(module, tool, 'show', [], SHOW_RCS)
    path = outcome['path'] = shown.get('policyFile')
    if not path or not os.path.lexists(path):
        outcome['result'] = 'absent'
        return
    if module._diff:
        outcome['diff'] = dict(before_header=path, after_header=path, before=read_text(module, path), after='')
    outcome.update(changed=True, result='removed')
    if module.check_mode:
        return
    try:
        os.unlink(path)
    except OSError as error:
        module.fail_json(msg='cannot remove %s: %s' % (path, to_native(error)), path=path)


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, required_if=[('state', 'present', ('settings',))],
                           supports_check_mode=True)
    tool = tool_path(module)
    outcome = dict(changed=False)
    if module.params['state'] == 'present':
        ensure_present(module, tool, outcome)
    else:
        ensure_absent(module, tool, outcome)

    rc, outcome['policy'] = run_json(module, tool, 'show', [], SHOW_RCS)
    if rc != 0 and outcome['changed'] and not module.check_mode:
        module.fail_json(msg='the client cannot load %s after the change: %s'
                         % (outcome['path'], outcome['policy'].get('error', {}).get('message')), **outcome)
    module.exit_json(**outcome)


if __name__ == '__main__':
    main()
