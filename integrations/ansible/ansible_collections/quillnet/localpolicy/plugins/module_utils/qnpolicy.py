# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see https://www.gnu.org/licenses/gpl-3.0.txt)
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

DEFAULT_INSTALL_DIR = '/opt/quillnet/'

# The JSON layout these modules understand (the tool's "formatVersion").
FORMAT_VERSION = 1

# Exit code of show and generate when the install directory does not exist.
EXIT_NO_SUCH_DIRECTORY = 66

# Options both modules take, in the form of an AnsibleModule argument_spec.
COMMON_ARGUMENT_SPEC = dict(
    install_dir=dict(type='path', default=DEFAULT_INSTALL_DIR),
    qnpolicy=dict(type='path'),
)


def tool_path(module):
    """The qnpolicy to run: the 'qnpolicy' option, or the one found on PATH."""
    if module.params['qnpolicy']:
        return module.params['qnpolicy']
    return module.get_bin_path('qnpolicy', required=True)


def run_json(module, tool, subcommand, arguments, accepted_rcs):
    """Runs `qnpolicy SUBCOMMAND --install-dir DIR --json ARGUMENTS`.

    Returns (rc, object). Fails the task, with the command, its exit code and its
    standard error, when the exit code is not one of accepted_rcs (the codes whose
    JSON the caller interprets), when the output is not one JSON object, or when
    its formatVersion is not the one this collection reads.
    """
    command = [tool, subcommand, '--install-dir', module.params['install_dir'], '--json']
    command.extend(arguments)
    rc, stdout, stderr = module.run_command(command)
    details = dict(cmd=command, rc=rc, stdout=stdout, stderr=stderr)
    if rc not in accepted_rcs:
        module.fail_json(msg='qnpolicy %s failed with exit code %d: %s'
                         % (subcommand, rc, stderr.strip() or stdout.strip()), **details)
    try:
        result = json.loads(stdout)
    except ValueError:
        result = None
    if not isinstance(result, dict):
        module.fail_json(msg='qnpolicy %s printed no JSON object' % subcommand, **details)
    if result.get('formatVersion') != FORMAT_VERSION:
        module.fail_json(msg='qnpolicy %s printed JSON of formatVersion %r; this collection reads version %d'
                         % (subcommand, result.get('formatVersion'), FORMAT_VERSION), **details)
    return rc, result
