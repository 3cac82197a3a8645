# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Runs the client's qnpolicy tool for the modules of this collection.

Every module talks to the policy file only through qnpolicy, so the modules never
carry their own copy of the vocabulary or of the document format: what a setting
means, how the file is named, who may own it and how it is read are the tool's to
say. This file holds what the modules share: locating the tool, running one of its
subcommands with --json, and showing a file on disk in a diff without trusting it.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import errno
import json
import os
import stat

DEFAULT_INSTALL_DIR = '/opt/quillnet/'

# The JSON layout these modules understand (the tool's "formatVersion").
FORMAT_VERSION = 1

# A file or document larger than this is named in a diff, not shown: a diff travels back to
# the controller in the result, and a policy file is a few kilobytes.
MAX_DIFF_BYTES = 1024 * 1024

# Options both modules take, in the form of an AnsibleModule argument_spec.
COMMON_ARGUMENT_SPEC = dict(
    install_dir=dict(type='path', default=DEFAULT_INSTALL_DIR),
    qnpolicy=dict(type='path'),
    descriptions=dict(type='bool', default=False),
)

# The error kind of a run that found no install directory: the client is not installed.
NOT_INSTALLED_KIND = 'no-such-directory'


def tool_path(module):
    """The qnpolicy to run, the 'qnpolicy' option or the one on PATH; None when there is none."""
    if module.params['qnpolicy']:
        path = module.params['qnpolicy']
        return path if os.path.isfile(path) and os.access(path, os.X_OK) else None
    return module.get_bin_path('qnpolicy')


def missing_tool_message(module):
    """Why tool_path found nothing, in the words of the option that was used."""
    if module.params['qnpolicy']:
        return 'no executable qnpolicy at %s' % module.params['qnpolicy']
    return 'no qnpolicy on PATH (package qnpolicy)'


def tool_message(subcommand, error):
    """The text of a failure the tool reported in its JSON "error" object."""
    message = error.get('message') or error.get('kind') or 'failed'
    if error.get('consequence'):
        message = '%s %s' % (message, error['consequence'])
    return 'qnpolicy %s: %s' % (subcommand, message)


def shown_policy(module, shown):
    """A show object as the modules return it: the per-setting descriptions only on request."""
    if not module.params['descriptions']:
        shown.pop('descriptions', None)
    return shown


def run_json(module, tool, subcommand, arguments, accepted_rcs, **options):
    """Runs `qnpolicy SUBCOMMAND --install-dir DIR --json ARGUMENTS`; returns (rc, object).

    Options: data, bytes for standard input (passed as they are, no newline added);
    install_dir, DIR (by default the module's option of that name); error_kinds, the
    kinds of an "error"-only object (a run that ended before it had a result) the
    caller interprets; failure, keys every failed result of the task carries (with
    tool_run, the command and its output).

    The exit code must be one of accepted_rcs. Anything else fails the task: with the
    tool's own message when it printed an "error" object, else with the command, its
    exit code and its standard error; and when the output is not one JSON object of the
    formatVersion this collection reads.
    """
    command = [tool, subcommand, '--install-dir', options.get('install_dir') or module.params['install_dir'], '--json']
    command.extend(arguments)
    data = options.get('data')
    if data is None:
        rc, stdout, stderr = module.run_command(command)
    else:
        rc, stdout, stderr = module.run_command(command, data=data, binary_data=True)
    details = dict(options.get('failure') or {}, tool_run=dict(cmd=command, rc=rc, stdout=stdout, stderr=stderr))
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
    if 'result' not in result and isinstance(error, dict) and error.get('kind') not in options.get('error_kinds', ()):
        details['error'] = error
        module.fail_json(msg=tool_message(subcommand, error), **details)
    if rc not in accepted_rcs:
        module.fail_json(msg='qnpolicy %s failed with exit code %d: %s'
                         % (subcommand, rc, stderr.strip() or stdout.strip()), **details)
    return rc, result


def not_installed(result):
    """Whether a tool object says that the install directory does not exist."""
    return 'result' not in result and (result.get('error') or {}).get('kind') == NOT_INSTALLED_KIND


def file_kind(mode):
    """What a file that is not a regular one is, in words."""
    kinds = ((stat.S_ISDIR, 'a directory'), (stat.S_ISLNK, 'a symbolic link'), (stat.S_ISFIFO, 'a FIFO'),
             (stat.S_ISSOCK, 'a socket'), (stat.S_ISCHR, 'a character device'), (stat.S_ISBLK, 'a block device'))
    return next((name for test, name in kinds if test(mode)), 'not a regular file')


def open_regular(path):
    """(descriptor, stat) of the regular file at path, or (None, what is there instead).

    The path is examined with lstat first, so a FIFO or a device is never opened, and
    opened without following a link and without blocking, then checked again with
    fstat, so that nothing swapped in between is read. A missing file is (None, None).
    """
    try:
        status = os.lstat(path)
    except OSError as error:
        if error.errno in (errno.ENOENT, errno.ENOTDIR):
            return None, None
        return None, 'cannot be examined (%s)' % os.strerror(error.errno)
    if not stat.S_ISREG(status.st_mode):
        return None, file_kind(status.st_mode)
    flags = os.O_RDONLY | os.O_NOFOLLOW | os.O_NONBLOCK | os.O_NOCTTY | os.O_CLOEXEC
    try:
        descriptor = os.open(path, flags)
    except OSError as error:
        return None, 'cannot be opened (%s)' % os.strerror(error.errno)
    status = os.fstat(descriptor)
    if not stat.S_ISREG(status.st_mode):
        os.close(descriptor)
        return None, file_kind(status.st_mode)
    return descriptor, status


def too_large(size):
    """What a diff shows instead of a document of size bytes, more than it shows."""
    return '[not shown: %d bytes, more than %d]\n' % (size, MAX_DIFF_BYTES)


def diff_text(data):
    """The text a diff shows for the bytes of a document: the text itself, or what it is."""
    if len(data) > MAX_DIFF_BYTES:
        return too_large(len(data))
    if b'\0' not in data:
        try:
            return data.decode('utf-8')
        except UnicodeDecodeError:
            pass
    return '[not shown: binary, %d bytes]\n' % len(data)


def existing_text(path):
    """What a diff shows of the file now at path: its text, '' for none, or what is there instead."""
    descriptor, status = open_regular(path)
    if descriptor is None:
        return '' if status is None else '[not shown: %s]\n' % status
    with os.fdopen(descriptor, 'rb') as handle:
        if status.st_size > MAX_DIFF_BYTES:
            return too_large(status.st_size)
        return diff_text(handle.read(MAX_DIFF_BYTES + 1))
