# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Runs the client's qnpolicy tool for the modules of this collection.

Every module talks to the policy file only through qnpolicy, so the modules never
carry their own copy of the vocabulary or of the document format: what a setting
means, how the file is named and how it is read are the tool's to say. This file
holds what the modules share: locating the tool and running one of its
subcommands with --json.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

DEFAULT_INSTALL_DIR = '/opt/quillnet/'

# The JSON layout these modules understand (the tool's "formatVersion").
FORMAT_VERSION = 1

# Options both modules take, in the form of an AnsibleModule argument_spec.
COMMON_ARGUMENT_SPEC = dict(
    install_dir=dict(type='path', default=DEFAULT_INSTALL_DIR),
    qnpolicy=dict(type='path'),
)


def tool_path(module):
    """The qnpolicy to run: the 'qnpolicy' option, or the one found on PATH.

    Fails the task with the error kind "no-client" when there is none, so that a report can
    tell a host without the client from one whose policy failed.
    """
    tool = module.params['qnpolicy'] or module.get_bin_path('qnpolicy')
    if not tool or not os.access(tool, os.X_OK):
        message = 'the client\'s qnpolicy tool is not installed (%s)' % (tool or 'not on PATH')
        module.fail_json(msg=message, error=dict(kind='no-client', message=message))
    return tool


def tool_message(subcommand, error):
    """The text of a failure the tool reported in its JSON "error" object."""
    message = error.get('message') or error.get('kind') or 'failed'
    if error.get('consequence'):
        message = '%s %s' % (message, error['consequence'])
    return 'qnpolicy %s: %s' % (subcommand, message)


def run_json(module, tool, subcommand, arguments, accepted_rcs, error_kinds=(), data=None, install_dir=None):
    """Runs `qnpolicy SUBCOMMAND --install-dir DIR --json ARGUMENTS`, with data on standard input.

    DIR is install_dir, by default the module's option of that name.

    Returns (rc, object) when the exit code is one of accepted_rcs, the codes whose JSON
    the caller interprets. An object that carries only an "error" (the run ended before
    it had a result) is returned only when its kind is one of error_kinds.

    Fails the task otherwise: with the tool's own message when it printed one in its
    "error" object, else with the command, its exit code and its standard error; and
    when the output is not one JSON object, or its formatVersion is not the one this
    collection reads.
    """
    command = [tool, subcommand, '--install-dir', install_dir or module.params['install_dir'], '--json']
    command.extend(arguments)
    if data is None:
        rc, stdout, stderr = module.run_command(command)
    else:
        # binary_data: the document goes in as it is, without a newline added.
        rc, stdout, stderr = module.run_command(command, data=data, binary_data=True)
    details = dict(cmd=command, rc=rc, stdout=stdout, stderr=stderr)
    try:
        result = json.loads(stdout)
    except ValueError:
        result = None
    if not isinstance(result, dict):
        if rc not in accepted_rcs:
            module.fail_json(msg='qnpolicy %s failed with exit code %d: %s'
                             % (subcommand, rc, stderr.strip() or stdout.strip()), **details)
        module.fail_json(msg='qnpolicy %s printed no JSON object' % subcommand, **details)
    if result.get('formatVersion') != FORMAT_VERSION:
        module.fail_json(msg='qnpolicy %s printed JSON of formatVersion %r; this collection reads version %d'
                         % (subcommand, result.get('formatVersion'), FORMAT_VERSION), **details)
    error = result.get('error')
    if 'result' not in result and isinstance(error, dict) and error.get('kind') not in error_kinds:
        module.fail_json(msg=tool_message(subcommand, error), error=error, **details)
    if rc not in accepted_rcs:
        module.fail_json(msg='qnpolicy %s failed with exit code %d: %s'
                         % (subcommand, rc, stderr.strip() or stdout.strip()), **details)
    return rc, result
