#!/usr/bin/python
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later

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
    it with the file on disk. The task reports a change when the bytes differ, and when the file already holds
    the document but its owner or mode let others change it (result C(repaired)); only then does
    C(qnpolicy generate --overwrite) write the file, or repair its owner and mode. Either way the file is left
    owned by the user the module runs as (root with C(become)), with mode C(0644).
  - Settings the tool refuses fail the task with every problem the tool reported, and the file on disk stays
    as it was. The abbreviations and their values are checked by the tool, never by this module.
  - A directory that C(qnpolicy check) would flag, one writable by its group or by others without the sticky
    bit, or owned by neither root nor the user the module runs as, from the install directory up to C(/),
    fails the task with the tool's message and nothing is written, unless I(allow_unsafe_directory=true).
  - After the run the module reads the effective policy back with C(qnpolicy show --json), as the client
    reads it. In check mode it returns the policy that would be in force after the run instead.
requirements:
  - Python 3 (3.6 or later) on the managed host.
  - The client's C(qnpolicy) tool on the managed host, in a version that prints C(formatVersion) 1 and knows
    C(--all-defaults) and C(--allow-unsafe-directory). It is installed by the Debian package C(qnpolicy) and
    by the RPM package C(qnpolicy).
options:
  settings:
    description:
      - 'The settings to write, a dictionary from installer abbreviation to value, for example
        C({fm: true, sct: true, upal: [gw1.example.com, gw2.example.com]}). C(qnpolicy vocabulary) lists
        every abbreviation and the values each accepts.'
      - A boolean is passed as C(true) or C(false). A list is joined with commas, the form the server list
        C(upal) and the caching options C(rpc) take; its items may not contain a comma themselves. A string
        or an integer is passed as it is.
      - 'The tunnel restriction is C(rtp: tls) or C(rtp: ipsec) (C(rtp: false) lifts it). The tool writes the
        value as the client applies it, C(tls) or C(ipsec), in whatever case it is given: C(rtp: IPSec) writes
        C(ipsec).'
      - Settings not named here are left out of the file, so the client applies its defaults to them.
      - 'An empty dictionary, C(settings: {}), writes a policy file that sets nothing
        (C(qnpolicy generate --all-defaults)): the client runs with its defaults, and the file says so.'
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
  allow_unsafe_directory:
    description:
      - Write the file even into a directory that others could change (C(qnpolicy generate
        --allow-unsafe-directory)). Without it such a directory fails the task with the tool's message, which
        names the directory and the command that makes it safe, and nothing is written.
      - Anyone who can write to such a directory can replace the policy file after the run; fix the directory
        instead where you can.
    type: bool
    default: false
    version_added: 2.0.0
  qnpolicy:
    description:
      - Path of the C(qnpolicy) tool on the managed host. By default it is searched for on C(PATH).
    type: path
extends_documentation_fragment:
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: Writes nothing; I(result), I(diff) and I(policy) say what a run would do and leave in force.
  diff_mode:
    support: full
    details: The old and the new document; for a repaired file, its old and new owner and mode.
  platform:
    platforms: posix
notes:
  - The C(qnpolicy) tool must be installed on every managed host (package C(qnpolicy), Debian or RPM).
  - In check mode I(policy) is the policy that would be in force after the run, as the client would read it
    (C(qnpolicy show --json -) of the document that would be written, or the defaults where the file would be
    removed), with C(policyFile) naming the policy file.
  - An install directory the tool refuses as unsafe fails the task in check mode as well.
seealso:
  - module: quillnet.localpolicy.local_policy_info
author:
  - Quillnet client team
'''

EXAMPLES = r'''
- name: FIPS mode, strict certificate trust, TLS tunnels only, no cached credentials and two authorized gateways
  quillnet.localpolicy.local_policy:
    settings:
      fm: true
      sct: true
      rtp: tls
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

- name: A policy file that sets nothing, so the client runs with its defaults
  quillnet.localpolicy.local_policy:
    settings: {}

- name: A test machine whose install directory is writable by a group, knowingly
  quillnet.localpolicy.local_policy:
    install_dir: /home/tester/quillnet/
    allow_unsafe_directory: true
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
    - C(written) the file was written; C(unchanged) it already held the same bytes, with a safe owner and
      mode; C(repaired) it held the same bytes but its owner or mode were wrong and were repaired (see
      I(repaired)); C(removed) it was removed; C(absent) there was no file to remove.
    - C(written), C(repaired) and C(removed) are changes.
  returned: always
  type: str
  sample: written
policy:
  description:
    - The effective policy as the client reads it after the run, the object of C(qnpolicy show --json); in
      check mode the policy that would be in force after the run.
    - C(result) is C(loaded), or C(defaults) when there is no file. C(settings) holds one key per element of
      the vocabulary; C(RestrictPreferenceCaching) is what is restricted (for example
      C(Credentials,Thumbprints), or C(none)) and C(cachingOptions) the entries as written. When the file
      cannot be loaded, C(loaded) is false and C(error) says why.
  returned: unless I(state=absent) found no I(install_dir)
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
    cachingOptions: ['false', Credentials, Thumbprints]
    settings:
      FipsMode: true
      StrictCertificateTrust: true
      RestrictPreferenceCaching: Credentials,Thumbprints
      RestrictTunnelProtocols: tls
      AuthorizedServerList: [gw1.example.com, gw2.example.com]
repaired:
  description:
    - What was wrong with a file that already held the document, or in check mode what would be repaired,
      each with C(attribute) (C(owner) or C(mode)), C(was) and C(now).
  returned: when I(state=present)
  type: list
  elements: dict
  sample: [{attribute: owner, was: '65534', now: '0'}, {attribute: mode, was: '0666', now: '0644'}]
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
    COMMON_ARGUMENT_SPEC, run_json, tool_message, tool_path)

ARGUMENT_SPEC = dict(
    COMMON_ARGUMENT_SPEC,
    settings=dict(type='dict'),
    state=dict(type='str', choices=['present', 'absent'], default='present'),
    lenient=dict(type='bool', default=False),
    allow_unsafe_directory=dict(type='bool', default=False),
)

# Exit codes of generate whose JSON the module interprets: success, refused data, a file
# that could not be written, and a write whose result is not durable.
GENERATE_RCS = (0, 65, 73, 74)

# The results of generate that leave the file holding the document.
DONE_RESULTS = ('written', 'unchanged', 'repaired')

# The results of generate that are a change.
CHANGED_RESULTS = ('written', 'repaired')

# Exit codes of show whose JSON the module interprets: loaded (or the defaults), and a
# file that cannot be loaded.
SHOW_RCS = (0, 2)

# The error of show that is a policy the module reports (not loaded) rather than a failure.
SHOW_ERROR_KINDS = ('unreadable',)


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
    an abbreviation exists and takes the value is the tool's decision. No settings
    at all is the document that sets nothing.
    """
    if not settings:
        return ['--all-defaults'], []
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


def attributes_text(repaired, key):
    """The owner and mode of a repaired file, before (key 'was') or after (key 'now'), one line each."""
    return ''.join('%s: %s\n' % (item.get('attribute'), item.get(key)) for item in repaired)


def generate(module, tool, arguments, outcome):
    """Runs generate with arguments and fails the task unless the file holds, or would hold, the document."""
    rc, result = run_json(module, tool, 'generate', arguments, GENERATE_RCS)
    outcome.update(path=result.get('path'), skipped=result.get('skipped', []),
                   findings=result.get('findings', []), repaired=result.get('repaired', []))
    if result.get('result') == 'refused':
        module.fail_json(msg='qnpolicy refused the settings and left the policy file as it was: %s'
                         % '; '.join(tool_problems(result)), **outcome)
    if result.get('result') == 'not-synced':
        outcome['changed'] = True
        module.fail_json(msg='qnpolicy replaced %s but could not make the change durable (directory sync failed)'
                         % result.get('path'), **outcome)
    if result.get('result') == 'failed':
        module.fail_json(msg=tool_message('generate', result.get('error') or {}), error=result.get('error'),
                         **outcome)
    if rc != 0 or result.get('result') not in DONE_RESULTS:
        module.fail_json(msg='qnpolicy generate ended with exit code %d and result %r'
                         % (rc, result.get('result')), **outcome)
    return result


def ensure_present(module, tool, outcome):
    """Makes the file hold the settings; returns the document it holds, or would hold in check mode."""
    arguments, problems = installer_arguments(module.params['settings'])
    if problems:
        module.fail_json(msg='invalid settings: %s' % '; '.join(problems), **outcome)
    arguments.insert(0, '--overwrite')
    if module.params['lenient']:
        arguments.insert(0, '--lenient')
    if module.params['allow_unsafe_directory']:
        arguments.insert(0, '--allow-unsafe-directory')

    planned = generate(module, tool, ['--dry-run'] + arguments, outcome)
    for problem in tool_problems(planned):
        module.warn(problem)
    outcome['result'] = planned['result']
    document = planned.get('document', '')
    if planned['result'] == 'unchanged':
        return document
    path = outcome['path']
    if module._diff and planned['result'] == 'repaired':
        header = '%s (owner and mode)' % path
        outcome['diff'] = dict(before_header=header, after_header=header,
                               before=attributes_text(outcome['repaired'], 'was'),
                               after=attributes_text(outcome['repaired'], 'now'))
    elif module._diff:
        outcome['diff'] = dict(before_header=path, after_header=path, before=read_text(module, path), after=document)
    outcome['changed'] = True
    if module.check_mode:
        return document
    # The file may have changed since the dry run: the write's own result is what happened.
    done = generate(module, tool, arguments, outcome)
    outcome['result'] = done['result']
    outcome['changed'] = done['result'] in CHANGED_RESULTS
    return document


def ensure_absent(module, tool, outcome):
    """Removes the file; returns None, the document of no file."""
    if not os.path.isdir(module.params['install_dir']):
        # No client installed here: there is no file and no policy to read back.
        module.exit_json(result='absent', **outcome)
    dummy, shown = run_json(module, tool, 'show', [], SHOW_RCS, error_kinds=SHOW_ERROR_KINDS)
    path = outcome['path'] = shown.get('policyFile')
    if not path or not os.path.lexists(path):
        outcome['result'] = 'absent'
        return None
    if module._diff:
        outcome['diff'] = dict(before_header=path, after_header=path, before=read_text(module, path), after='')
    outcome.update(changed=True, result='removed')
    if module.check_mode:
        return None
    try:
        os.unlink(path)
    except OSError as error:
        module.fail_json(msg='cannot remove %s: %s' % (path, to_native(error)), path=path)
    return None


def would_be_policy(module, tool, document, path):
    """The policy the client would read after the run: of document, or of no file when it is None.

    The tool reads the document from standard input, or an empty directory of the
    module's own for no file; either way policyFile then names the policy file the
    policy would come from.
    """
    if document is None:
        dummy, policy = run_json(module, tool, 'show', [], SHOW_RCS, error_kinds=SHOW_ERROR_KINDS,
                                 install_dir=module.tmpdir)
    else:
        dummy, policy = run_json(module, tool, 'show', ['-'], SHOW_RCS, error_kinds=SHOW_ERROR_KINDS,
                                 data=document)
    policy['policyFile'] = path
    return policy


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, required_if=[('state', 'present', ('settings',))],
                           supports_check_mode=True)
    tool = tool_path(module)
    outcome = dict(changed=False)
    if module.params['state'] == 'present':
        document = ensure_present(module, tool, outcome)
    else:
        document = ensure_absent(module, tool, outcome)

    if module.check_mode and outcome['changed']:
        outcome['policy'] = would_be_policy(module, tool, document, outcome['path'])
        module.exit_json(**outcome)
    rc, outcome['policy'] = run_json(module, tool, 'show', [], SHOW_RCS, error_kinds=SHOW_ERROR_KINDS)
    if rc != 0 and outcome['changed']:
        module.fail_json(msg='the client cannot load %s after the change: %s'
                         % (outcome['path'], outcome['policy'].get('error', {}).get('message')), **outcome)
    module.exit_json(**outcome)


if __name__ == '__main__':
    main()
