# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

import pytest

from ansible_collections.quillnet.localpolicy.plugins.modules import local_policy
from .conftest import render

SETTINGS = dict(fm=True, sct=True, upal=['gw1.example.com', 'gw2.example.com'])
ARGUMENTS = ['fm=true', 'sct=true', 'upal=gw1.example.com,gw2.example.com']


def present(run_module, settings=None, **kwargs):
    return run_module(local_policy.main, dict(settings=SETTINGS if settings is None else settings), **kwargs)


def absent(run_module, **kwargs):
    return run_module(local_policy.main, dict(state='absent'), **kwargs)


def writes(fake):
    return [command for command in fake.ran('generate') if '--dry-run' not in command]


def test_first_run_writes_and_second_changes_nothing(run_module, fake):
    first = present(run_module)
    assert not first.failed and first.result['changed'] and first.result['result'] == 'written'
    assert fake.on_disk() == render(ARGUMENTS)
    assert first.result['path'] == fake.path
    assert first.result['policy']['settings']['Arguments'] == ARGUMENTS

    fake.commands = []
    second = present(run_module)
    assert not second.result['changed'] and second.result['result'] == 'unchanged'
    assert writes(fake) == []


@pytest.mark.parametrize('old', [None, render(['fm=false'])])
def test_check_mode_reports_the_change_and_writes_nothing(run_module, fake, old):
    if old is not None:
        with open(fake.path, 'w') as handle:
            handle.write(old)
    outcome = present(run_module, check_mode=True, diff=True)
    assert outcome.result['changed'] and outcome.result['result'] == 'written'
    assert outcome.result['diff']['before'] == (old or '')
    assert outcome.result['diff']['after'] == render(ARGUMENTS)
    assert fake.on_disk() == old and writes(fake) == []


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
    outcome = run_module(local_policy.main, dict(settings=dict(fm=True, fmm=True), lenient=True))
    assert outcome.result['changed'] and fake.on_disk() == render(['fm=true'])
    assert outcome.warnings == ['fmm=true: unknown abbreviation fmm']
    assert all('--lenient' in command for command in fake.ran('generate'))


@pytest.mark.parametrize('subcommand, answer, message', [
    ('generate', (66, '', 'qnpolicy: /nowhere/: no such directory\n'), 'exit code 66: qnpolicy: /nowhere/: no such'),
    ('generate', (0, 'written', ''), 'printed no JSON object'),
    ('generate', (0, json.dumps(dict(formatVersion=2, result='written')), ''), 'formatVersion 2'),
    ('write', (74, json.dumps(dict(formatVersion=1, result='not-synced')), ''), 'could not make the change'),
    ('write', (65, json.dumps(dict(formatVersion=1, result='refused', skipped=[], findings=[
        dict(argument=None, severity='error', message='disk full')])), ''), 'document: error disk full'),
    ('show', (1, json.dumps(dict(formatVersion=1, loaded=False, error=dict(message='bad'))), ''),
     'QuillnetLocalPolicy.xml after the change: bad'),
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

    again = absent(run_module)
    assert not again.result['changed'] and again.result['result'] == 'absent'


def test_absent_without_install_dir_changes_nothing(run_module, fake):
    os.rmdir(fake.install_dir)
    outcome = absent(run_module)
    assert not outcome.failed and not outcome.result['changed'] and outcome.result['result'] == 'absent'
    assert fake.commands == []


def test_absent_removes_a_file_the_client_cannot_load(run_module, fake):
    with open(fake.path, 'w') as handle:
        handle.write('broken')
    outcome = absent(run_module)
    assert outcome.result['changed'] and fake.on_disk() is None
