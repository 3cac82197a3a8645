# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""What local_policy does on its own, before and beside qnpolicy: turning settings into
installer arguments, showing the file at the policy path in a diff without trusting it,
and keeping a backup. What the tool decides is tested against the tool itself by the
integration playbook."""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import os
import time
from pathlib import Path

import pytest

from ansible_collections.quillnet.localpolicy.plugins.module_utils import qnpolicy
from ansible_collections.quillnet.localpolicy.plugins.modules import local_policy

NOT_TEXT = 'a value must be a string, an integer, a boolean or a list of them, not '
SPLIT = ': a list item contains "," or ";", so joining the list would split it'


@pytest.mark.parametrize('key, value, argument, problem', [
    ('bd', False, 'bd=false', None),
    ('rpc', ['Credentials', 'Thumbprints'], 'rpc=Credentials,Thumbprints', None),
    ('upal', 'gw1;gw2', 'upal=gw1;gw2', None),
    ('flags', [True, 0], 'flags=true,0', None),
    ('fm', None, None, 'fm: ' + NOT_TEXT + 'nothing'),
    ('fm', 1.5, None, 'fm: ' + NOT_TEXT + 'float'),
    ('upal', ['gw1', ['gw2']], None, 'upal: a list may hold only strings, integers and booleans'),
    ('upal', ['gw1,gw2'], None, 'upal' + SPLIT),
    ('upal', ['gw1;gw2'], None, 'upal' + SPLIT),
    ('rpc', ['Credentials\r'], None, 'rpc: a line break cannot be part of a setting'),
    ('fm\nsct', 'true', None, 'fm\nsct: a line break cannot be part of a setting'),
    ('--overwrite', 'x', None, "'--overwrite' is not an installer abbreviation"),
    ('fm=true', 'x', None, "'fm=true' is not an installer abbreviation"),
    ('', 'x', None, "'' is not an installer abbreviation"),
])
def test_a_setting_becomes_one_installer_argument_or_a_problem(key, value, argument, problem):
    assert local_policy.setting_argument(key, value) == (argument, problem)


def test_arguments_go_to_generate_on_standard_input_one_a_line():
    class Module(object):
        params = dict(lenient=True, allow_unsafe_directory=False)

    assert local_policy.generate_options(Module, ['fm=true', 'upal=a;b']) == (
        ['--overwrite', '--lenient', '--args-from', '-'], b'fm=true\nupal=a;b\n')


def test_a_merge_sets_the_given_values_and_unsets_those_given_as_absent():
    settings = dict(sct=True, fm='absent', upal=['gw1', 'gw2'], upcu='absent', bad=None)
    assert local_policy.merge_arguments(settings) == (
        ['sct=true', 'upal=gw1,gw2'], ['fm', 'upcu'], ['bad: ' + NOT_TEXT + 'nothing'])


@pytest.mark.parametrize('changes, summary', [
    ([], 'the client reads the same policy\n'),
    ([dict(setting='StrictCertificateTrust', old=dict(value=True), new=dict(value=False)),
      dict(setting='AuthorizedServerList', old=dict(value=[]), new=dict(value=['gw1', 'gw2']))],
     'StrictCertificateTrust: true -> false\nAuthorizedServerList: (none) -> gw1, gw2\n'),
])
def test_the_diff_ends_with_what_the_client_reads_differently(changes, summary):
    assert local_policy.change_summary(changes) == summary


def make(path, kind):
    """Puts a file of the given kind at path."""
    contents = dict(text=b'<a>\xc3\xa9</a>\n', binary=b'<a>\0</a>', latin1=b'<a>\xe9</a>',
                    large=b'x' * (qnpolicy.MAX_DIFF_BYTES + 1))
    if kind in contents:
        Path(path).write_bytes(contents[kind])
    elif kind == 'directory':
        os.mkdir(path)
    elif kind == 'link':
        make(path + '.target', 'text')
        os.symlink(path + '.target', path)


@pytest.mark.parametrize('kind, shown', [
    ('text', u'<a>\xe9</a>\n'),
    ('binary', '[not shown: binary, 8 bytes]\n'),
    ('latin1', '[not shown: binary, 8 bytes]\n'),
    ('large', '[not shown: 1048577 bytes, more than 1048576]\n'),
    ('directory', '[not shown: a directory]\n'),
    ('link', '[not shown: a symbolic link]\n'),
])
def test_the_diff_reads_only_a_regular_file(tmp_path, kind, shown):
    path = str(tmp_path / 'QuillnetLocalPolicy.xml')
    make(path, kind)
    assert qnpolicy.existing_text(path) == shown


def test_a_backup_is_named_beside_the_file_with_its_date():
    now = time.struct_time((2026, 11, 23, 10, 15, 2, 0, 327, 0))
    assert local_policy.backup_name('/opt/quillnet/QuillnetLocalPolicy.xml', 4242, now) == \
        '/opt/quillnet/QuillnetLocalPolicy.xml.4242.2026-11-23@10:15:02~'


@pytest.mark.parametrize('kind, mode, copied', [
    ('text', 0o666, 0o644),
    ('text', 0o600, 0o600),
    ('link', 0o644, None),
])
def test_a_backup_copies_only_a_regular_file_and_no_write_permission_of_others(tmp_path, kind, mode, copied):
    path = str(tmp_path / 'QuillnetLocalPolicy.xml')
    make(path, kind)
    os.chmod(path, mode)
    name = local_policy.backup(None, path)
    if copied is None:
        assert name is None and sorted(os.listdir(str(tmp_path))) == ['QuillnetLocalPolicy.xml',
                                                                      'QuillnetLocalPolicy.xml.target']
        return
    assert os.stat(name).st_mode & 0o7777 == copied
    assert os.stat(name).st_mtime_ns == os.stat(path).st_mtime_ns
