# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Each module's documentation describes its argument_spec exactly, and no key it returns is
one that Ansible reads for itself."""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import pytest
import yaml

from ansible_collections.quillnet.localpolicy.plugins.modules import compliance_report, local_policy, local_policy_info

# Keys of a module's result that ansible-core interprets: returning one by mistake changes
# what a play does (a list under "skipped" skips changed_when and failed_when; "path" adds
# the file's attributes; a non-zero "rc" fails the task).
INTERPRETED = ('skipped', 'changed', 'failed', 'msg', 'rc', 'results', 'diff', 'warnings', 'deprecations',
               'invocation', 'ansible_facts', 'exception', 'stdout', 'stderr', 'module_stdout', 'module_stderr',
               'path', 'dest', 'attempts', 'retries', 'failed_when_result', 'skip_reason', 'unreachable', 'item')


def facts(option):
    """What documentation and argument_spec must agree on, with AnsibleModule's defaults filled in."""
    return dict(type=option.get('type', 'str'), default=option.get('default'), choices=option.get('choices'),
                elements=option.get('elements'), required=option.get('required', False))


@pytest.mark.parametrize('module', [local_policy, local_policy_info, compliance_report])
def test_documented_options_match_the_argument_spec(module):
    options = yaml.safe_load(module.DOCUMENTATION)['options']
    assert sorted(options) == sorted(module.ARGUMENT_SPEC)
    for name, option in options.items():
        assert facts(option) == facts(module.ARGUMENT_SPEC[name]), name
        assert option['description'], name


@pytest.mark.parametrize('module', [local_policy, local_policy_info])
def test_no_returned_key_is_one_ansible_interprets(module):
    returned = yaml.safe_load(module.RETURN)
    assert sorted(key for key in returned if key in INTERPRETED or key.startswith('ansible_')) == []
    assert all(returned[key]['description'] and returned[key]['returned'] for key in returned)
