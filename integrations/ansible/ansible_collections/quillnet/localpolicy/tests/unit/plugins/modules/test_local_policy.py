# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

import pytest

from ansible_collections.quillnet.localpolicy.plugins.modules import local_policy
from .conftest import LOOSE, UNSAFE_MESSAGE, error_output, render, tool_output

SETTINGS = dict(fm=True, sct=True, upal=['gw1.example.com', 'gw2.example.com'])
ARGUMENTS = ['fm=true', 'sct=true', 'upal=gw1.example.com,gw2.example.com']


def present(run_module, settings=None, **kwargs):
    args = dict(kwargs.pop('args', {}), settings=SETTINGS if settings is None else settings)
    return run_module(local_policy.main, args, **kwargs)


def absent(run_module, **kwargs):
    return run_module(local_policy.main, dict(state='absent'), **kwargs)


def writes(fake):
    return [command for command in fake.ran('generate') if '--dry-run' not in command]


def put(fake, text):
    with open(fake.path, 'w') as handle:
        handle.write(text)


def test_first_run_writes_and_second_changes_nothing(run_module, fake):
    first = present(run_module)
    assert not first.failed and first.result['changed'] and first.result['result'] == 'written'
    assert fake.on_disk() == render(ARGUMENTS)
    assert first.result['path'] == fake.path and first.result['repaired'] == []
    assert first.result['policy']['settings']['Arguments'] == ARGUMENTS

    fake.commands = []
    second = present(run_module)
    assert not second.result['changed'] and second.result['result'] == 'unchanged'
    assert writes(fake) == []


@pytest.mark.parametrize('old', [None, render(['fm=false'])])
def test_check_mode_reports_the_change_and_the_policy_it_would_leave(run_module, fake, old):
    if old is not None:
        put(fake, old)
    checked = present(run_module, check_mode=True, diff=True)
    assert checked.result['changed'] and checked.result['result'] == 'written'
    assert checked.result['diff']['before'] == (old or '')
    assert checked.result['diff']['after'] == render(ARGUMENTS)
    assert fake.on_disk() == old and writes(fake) == []
    # The document went to show on standard input; the policy names the file it would come from.
    assert fake.inputs[fake.commands.index(fake.ran('show', '-')[0])] == render(ARGUMENTS)

    done = present(run_module)
    assert checked.result['policy'] == done.result['policy']
    assert checked.result['policy']['settings']['Arguments'] == ARGUMENTS


def test_check_mode_without_a_change_reports_the_policy_in_force(run_module, fake):
    present(run_module)
    fake.commands = []
    checked = present(run_module, check_mode=True)
    assert not checked.result['changed'] and checked.result['result'] == 'unchanged'
    assert checked.result['policy'] == json.loads(fake.show(fake.install_dir, [], None)[1])
    assert fake.ran('show', '-') == []


@pytest.mark.parametrize('check_mode', [True, False])
def test_empty_settings_declare_the_all_defaults_file(run_module, fake, check_mode):
    outcome = present(run_module, settings={}, check_mode=check_mode)
    assert not outcome.failed and outcome.result['changed']
    assert all(command[5:] == ['--overwrite', '--all-defaults'] or command[5:] == ['--dry-run', '--overwrite',
                                                                                   '--all-defaults']
               for command in fake.ran('generate'))
    assert outcome.result['policy']['result'] == 'loaded' and outcome.result['policy']['settings']['Arguments'] == []
    assert fake.on_disk() == (None if check_mode else render([]))


def test_settings_are_required_when_present(run_module, fake):
    outcome = run_module(local_policy.main, dict())
    assert outcome.failed and 'settings' in outcome.result['msg'] and fake.commands == []


def test_settings_become_installer_arguments(run_module, fake):
    present(run_module, settings=dict(bd=False, rpc=['Credentials', 'Thumbprints'], upal='gw1;gw2', n=5,
                                      flags=[True, 0]))
    assert fake.ran('--dry-run')[0][-5:] == ['bd=false', 'rpc=Credentials,Thumbprints', 'upal=gw1;gw2', 'n=5',
                                             'flags=true,0']


@pytest.mark.parametrize('settings, problem', [
    (dict(fm=None), 'fm: a value must be a string, an integer, a boolean or a list of them, not nothing'),
    (dict(fm=dict(a=1)), 'fm: a value must be a string, an integer, a boolean or a list of them, not dict'),
    (dict(upal=['gw1', ['gw2']]), 'upal: a list may hold only strings, integers and booleans'),
    (dict(upal=['gw1,gw2']), 'upal: a list item contains a comma'),
    ({'--overwrite': 'x'}, "'--overwrite' is not an installer abbreviation"),
    ({'fm=true': 'x'}, "'fm=true' is not an installer abbreviation"),
])
def test_unusable_values_fail_before_the_tool_runs(run_module, fake, settings, problem):
    outcome = present(run_module, settings=dict(settings, sct=True))
    assert outcome.failed and problem in outcome.result['msg']
    assert fake.commands == []


def test_refused_settings_fail_with_every_message_and_keep_the_file(run_module, fake):
    present(run_module)
    fake.refused = {'fmm=true': 'unknown abbreviation fmm', 'rtp=udp': 'value udp not allowed for rtp'}
    fake.commands = []
    outcome = present(run_module, settings=dict(fm=False, fmm=True, rtp='udp'))
    assert outcome.failed
    assert 'fmm=true: unknown abbreviation fmm' in outcome.result['msg']
    assert 'rtp=udp: value udp not allowed for rtp' in outcome.result['msg']
    assert len(outcome.result['skipped']) == 2
    assert fake.on_disk() == render(ARGUMENTS) and writes(fake) == []


def test_lenient_writes_the_rest_and_warns(run_module, fake):
    fake.refused = {'fmm=true': 'unknown abbreviation fmm'}
    outcome = present(run_module, settings=dict(fm=True, fmm=True), args=dict(lenient=True))
    assert outcome.result['changed'] and fake.on_disk() == render(['fm=true'])
    assert outcome.warnings == ['fmm=true: unknown abbreviation fmm']
    assert all('--lenient' in command for command in fake.ran('generate'))


@pytest.mark.parametrize('check_mode', [True, False])
def test_a_repaired_file_is_a_change(run_module, fake, check_mode):
    put(fake, render(ARGUMENTS))
    fake.loose = LOOSE
    outcome = present(run_module, check_mode=check_mode, diff=True)
    assert not outcome.failed and outcome.result['changed'] and outcome.result['result'] == 'repaired'
    assert outcome.result['repaired'] == LOOSE
    assert outcome.result['diff']['before'] == 'owner: 65534\nmode: 0666\n'
    assert outcome.result['diff']['after'] == 'owner: 0\nmode: 0644\n'
    assert fake.on_disk() == render(ARGUMENTS)
    assert len(writes(fake)) == (0 if check_mode else 1)
    assert outcome.result['policy']['settings']['Arguments'] == ARGUMENTS

    again = present(run_module)
    assert again.result['changed'] == check_mode
    assert again.result['result'] == ('repaired' if check_mode else 'unchanged')


@pytest.mark.parametrize('check_mode', [True, False])
def test_an_unsafe_directory_fails_with_the_tools_message(run_module, fake, check_mode):
    fake.unsafe = True
    outcome = present(run_module, check_mode=check_mode)
    assert outcome.failed and not outcome.result.get('changed')
    assert outcome.result['msg'] == 'qnpolicy generate: ' + UNSAFE_MESSAGE
    assert outcome.result['error']['kind'] == 'unsafe-directory'
    assert fake.on_disk() is None and writes(fake) == []


def test_allow_unsafe_directory_writes_anyway(run_module, fake):
    fake.unsafe = True
    outcome = present(run_module, args=dict(allow_unsafe_directory=True))
    assert not outcome.failed and outcome.result['result'] == 'written' and fake.on_disk() == render(ARGUMENTS)
    assert all('--allow-unsafe-directory' in command for command in fake.ran('generate'))


@pytest.mark.parametrize('subcommand, answer, message', [
    ('generate', error_output('generate', 66, 'no-such-directory', 'install directory "/nowhere/": no such directory'),
     'qnpolicy generate: install directory "/nowhere/": no such directory'),
    ('generate', (70, '', 'qnpolicy: out of memory\n'), 'exit code 70: qnpolicy: out of memory'),
    ('generate', (0, 'written', ''), 'printed no JSON object'),
    ('generate', (0, json.dumps(dict(formatVersion=2, result='written')), ''), 'formatVersion 2'),
    ('write', tool_output('generate', 74, path='/p', result='not-synced', dryRun=False, skipped=[], findings=[],
                          repaired=[]), 'could not make the change'),
    ('write', tool_output('generate', 74, path='/p', result='failed', dryRun=False, skipped=[], findings=[],
                          repaired=[], error=dict(kind='io-error', message='cannot write /p: No space left')),
     'qnpolicy generate: cannot write /p: No space left'),
    ('write', tool_output('generate', 73, path='/p', result='failed', dryRun=False, skipped=[], findings=[],
                          repaired=[], error=dict(kind='cannot-create', message='cannot create /p: Read-only')),
     'qnpolicy generate: cannot create /p: Read-only'),
    ('write', tool_output('generate', 65, path='/p', result='refused', dryRun=False, skipped=[], findings=[
        dict(argument=None, kind='doctype', severity='error', line=1, column=1, message='a DTD')], repaired=[]),
     'document: error a DTD'),
    ('show', error_output('show', 2, 'unreadable', 'bad', loaded=False, policyFile='/p'),
     'QuillnetLocalPolicy.xml after the change: bad'),
    ('show', error_output('show', 74, 'io-error', 'cannot write standard output'),
     'qnpolicy show: cannot write standard output'),
])
def test_tool_failures_fail_the_task(run_module, fake, subcommand, answer, message):
    fake.overrides[subcommand] = answer
    outcome = present(run_module)
    assert outcome.failed and message in outcome.result['msg']


def test_absent_removes_the_file_once(run_module, fake):
    present(run_module)
    checked = absent(run_module, check_mode=True, diff=True)
    assert checked.result['changed'] and checked.result['diff']['before'] == render(ARGUMENTS)
    assert fake.on_disk() == render(ARGUMENTS)

    removed = absent(run_module)
    assert removed.result['changed'] and removed.result['result'] == 'removed'
    assert fake.on_disk() is None and removed.result['policy']['exists'] is False
    # Check mode reported the policy the removal leaves: the defaults.
    assert checked.result['policy'] == removed.result['policy']
    assert checked.result['policy']['result'] == 'defaults'

    again = absent(run_module)
    assert not again.result['changed'] and again.result['result'] == 'absent'


def test_absent_without_install_dir_changes_nothing(run_module, fake):
    os.rmdir(fake.install_dir)
    outcome = absent(run_module)
    assert not outcome.failed and not outcome.result['changed'] and outcome.result['result'] == 'absent'
    assert fake.commands == []


def test_absent_removes_a_file_the_client_cannot_load(run_module, fake):
    put(fake, 'broken')
    outcome = absent(run_module)
    assert outcome.result['changed'] and fake.on_disk() is None
