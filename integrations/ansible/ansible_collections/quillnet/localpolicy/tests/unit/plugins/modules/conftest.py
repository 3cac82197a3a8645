# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Runs the collection's modules in process against a stand-in for qnpolicy.

FakeQnpolicy answers run_command the way qnpolicy's --json contract says, over a
real install directory, so a test sees the file the module leaves behind. Every
answer it gives is validated against the JSON Schema the tool publishes for the
subcommand (fixtures/qnpolicy-*.schema.json, the output of `qnpolicy schema
--json-schema COMMAND`; scripts/ansible-tests.sh fails when they differ from the
built tool's), so the stand-in cannot drift from the tool's output format.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

import jsonschema
import pytest

from ansible.module_utils import basic

POLICY_FILE = 'QuillnetLocalPolicy.xml'
# An executable that exists, for the modules' look at the tool; run_command is the stand-in.
TOOL = '/usr/bin/true'
FIXTURES = os.path.join(os.path.dirname(__file__), 'fixtures')
UNSAFE_MESSAGE = ("The directory /srv's mode is 0777: its group or others can change the policy. Run: chmod go-w /srv; "
                  "nothing was written (--allow-unsafe-directory writes anyway).")
LOOSE = [dict(attribute='owner', was='65534', now='0'), dict(attribute='mode', was='0666', now='0644')]


def schema_validator(subcommand):
    with open(os.path.join(FIXTURES, 'qnpolicy-%s.schema.json' % subcommand)) as handle:
        return jsonschema.Draft202012Validator(json.load(handle))


VALIDATORS = dict((subcommand, schema_validator(subcommand)) for subcommand in ('generate', 'show', 'check', 'comply'))


def tool_output(subcommand, rc, **fields):
    """What qnpolicy SUBCOMMAND --json prints: (rc, stdout, stderr), checked against the subcommand's schema."""
    document = dict(fields, formatVersion=1)
    VALIDATORS[subcommand].validate(document)
    return rc, json.dumps(document), ''


def error_output(subcommand, rc, kind, message, **fields):
    """The object of a run that ended before it had a result."""
    return tool_output(subcommand, rc, error=dict(kind=kind, message=message), **fields)


class ModuleExit(Exception):
    """Raised instead of exit_json and fail_json; carries the module's result."""

    def __init__(self, result, failed):
        super(ModuleExit, self).__init__(result)
        self.result = result
        self.failed = failed


class FakeQnpolicy(object):
    """Plays qnpolicy over install directories; records every command it ran and its standard input.

    `refused` maps an argument to the message generate gives when it refuses it,
    `findings` is what check reports about the file, `loose` the repairs generate
    reports for a file that holds the document (as if its owner and mode were wrong;
    a write or a repair clears it), `unsafe` makes generate refuse the directory
    unless --allow-unsafe-directory is given, and `overrides` maps a subcommand
    ('generate' for the dry run, 'write' for generate without it) to a
    (rc, stdout, stderr) it returns instead.
    """

    def __init__(self, install_dir):
        self.install_dir = str(install_dir)
        self.path = os.path.join(self.install_dir, POLICY_FILE)
        self.commands = []
        self.inputs = []
        self.refused = {}
        self.findings = []
        self.loose = []
        self.unsafe = False
        self.overrides = {}

    def __call__(self, command, data=None, binary_data=False, **kwargs):
        self.commands.append(command)
        self.inputs.append(data)
        assert command[0] == TOOL and command[2] == '--install-dir' and command[4] == '--json'
        # A document on standard input goes in as it is, with no newline added.
        assert data is None or binary_data
        key = 'write' if command[1] == 'generate' and '--dry-run' not in command else command[1]
        if key in self.overrides:
            return self.overrides[key]
        return getattr(self, command[1])(command[3], command[5:], data)

    def ran(self, *words):
        """The commands that contain every one of words."""
        return [command for command in self.commands if all(word in command for word in words)]

    def on_disk(self, install_dir=None):
        path = os.path.join(install_dir or self.install_dir, POLICY_FILE)
        if not os.path.exists(path):
            return None
        with open(path) as handle:
            return handle.read()

    def generate(self, install_dir, options, data):
        arguments = [option for option in options if not option.startswith('--')]
        if not arguments and '--all-defaults' not in options:
            return error_output('generate', 64, 'usage', 'no arguments: give at least one ABBREV=VALUE, or --all-defaults')
        if arguments and '--all-defaults' in options:
            return error_output('generate', 64, 'usage', '--all-defaults takes no ABBREV=VALUE')
        if self.unsafe and '--allow-unsafe-directory' not in options:
            return error_output('generate', 73, 'unsafe-directory', UNSAFE_MESSAGE)
        dry_run = '--dry-run' in options
        path = os.path.join(install_dir, POLICY_FILE)
        skipped = [dict(argument=argument, kind='unknown-abbreviation', message=self.refused[argument])
                   for argument in arguments if argument in self.refused]
        if skipped and '--lenient' not in options:
            return tool_output('generate', 65, path=path, result='refused', dryRun=dry_run, skipped=skipped,
                               findings=[], repaired=[])
        document = render(argument for argument in arguments if argument not in self.refused)
        repaired = []
        if self.on_disk(install_dir) != document:
            result = 'written'
        elif self.loose:
            result, repaired = 'repaired', self.loose
        else:
            result = 'unchanged'
        fields = dict(path=path, result=result, dryRun=dry_run, skipped=skipped, findings=[], repaired=repaired)
        if dry_run:
            return tool_output('generate', 0, document=document, **fields)
        if result == 'written':
            with open(path, 'w') as handle:
                handle.write(document)
        self.loose = []
        return tool_output('generate', 0, **fields)

    def show(self, install_dir, options, data):
        if options == ['-']:
            path, text = '<stdin>', data
        else:
            path, text = os.path.join(install_dir, POLICY_FILE), self.on_disk(install_dir)
        if text is not None and not text.startswith('<policy'):
            return error_output('show', 2, 'unreadable', 'not well-formed', loaded=False, policyFile=path)
        arguments = text.split()[1:-1] if text else []
        return tool_output('show', 0, result='loaded' if text is not None else 'defaults', loaded=True,
                           policyFile=path, exists=text is not None, version='5.1.8.105' if text else None,
                           fipsModeModifiedOnDisk=False, excludeCertStoreMask='0x00000000', cachingOptions=['false'],
                           settings=dict(RestrictPreferenceCaching='none', Arguments=arguments),
                           descriptions=dict(Arguments='The arguments the stand-in document was rendered from.'))

    def check(self, install_dir, options, data):
        ignored = [options[index + 1] for index, option in enumerate(options) if option == '--ignore']
        path = os.path.join(install_dir, POLICY_FILE)
        if self.on_disk(install_dir) is None:
            entry = dict(file=path, readable=False, findings=[],
                         error=dict(kind='no-such-file', message='no such file', line=0, column=0))
            return tool_output('check', 66, result='no-such-file', files=[entry])
        if self.show(install_dir, [], None)[0] != 0:
            entry = dict(file=path, readable=False, findings=[],
                         error=dict(kind='unreadable', message='not well-formed', line=1, column=1))
            return tool_output('check', 2, result='unreadable', files=[entry])
        entry = dict(file=path, readable=True,
                     findings=[finding for finding in self.findings if finding['kind'] not in ignored])
        if entry['findings']:
            return tool_output('check', 1, result='findings', files=[entry])
        return tool_output('check', 0, result='clean', files=[entry])

    def comply(self, install_dir, options, data):
        """One rule, FipsMode true: met when the document was rendered from fm=true; a baseline
        holding "yes" is malformed."""
        if 'yes' in data:
            return error_output('comply', 65, 'refused', '<stdin>:3:13: FipsMode takes true or false, not yes')
        host = options[options.index('--host') + 1] if '--host' in options else 'this-host'
        path = os.path.join(install_dir, POLICY_FILE)
        fields = dict(baseline='<stdin>', host=host)
        if self.show(install_dir, [], None)[0] != 0:
            entry = dict(file=path, readable=False, compliant=False, verdicts=[], expiringWaivers=[],
                         error=dict(kind='unreadable', message='not well-formed', line=1, column=1))
            return tool_output('comply', 2, result='unreadable', files=[entry], **fields)
        met = 'fm=true' in (self.on_disk(install_dir) or '')
        verdicts = [dict(rule='file-safety', state='pass', severity='high', actual='safe', origin=None, findings=[]),
                    dict(rule='FipsMode', state='pass' if met else 'fail', severity='medium', comparison='equals',
                         expected=[True], actual=met, origin=dict(line=2, column=5) if met else None)]
        entry = dict(file=path, readable=True, compliant=met, verdicts=verdicts, expiringWaivers=[])
        return tool_output('comply', 0 if met else 1, result='compliant' if met else 'not-compliant', files=[entry],
                           **fields)


def render(arguments):
    """The stand-in document of a list of installer arguments."""
    return '<policy %s />\n' % ' '.join(arguments)


@pytest.fixture
def fake(tmp_path):
    install_dir = tmp_path / 'install'
    install_dir.mkdir()
    return FakeQnpolicy(install_dir)


@pytest.fixture
def module_tmpdir(tmp_path):
    """The module's own temporary directory (AnsibleModule.tmpdir)."""
    path = tmp_path / 'module-tmp'
    path.mkdir()
    return str(path)


@pytest.fixture
def run_module(mocker, fake, module_tmpdir):
    """Calls run_module(main, args, check_mode=False, diff=False) -> ModuleExit."""

    def exit_json(module, **result):
        raise ModuleExit(result, failed=False)

    def fail_json(module, **result):
        raise ModuleExit(result, failed=True)

    mocker.patch.object(basic.AnsibleModule, 'exit_json', exit_json)
    mocker.patch.object(basic.AnsibleModule, 'fail_json', fail_json)
    mocker.patch.object(basic.AnsibleModule, 'run_command', side_effect=fake)
    warn = mocker.patch.object(basic.AnsibleModule, 'warn')

    def run(main, args, check_mode=False, diff=False):
        args = dict(dict(qnpolicy=TOOL, install_dir=fake.install_dir), **args)
        args.update(_ansible_check_mode=check_mode, _ansible_diff=diff, _ansible_tmpdir=module_tmpdir)
        mocker.patch.object(basic, '_ANSIBLE_ARGS', json.dumps(dict(ANSIBLE_MODULE_ARGS=args)).encode())
        warn.reset_mock()
        with pytest.raises(ModuleExit) as raised:
            main()
        raised.value.warnings = [call.args[0] for call in warn.call_args_list]
        return raised.value

    return run
