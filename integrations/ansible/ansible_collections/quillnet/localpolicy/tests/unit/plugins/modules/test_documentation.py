# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Each module's DOCUMENTATION options describe its argument_spec exactly."""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import pytest
import yaml

from ansible_collections.quillnet.localpolicy.plugins.modules import compliance_report, local_policy, local_policy_info


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
