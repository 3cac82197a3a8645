# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
"""Runs the collection's modules in process against a stand-in for qnpolicy.

FakeQnpolicy answers run_command the way qnpolicy's --json contract says, over a
real install directory, so a test sees the file the module leaves behind.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

import pytest

from ansible.module_utils import basic

POLICY_FILE = 'QuillnetLocalPolicy.xml'
TOOL = '/usr/local/bin/qnpolicy'


class ModuleExit(Exception):
    """Raised instead of exit_json and fail_json; carries the module's result."""

    def __init__(self, result, failed):
        super(ModuleExit, self).__init__(result)
        self.result = result
        self.failed = failed


class FakeQnpolicy(object):
    """Plays qnpolicy for one install directory; records every command it ran.

    `refused` maps an argument to the message generate gives when it refuses it,
    `findings` is what check reports about the file, and `overrides` maps a
    subcommand ('generate' for the dry run, 'write' for generate without it) to a
    (rc, stdout, stderr) it returns instead.
    """

    def __init__(self, install_dir):
        self.install_dir = str(install_dir)
        self.path = os.path.join(self.install_dir, POLICY_FILE)
        self.commands = []
        self.refused = {}
        self.findings = []
        self.overrides = {}

    def __call__(self, command, **kwargs):
        self.commands.append(command)
        assert command[0] == TOOL and command[2:5] == ['--install-dir', self.install_dir, '--json']
        key = 'write' if command[1] == 'generate' and '--dry-run' not in command else command[1]
        if key in self.overrides:
            return self.overrides[key]
        return getattr(self, command[1])(command[5:])

    def ran(self, *words):
        """The commands that contain every one of words."""
        return [command for command in self.commands if all(word in command for word in words)]

    @staticmethod
    def answer(rc, **fields):
        return rc, json.dumps(dict(fields, formatVersion=1)), ''

    def on_disk(self):
        if not os.path.exists(self.path):
            return None
        with open(self.path) as handle:
            return handle.read()

    def generate(self, options):
        arguments = [option for option in options if not option.startswith('--')]
        skipped = [dict(argument=argument, kind='unknown-abbreviation', message=self.refused[argument])
                   for argument in arguments if argument in self.refused]
        if skipped and '--lenient' not in options:
            return self.answer(65, path=self.path, result='refused', dryRun='--dry-run' in options,
                               skipped=skipped, findings=[])
        document = render(argument for argument in arguments if argument not in self.refused)
        result = 'unchanged' if self.on_disk() == document else 'written'
        if '--dry-run' in options:
            return self.answer(0, path=self.path, result=result, dryRun=True, document=document,
                               skipped=skipped, findings=[])
        if result == 'written':
            with open(self.path, 'w') as handle:
                handle.write(document)
        return self.answer(0, path=self.path, result=result, dryRun=False, skipped=skipped, findings=[])

    def show(self, options):
        text = self.on_disk()
        if text is not None and not text.startswith('<policy'):
            return self.answer(1, loaded=False, policyFile=self.path,
                               error=dict(message='not well-formed', line=1, column=1))
        return self.answer(0, loaded=True, policyFile=self.path, exists=text is not None,
                           settings=dict(Arguments=text.split()[1:-1] if text else []))

    def check(self, options):
        ignored = [options[index + 1] for index, option in enumerate(options) if option == '--ignore']
        entry = dict(file=self.path, readable=self.show([])[0] == 0,
                     findings=[finding for finding in self.findings if finding['kind'] not in ignored])
        if not entry['readable']:
            entry['error'] = dict(message='not well-formed', line=1, column=1)
            return self.answer(2, files=[entry])
        return self.answer(1 if entry['findings'] else 0, files=[entry])


def render(arguments):
    """The stand-in document of a list of installer arguments."""
    return '<policy %s />\n' % ' '.join(arguments)


@pytest.fixture
def fake(tmp_path):
    return FakeQnpolicy(tmp_path)


@pytest.fixture
def run_module(mocker, fake):
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
        args = dict(args, qnpolicy=TOOL, install_dir=fake.install_dir,
                    _ansible_check_mode=check_mode, _ansible_diff=diff)
        mocker.patch.object(basic, '_ANSIBLE_ARGS', json.dumps(dict(ANSIBLE_MODULE_ARGS=args)).encode())
        warn.reset_mock()
        with pytest.raises(ModuleExit) as raised:
            main()
        raised.value.warnings = [call.args[0] for call in warn.call_args_list]
        return raised.value

    return run
