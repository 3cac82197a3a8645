# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Records every task result of a playbook run, one JSON object a line, for the test runners.

Enabled with ANSIBLE_CALLBACKS_ENABLED=record_results; the file is RECORD_RESULTS_FILE.
Each line is {"task", "action", "host", "status", "result"}, status one of ok,
changed, failed, skipped, unreachable: what the recap counts.
"""

from __future__ import absolute_import, division, print_function
__metaclass__ = type

import json
import os

from ansible.plugins.callback import CallbackBase


class CallbackModule(CallbackBase):
    CALLBACK_VERSION = 2.0
    CALLBACK_TYPE = 'aggregate'
    CALLBACK_NAME = 'record_results'
    CALLBACK_NEEDS_ENABLED = True

    def __init__(self):
        super(CallbackModule, self).__init__()
        self.path = os.environ['RECORD_RESULTS_FILE']

    def record(self, result, status):
        if status == 'ok' and result._result.get('changed'):
            status = 'changed'
        line = dict(task=result._task.get_name(), action=result._task.action,
                    host=result._host.get_name(), status=status, result=result._result)
        with open(self.path, 'a') as handle:
            handle.write(json.dumps(line, default=str) + '\n')

    def v2_runner_on_ok(self, result):
        self.record(result, 'ok')

    def v2_runner_on_failed(self, result, ignore_errors=False):
        self.record(result, 'failed')

    def v2_runner_on_skipped(self, result):
        self.record(result, 'skipped')

    def v2_runner_on_unreachable(self, result):
        self.record(result, 'unreachable')
