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
    the document but the tool would repair it (result C(repaired)); only then does C(qnpolicy generate
    --overwrite) write the file. The task's I(changed) and I(result) are what that write reported; a write
    that fails is a failure with I(changed=false).
  - Who may own the file, with which mode, is the tool's decision, never this module's. A run as root leaves
    it owned by root with mode C(0644); a run as another user never counts a root-owned, safe file as needing
    repair, and a file it writes is its own.
  - Settings the tool refuses fail the task with every problem the tool reported, and the file on disk stays
    as it was. The abbreviations and their values are checked by the tool, never by this module.
  - A path to the file that others could change (a directory writable by its group or by others, or owned by
    an untrusted user, from C(/) down) fails the task with the tool's message and nothing is written, in
    check mode too, unless I(allow_unsafe_directory=true).
  - With I(merge=true) only the given settings change (C(qnpolicy set) and C(qnpolicy unset)); every other
    setting keeps the value the file states, in the file's order.
  - The tool takes the writers' lock of the install directory for every write, so that two writers never
    interleave; a run that finds the lock held for 5 seconds fails the task with the holder named, and
    nothing is written.
  - After the run the module reads the effective policy back with C(qnpolicy show --json), as the client
    reads it. In check mode it returns the policy that would be in force after the run instead.
requirements:
  - Python 3 (3.6 or later) on the managed host.
  - The client's C(qnpolicy) tool on the managed host, in a version that prints C(formatVersion) 1 and knows
    C(--all-defaults), C(--allow-unsafe-directory) and C(--args-from). It is installed by the Debian package
    C(qnpolicy) and by the RPM package C(qnpolicy).
options:
  settings:
    description:
      - 'The settings to write, a dictionary from installer abbreviation to value, for example
        C({fm: true, sct: true, upal: [gw1.example.com, gw2.example.com]}). C(qnpolicy vocabulary) lists
        every abbreviation and the values each accepts.'
      - A boolean is passed as C(true) or C(false). A list is joined with commas, the form the server list
        C(upal) and the caching options C(rpc) take; its items may contain neither C(,) nor C(;). A string
        or an integer is passed as it is. No value may contain a line break.
      - 'The tunnel restriction is C(rtp: tls) or C(rtp: ipsec) (C(rtp: false) lifts it). The tool writes the
        value as the client applies it, C(tls) or C(ipsec), in whatever case it is given: C(rtp: IPSec) writes
        C(ipsec).'
      - Settings not named here are left out of the file, so the client applies its defaults to them, unless
        I(merge=true).
      - 'With I(merge=true), the value C(absent) removes the setting from the file, so that its default holds
        (C(sct: absent)).'
      - 'An empty dictionary, C(settings: {}), writes a policy file that sets nothing
        (C(qnpolicy generate --all-defaults)): the client runs with its defaults, and the file says so.'
      - 'Required when I(state=present). A null value (C(settings: ~), or an empty group variable) fails the
        task; it is never taken as C({}).'
      - The settings reach the tool on its standard input (C(--args-from -)), so a server list of any length
        can be deployed.
    type: dict
  install_dir:
    description:
      - The client's main installation directory, which holds the policy file. Where it does not exist the
        client is not installed, and I(state=present) fails.
    type: path
    default: /opt/quillnet/
  state:
    description:
      - C(present) makes the policy file hold exactly I(settings).
      - C(absent) removes the policy file; a missing file or a missing I(install_dir) is no change.
    type: str
    choices: [present, absent]
    default: present
  merge:
    description:
      - Change only the settings given, and keep every other setting as the file states it (C(qnpolicy set),
        and C(qnpolicy unset) for the settings whose value is C(absent)); a missing file is created.
      - Without it the file holds exactly I(settings).
      - Settings to remove and settings to change are two writes, each under the writers' lock, removal first.
        In check mode with both, I(policy) is what the changes alone would leave in force.
    type: bool
    default: false
    version_added: 3.1.0
  force:
    description:
      - With I(merge=true), drop what the file holds that a rewrite cannot keep (comments, elements and texts
        the client ignores) instead of failing the task (C(qnpolicy set --force)).
    type: bool
    default: false
    version_added: 3.1.0
  lenient:
    description:
      - Write the usable settings and warn about the others (C(qnpolicy generate --lenient)), instead of
        failing the task when any setting is unusable. The settings left out are in I(skipped_settings).
      - Leave this off for a fleet. A lenient run can leave a security setting at its default without failing.
    type: bool
    default: false
  allow_unsafe_directory:
    description:
      - Write the file even where others could change its path (C(qnpolicy generate
        --allow-unsafe-directory)). Without it such a path fails the task with the tool's message, which
        names the directory and the command that makes it safe, and nothing is written.
      - Anyone who can write to such a directory can replace the policy file after the run; fix the directory
        instead where you can.
    type: bool
    default: false
    version_added: 2.0.0
  backup:
    description:
      - Before a write replaces an existing policy file, keep a copy of it beside it, named
        C(QuillnetLocalPolicy.xml.PID.YYYY-MM-DD@HH:MM:SS~) as the file modules name their backups, and
        return its name in I(backup_file).
      - The copy has the old file's bytes, times and mode less any write permission of group and others,
        and belongs to the user the module runs as. Only a regular file is copied.
    type: bool
    default: false
    version_added: 3.0.0
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
extends_documentation_fragment:
  - ansible.builtin.action_common_attributes
attributes:
  check_mode:
    support: full
    details: Writes nothing; I(result), I(diff) and I(policy) say what a run would do and leave in force.
  diff_mode:
    support: full
    details: >-
      The old and the new document; for a repaired file, its old and new attributes. A file that is not a
      regular file is never read: the diff names what it is, and a binary or oversized file shows as such.
      Each change is followed by the settings the client reads differently, with their old and new values.
  platform:
    platforms: posix
notes:
  - The C(qnpolicy) tool must be installed on every managed host (package C(qnpolicy), Debian or RPM).
  - In check mode I(policy) is the policy that would be in force after the run, as the client would read it
    (C(qnpolicy show --json -) of the document that would be written, or the defaults where the file would be
    removed), with C(policyFile) naming the policy file.
  - Check mode run by a user other than root warns that the file's owner was judged for that user, so whether
    a run as root would repair it is not known.
  - A path the tool refuses as unsafe, or a directory standing where the policy file belongs, fails the task
    in check mode as well.
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
    backup: true

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

- name: Turn strict certificate trust on and drop the FIPS setting, keeping every other setting as it is
  quillnet.localpolicy.local_policy:
    merge: true
    settings:
      sct: true
      fm: absent

- name: Remove the policy file, so the client runs with its defaults
  quillnet.localpolicy.local_policy:
    state: absent
'''

RETURN = r'''
policy_file:
  description: The policy file the task wrote, checked or removed, as the tool names it.
  returned: unless the client is not installed
  type: str
  sample: /opt/quillnet/QuillnetLocalPolicy.xml
result:
  description:
    - What the task did to the file, or in check mode what it would do.
    - C(written) the file was written; C(unchanged) it already held the same bytes and the tool found nothing
      to repair; C(repaired) it held the same bytes but was rewritten to repair its attributes (see
      I(repaired)); C(removed) it was removed; C(absent) there was no file to remove.
    - C(written), C(repaired) and C(removed) are changes.
    - On failure C(refused) (the settings were refused, by this module or by the tool), C(failed) (the tool
      could not do it, I(error) says why; for a write, it names the step that failed), C(not-synced) (the file
      was replaced but the change is not known to be durable, a change) or C(not-installed) (no install
      directory, or no C(qnpolicy)).
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
      cannot be loaded, C(loaded) is false and C(error) says why. C(descriptions) only with
      I(descriptions=true).
  returned: on success
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
    - What the tool repaired in a file that already held the document, or in check mode would repair, each
      with C(attribute) (for example C(owner), C(group), C(mode) or C(acl)), C(was) and C(now).
  returned: when I(state=present) and the tool ran
  type: list
  elements: dict
  sample: [{attribute: owner, was: '65534', now: '0'}, {attribute: mode, was: '0666', now: '0644'}]
skipped_settings:
  description:
    - The settings C(qnpolicy generate) did not use, each with C(argument), C(kind) and C(message). Only a
      lenient run can succeed with skipped settings; each is also reported as a warning.
  returned: when I(state=present) and the tool ran
  type: list
  elements: dict
  sample: [{argument: fmm=true, kind: unknown-abbreviation, message: "unknown abbreviation fmm"}]
findings:
  description:
    - What C(qnpolicy generate) found in the rendered document, each with C(argument), C(kind), C(severity),
      C(line), C(column) and C(message); each is also reported as a warning.
  returned: when I(state=present) and the tool ran
  type: list
  elements: dict
  sample: []
backup_file:
  description: The copy of the previous file that I(backup=true) made before the write.
  returned: when I(backup=true) and a write replaced an existing regular file
  type: str
  sample: /opt/quillnet/QuillnetLocalPolicy.xml.4242.2026-11-23@10:15:02~
error:
  description:
    - The tool's own account of a failure, with its C(kind) (for example C(unsafe-directory),
      C(cannot-create), C(io-error), C(no-such-directory)) and C(message), which names the step that failed.
  returned: on failure, when the tool reported one
  type: dict
  sample: {kind: cannot-create, message: "cannot replace /opt/quillnet/QuillnetLocalPolicy.xml: Operation not permitted"}
tool_run:
  description:
    - The C(qnpolicy) run whose output failed the task, for a closer look, with C(cmd) (a list), C(rc), C(stdout)
      and C(stderr).
  returned: on failure of a C(qnpolicy) run
  type: dict
  sample:
    cmd: [/usr/bin/qnpolicy, generate, --install-dir, /opt/quillnet/, --json, --overwrite, --args-from, '-']
    rc: 73
    stdout: '{"formatVersion": 1, "error": {"kind": "unsafe-directory", "message": "..."}}'
    stderr: ''
'''

import os
import stat
import time

from ansible.module_utils.basic import AnsibleModule
from ansible.module_utils.common.text.converters import to_native
from ansible_collections.quillnet.localpolicy.plugins.module_utils.qnpolicy import (
    COMMON_ARGUMENT_SPEC, NOT_INSTALLED_KIND, diff_text, existing_text, missing_tool_message, not_installed,
    open_regular, run_json, shown_policy, tool_message, tool_path)

ARGUMENT_SPEC = dict(
    COMMON_ARGUMENT_SPEC,
    settings=dict(type='dict'),
    state=dict(type='str', choices=['present', 'absent'], default='present'),
    merge=dict(type='bool', default=False),
    force=dict(type='bool', default=False),
    lenient=dict(type='bool', default=False),
    allow_unsafe_directory=dict(type='bool', default=False),
    backup=dict(type='bool', default=False),
)

# Exit codes of generate, set and unset whose JSON the module interprets: success, a file set
# cannot parse, refused data, a file that could not be written, a write whose result is not
# durable, and a lock another writer held.
GENERATE_RCS = (0, 2, 65, 73, 74, 75)

# The results of generate, set and unset that leave the file holding the document.
DONE_RESULTS = ('written', 'created', 'unchanged', 'repaired')

# The results of generate, set and unset that are a change.
CHANGED_RESULTS = ('written', 'created', 'repaired')

# The value that, with merge, removes a setting.
ABSENT = 'absent'

# Exit codes of show whose JSON the module interprets: loaded (or the defaults), and a
# file that cannot be loaded.
SHOW_RCS = (0, 2)

# The error of show that is a policy the module reports (not loaded) rather than a failure.
SHOW_ERROR_KINDS = ('unreadable',)

# Characters that would split one list item into several servers or options.
LIST_SEPARATORS = (',', ';')

# Characters that would split one installer argument into several on generate's standard input.
LINE_BREAKS = ('\n', '\r')

NULL_SETTINGS = ('settings is null or missing: a null value (an empty group variable, or settings: ~) is not '
                 'taken as "no settings". Give the settings to deploy, or settings: {} to deploy on purpose the '
                 'file that sets nothing, so that the client runs with its defaults.')

UNPRIVILEGED_CHECK = ('check mode ran as uid %d, not as root: qnpolicy judged the owner of the policy file as a run '
                      'of this user would (a file of its own counts as safe), so whether a run as root would repair '
                      'the owner is not known here')


def setting_text(value):
    """The text of one setting value, or None for a type that has no text form."""
    if isinstance(value, bool):
        return 'true' if value else 'false'
    if isinstance(value, (str, int)):
        return str(value)
    return None


def setting_argument(key, value):
    """Returns (ABBREV=VALUE, None), or (None, what is wrong with the setting).

    Only what this module itself would garble is refused here: a key the tool would
    read as an option or split differently, a value with no text form, a list item
    that joining would split, and a line break, which would split the argument on
    the tool's standard input. Whether an abbreviation exists and takes the value is
    the tool's decision.
    """
    if not key or '=' in key or key.startswith('-'):
        return None, '%r is not an installer abbreviation' % key
    if isinstance(value, list):
        items = [setting_text(item) for item in value]
        if None in items:
            return None, '%s: a list may hold only strings, integers and booleans' % key
        if any(separator in item for item in items for separator in LIST_SEPARATORS):
            return None, '%s: a list item contains "," or ";", so joining the list would split it' % key
        text = ','.join(items)
    else:
        text = setting_text(value)
        if text is None:
            return None, ('%s: a value must be a string, an integer, a boolean or a list of them, not %s'
                          % (key, 'nothing' if value is None else type(value).__name__))
    argument = '%s=%s' % (key, text)
    if any(line_break in argument for line_break in LINE_BREAKS):
        return None, '%s: a line break cannot be part of a setting' % key
    return argument, None


def installer_arguments(settings):
    """Returns (arguments, problems): one ABBREV=VALUE per setting, and what is wrong."""
    arguments = []
    problems = []
    for key, value in settings.items():
        argument, problem = setting_argument(key, value)
        if problem:
            problems.append(problem)
        else:
            arguments.append(argument)
    return arguments, problems


def merge_arguments(settings):
    """Returns (set arguments, unset abbreviations, problems) of a merge: the value absent unsets."""
    arguments, unsets, problems = [], [], []
    for key, value in settings.items():
        argument, problem = setting_argument(key, True if value == ABSENT else value)
        if problem:
            problems.append(problem)
        elif value == ABSENT:
            unsets.append(key)
        else:
            arguments.append(argument)
    return arguments, unsets, problems


def tool_problems(result):
    """Every problem a generate, set or unset result carries, as one line each."""
    problems = ['%s: %s' % (item.get('argument'), item.get('message')) for item in result.get('skipped', [])]
    for finding in result.get('findings', []):
        problems.append('%s: %s %s' % (finding.get('argument') or 'document', finding.get('severity'),
                                       finding.get('message')))
    for item in result.get('dropped', []):
        problems.append('line %s: %s, which a rewrite drops (force=true drops it)'
                        % (item.get('line'), item.get('what')))
    return problems


def value_text(value):
    """A setting's value as the summary shows it."""
    if isinstance(value, bool):
        return 'true' if value else 'false'
    if isinstance(value, list):
        return ', '.join(value) if value else '(none)'
    return str(value)


def change_summary(changes):
    """What the client reads differently, one line a setting, as the tool reports it."""
    if not changes:
        return 'the client reads the same policy\n'
    return ''.join('%s: %s -> %s\n' % (change.get('setting'), value_text(change['old'].get('value')),
                                       value_text(change['new'].get('value'))) for change in changes)


def backup_name(path, pid, now):
    """The name of a backup of path: beside it, dated, as the file modules name theirs."""
    return '%s.%d.%s' % (path, pid, time.strftime('%Y-%m-%d@%H:%M:%S~', now))


def backup(module, path):
    """Copies the regular file at path beside it under a dated name; returns that name, or None.

    Nothing that is not a regular file is read (see open_regular). The copy keeps the
    bytes, the times and the mode less any write permission of group or others, and
    belongs to the user the module runs as.
    """
    descriptor, status = open_regular(path)
    if descriptor is None:
        return None
    name = backup_name(path, os.getpid(), time.localtime())
    created = False
    try:
        with os.fdopen(descriptor, 'rb') as source:
            target = os.open(name, os.O_WRONLY | os.O_CREAT | os.O_EXCL | os.O_NOFOLLOW | os.O_CLOEXEC, 0o600)
            created = True
            with os.fdopen(target, 'wb') as copy:
                for chunk in iter(lambda: source.read(1024 * 1024), b''):
                    copy.write(chunk)
                copy.flush()
                os.fchmod(target, stat.S_IMODE(status.st_mode) & 0o644)
                os.utime(target, ns=(status.st_atime_ns, status.st_mtime_ns))
                os.fsync(target)
    except OSError as error:
        if created:
            os.unlink(name)
        module.fail_json(msg='cannot back up %s to %s: %s; nothing was written' % (path, name, to_native(error)),
                         changed=False, result='failed')
    return name


def attributes_text(repaired, key):
    """The attributes of a repaired file, before (key 'was') or after (key 'now'), one line each."""
    return ''.join('%s: %s\n' % (item.get('attribute'), item.get(key)) for item in repaired)


def planned_diff(outcome, planned):
    """The diff of a change: the old and new attributes of a repair, else the old and new document."""
    path = outcome['policy_file']
    if planned['result'] == 'repaired':
        header = '%s (attributes)' % path
        return dict(before_header=header, after_header=header, before=attributes_text(planned['repaired'], 'was'),
                    after=attributes_text(planned['repaired'], 'now'))
    return dict(before_header=path, after_header=path, before=existing_text(path),
                after=diff_text(planned.get('document', '').encode('utf-8')),
                prepared='%s, as the client reads it:\n%s' % (path, change_summary(planned.get('changes'))))


def generate(module, tool, arguments, data, outcome, subcommand='generate'):
    """Runs generate (or set, unset); fails the task, with outcome and what the tool said, unless
    the file holds (or with --dry-run would hold) the document."""
    rc, result = run_json(module, tool, subcommand, arguments, GENERATE_RCS + (66,), data=data,
                          error_kinds=(NOT_INSTALLED_KIND,), failure=dict(outcome, result='failed'))
    if not_installed(result):
        outcome.update(result='not-installed', error=result['error'])
        module.fail_json(msg='the client is not installed on this host: %s'
                         % tool_message(subcommand, result['error']), **outcome)
    outcome.update(policy_file=result.get('path'), skipped_settings=result.get('skipped', []),
                   findings=result.get('findings', []), repaired=result.get('repaired', []))
    if result.get('result') in DONE_RESULTS and rc == 0:
        return result
    outcome['result'] = result.get('result') or 'failed'
    if result.get('result') == 'refused':
        module.fail_json(msg='qnpolicy refused the settings and left the policy file as it was: %s'
                         % '; '.join(tool_problems(result)), **outcome)
    if result.get('result') == 'not-synced':
        outcome['changed'] = True
        module.fail_json(msg='qnpolicy replaced %s but could not make the change durable (directory sync failed)'
                         % result.get('path'), **outcome)
    if result.get('error'):
        module.fail_json(msg=tool_message(subcommand, result['error']), error=result['error'], **outcome)
    module.fail_json(msg='qnpolicy %s ended with exit code %d and result %r' % (subcommand, rc, result.get('result')),
                     **outcome)


def generate_options(module, arguments):
    """(options, standard input) of generate for the installer arguments.

    The arguments go in on standard input, one a line, so that a server list of any
    length fits (a command line has a size limit); none at all is the file that sets
    nothing.
    """
    options = ['--overwrite']
    if module.params['lenient']:
        options.append('--lenient')
    if module.params['allow_unsafe_directory']:
        options.append('--allow-unsafe-directory')
    if not arguments:
        return options + ['--all-defaults'], None
    return options + ['--args-from', '-'], ''.join(argument + '\n' for argument in arguments).encode('utf-8')


def ensure_present(module, tool, outcome):
    """Makes the file hold the settings; returns the document it holds, or would hold in check mode.

    changed and result say what the write did: until it reports, the task has changed
    nothing, so a write that fails is a failure with changed false.
    """
    if module.params['settings'] is None:
        module.fail_json(msg=NULL_SETTINGS, result='refused', **outcome)
    arguments, problems = installer_arguments(module.params['settings'])
    if problems:
        module.fail_json(msg='invalid settings: %s' % '; '.join(problems), result='refused', **outcome)
    options, data = generate_options(module, arguments)

    planned = generate(module, tool, options + ['--dry-run'], data, outcome)
    for problem in tool_problems(planned):
        module.warn(problem)
    outcome['result'] = planned['result']
    document = planned.get('document', '')
    if module.check_mode and os.geteuid() != 0:
        module.warn(UNPRIVILEGED_CHECK % os.geteuid())
    if planned['result'] == 'unchanged':
        return document
    if module.check_mode:
        outcome['changed'] = True
        if module._diff:
            outcome['diff'] = planned_diff(outcome, planned)
        return document
    diff = planned_diff(outcome, planned) if module._diff else None
    saved = backup(module, outcome['policy_file']) if module.params['backup'] else None
    if saved:
        outcome['backup_file'] = saved
    outcome['result'] = 'failed'
    done = generate(module, tool, options, data, outcome)
    outcome.update(result=done['result'], changed=done['result'] in CHANGED_RESULTS)
    if outcome['changed'] and diff:
        outcome['diff'] = planned_diff(outcome, done) if done['result'] == 'repaired' else diff
    return document


def write_planned(module, tool, subcommand, options, data, outcome):
    """Plans one write with --dry-run, then (unless in check mode) makes it; returns the plan."""
    planned = generate(module, tool, options + ['--dry-run'], data, outcome, subcommand)
    for problem in tool_problems(planned):
        module.warn(problem)
    outcome['result'] = planned['result']
    if planned['result'] == 'unchanged':
        return planned
    diff = planned_diff(outcome, planned) if module._diff else None
    if not module.check_mode:
        saved = backup(module, outcome['policy_file']) if module.params['backup'] else None
        if saved:
            outcome['backup_file'] = saved
        outcome['result'] = 'failed'
        done = generate(module, tool, options, data, outcome, subcommand)
        outcome['result'] = done['result']
        if done['result'] == 'repaired':
            diff = planned_diff(outcome, done)
    outcome['changed'] = outcome['changed'] or module.check_mode or outcome['result'] in CHANGED_RESULTS
    if diff and outcome['changed']:
        # A second write (set after unset) shows its own diff, from the file the first left.
        outcome['diff'] = diff
    return planned


def ensure_merged(module, tool, outcome):
    """Changes only the given settings (unset first, then set); returns the document the file
    holds, or would hold in check mode."""
    arguments, unsets, problems = merge_arguments(module.params['settings'] or {})
    if problems:
        module.fail_json(msg='invalid settings: %s' % '; '.join(problems), result='refused', **outcome)
    options = ['--args-from', '-']
    if module.params['force']:
        options.append('--force')
    if module.params['allow_unsafe_directory']:
        options.append('--allow-unsafe-directory')
    document = None
    for subcommand, words in (('unset', unsets), ('set', arguments)):
        if words:
            data = ''.join(word + '\n' for word in words).encode('utf-8')
            planned = write_planned(module, tool, subcommand, options, data, outcome)
            document = planned.get('document', document)
    if document is None:
        outcome['result'] = 'unchanged'
    return document


def ensure_absent(module, tool, outcome):
    """Removes the file; returns None, the document of no file."""
    dummy, shown = run_json(module, tool, 'show', [], SHOW_RCS + (66,),
                            error_kinds=SHOW_ERROR_KINDS + (NOT_INSTALLED_KIND,), failure=outcome)
    if not_installed(shown):
        # No client installed here: there is no file and no policy to read back.
        module.exit_json(result='absent', **outcome)
    path = outcome['policy_file'] = shown.get('policyFile')
    descriptor, what = open_regular(path)
    if descriptor is not None:
        os.close(descriptor)
    elif what is None:
        outcome['result'] = 'absent'
        return None
    if module._diff:
        outcome['diff'] = dict(before_header=path, after_header=path, before=existing_text(path), after='')
    outcome['result'] = 'removed'
    if module.check_mode:
        outcome['changed'] = True
        return None
    try:
        os.unlink(path)
    except OSError as error:
        module.fail_json(msg='cannot remove %s: %s' % (path, to_native(error)), **outcome)
    outcome['changed'] = True
    return None


def would_be_policy(module, tool, document):
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
                                 data=document.encode('utf-8'))
    return policy


def main():
    module = AnsibleModule(argument_spec=ARGUMENT_SPEC, supports_check_mode=True)
    outcome = dict(changed=False)
    tool = tool_path(module)
    if tool is None:
        module.fail_json(msg='the client is not installed on this host: %s' % missing_tool_message(module),
                         result='not-installed', **outcome)
    if module.params['state'] == 'present' and module.params['merge']:
        document = ensure_merged(module, tool, outcome)
    elif module.params['state'] == 'present':
        document = ensure_present(module, tool, outcome)
    else:
        document = ensure_absent(module, tool, outcome)

    if module.check_mode and outcome['changed']:
        policy = would_be_policy(module, tool, document)
        policy['policyFile'] = outcome['policy_file']
        outcome['policy'] = shown_policy(module, policy)
        module.exit_json(**outcome)
    rc, policy = run_json(module, tool, 'show', [], SHOW_RCS, error_kinds=SHOW_ERROR_KINDS, failure=outcome)
    outcome['policy'] = shown_policy(module, policy)
    if rc != 0 and outcome['changed']:
        module.fail_json(msg='the client cannot load %s after the change: %s'
                         % (outcome['policy_file'], policy.get('error', {}).get('message')), **outcome)
    module.exit_json(**outcome)


if __name__ == '__main__':
    main()
