#!/usr/bin/python3
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Checks the task results a playbook run recorded (callback_plugins/record_results.py).

    integrations/ansible/tests/result_checks.py RECORDS

Every result of a quillnet.localpolicy module may hold only the keys its RETURN documents
and the keys Ansible itself adds or reads (changed, failed, msg, diff, warnings, ...): a
key Ansible interprets that the module returned by mistake changes what the play does, and
a key nobody documented is a key nobody can rely on. Prints each problem and 'N passed,
N failed'.
"""

from __future__ import absolute_import, division, print_function

import importlib
import json
import os
import sys
from pathlib import Path

import yaml

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))
MODULES = 'ansible_collections.quillnet.localpolicy.plugins.modules.'
PREFIX = 'quillnet.localpolicy.'

# What Ansible adds to a module's result, or reads from it, beside the module's own keys.
ANSIBLE_KEYS = frozenset(('changed', 'failed', 'msg', 'diff', 'warnings', 'deprecations', 'invocation',
                          'failed_when_result', 'results', 'item', 'ansible_loop_var', 'skipped', 'skip_reason',
                          'false_condition', 'attempts'))


def documented_keys(module):
    """The keys the RETURN of a module of the collection documents."""
    return frozenset(yaml.safe_load(importlib.import_module(MODULES + module).RETURN))


def undocumented(result, documented):
    """The keys of one result (each item's, for a loop) that are neither documented nor Ansible's."""
    keys = set(key for key in result if not key.startswith('_ansible'))
    for item in result.get('results', []):
        keys |= undocumented(item, documented)
    return keys - documented - ANSIBLE_KEYS


def problems(records):
    """What is wrong with the recorded results of the collection's modules: (results checked, problems)."""
    ours = [record for record in records
            if record.get('action', '').startswith(PREFIX) and record['status'] != 'skipped']
    found = []
    for record in ours:
        module = record['action'][len(PREFIX):]
        extra = sorted(undocumented(record['result'], documented_keys(module)))
        if extra:
            found.append('%s (%s): undocumented keys %s' % (record['task'], module, ', '.join(extra)))
    return len(ours), found


def main():
    if len(sys.argv) != 2:
        sys.exit('usage: result_checks.py RECORDS')
    checked, found = problems(map(json.loads, Path(sys.argv[1]).read_text().splitlines()))
    for problem in found:
        print('FAILED: %s' % problem)
    print('%d passed, %d failed' % (checked - len(found), len(found)))
    return 1 if found else 0


if __name__ == '__main__':
    sys.exit(main())
