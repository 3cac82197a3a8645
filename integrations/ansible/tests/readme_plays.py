#!/usr/bin/python3
# -*- coding: utf-8 -*-
# GNU General Public License v3.0+ (see LICENSE or https://www.gnu.org/licenses/gpl-3.0.txt)
# SPDX-License-Identifier: GPL-3.0-or-later
"""Runs the plays printed in the collection's README, as printed, against a small fleet.

    integrations/ansible/tests/readme_plays.py QNPOLICY
    integrations/ansible/tests/readme_plays.py --extract DIRECTORY   (the blocks as printed, for linting)

Every ```yaml block of the README starts with a comment naming its file (# rollout.yml); each
is written to that file with only the install directory /opt/quillnet/ replaced by the
inventory's install_dir of each host. A block this runner does not know, or a known one that
is missing, fails the run. The inventory is a group vpn_clients of a few hosts on this machine,
each a local connection with an install directory of its own:

    compliant   the fleet's policy, written by the rollout play
    drifted     a file with other settings
    fresh       no file
    broken      a file the client cannot load
    loose       the fleet's policy in a file others can write, 0666 and owned by nobody
    unsafe      an install directory others can write (0777), which no play may judge
    noclient    no install directory: the client is not installed

The plays run in the order an administrator would run them (run_fleet). The rollout runs on
the first five hosts; the audit, the compliance play and the report on all seven, and must name
the last two with the reason they could not be judged. What each run did is read from a callback
that records every task result (callback_plugins/record_results.py) and from the files on disk.
Prints one line per check and closes with 'N passed, N failed'.

The plays become root and give files to root, as on a real fleet, so this runs as root (a local
connection as root skips become); run by another user it says so and runs nothing.
"""

from __future__ import absolute_import, division, print_function

import hashlib
import json
import os
import pwd
import re
import shutil
import subprocess
import sys
import tempfile
from pathlib import Path

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(os.path.dirname(HERE)))
README = os.path.join(REPO, 'integrations/ansible/ansible_collections/quillnet/localpolicy/README.md')
INSTALL_DIR = '/opt/quillnet/'
BLOCKS = ('group_vars/vpn_clients.yml', 'rollout.yml', 'audit.yml', 'compliance.yml', 'own-template.yml',
          'baseline.yml', 'compliance-report.yml')
HOSTS = ('compliant', 'drifted', 'fresh', 'broken', 'loose')
# The hosts no play can judge, and why the audit cannot.
NOT_JUDGED = dict(noclient='^not installed: .*no such directory', unsafe='^the drift check failed: .*chmod')
# How the compliance play fails them.
COMPLIANCE_NOT_JUDGED = dict(noclient='not judged, not installed: ', unsafe='not judged, the drift check failed: ')
# How the compliance report lists them: (status, reason).
UNJUDGED_REPORT = dict(noclient=('unreadable', 'no-such-directory'), unsafe=('unreadable', 'unsafe'))
POLICY_FILE = 'QuillnetLocalPolicy.xml'
# The names of the README's tasks whose results the checks read.
ROLLOUT_TASK = "The fleet's local policy"
READS_AS_WRITTEN = 'The client reads it as written (in check mode, as it would read it)'
COMPLIANCE_ASSERTION = 'No drift, FIPS mode on, no file with an error'
OWN_TEMPLATE = 'The policy file from our template'


class Checks(object):
    """Counts and prints the outcome of each check."""

    def __init__(self):
        self.passed = 0
        self.failed = 0

    def equal(self, what, actual, expected):
        if actual == expected:
            self.passed += 1
            print('ok: %s' % what)
        else:
            self.failed += 1
            print('FAILED: %s: got %r, expected %r' % (what, actual, expected))


def readme_blocks(path):
    """The README's ```yaml blocks, by the file named in their first line."""
    blocks = {}
    for block in re.findall(r'^```yaml\n(.*?)^```$', Path(path).read_text(), re.S | re.M):
        first = block.partition('\n')[0]
        match = re.match(r'# (\S+)$', first)
        if not match:
            sys.exit('readme_plays: a yaml block of the README does not start with "# FILE": %r' % first)
        blocks[match.group(1)] = block
    if sorted(blocks) != sorted(BLOCKS):
        sys.exit('readme_plays: the README\'s blocks are %s; this runner knows %s' % (sorted(blocks), sorted(BLOCKS)))
    return blocks


def file_state(path):
    """(sha256, mode, uid) of the file, or None when there is none."""
    if not os.path.lexists(path):
        return None
    status = os.lstat(path)
    return hashlib.sha256(path.read_bytes()).hexdigest(), '%04o' % (status.st_mode & 0o7777), status.st_uid


class Fleet(object):
    """The inventory, the plays and the hosts' install directories in a scratch directory."""

    def __init__(self, work, qnpolicy, blocks):
        self.work = work
        self.qnpolicy = qnpolicy
        for directory in ('inventory/group_vars', 'plays/templates', 'bin', 'hosts'):
            os.makedirs(os.path.join(work, directory))
        os.symlink(qnpolicy, os.path.join(work, 'bin', 'qnpolicy'))
        for name, text in blocks.items():
            directory = 'inventory' if name.startswith('group_vars/') else 'plays'
            Path(work, directory, name).write_text(text.replace(INSTALL_DIR, '{{ install_dir }}'))
        lines = ['[vpn_clients]']
        for host in HOSTS + tuple(NOT_JUDGED):
            if host != 'noclient':
                os.makedirs(self.install_dir(host))
            lines.append('%s install_dir=%s/' % (host, self.install_dir(host)))
        os.chmod(self.install_dir('unsafe'), 0o777)
        lines += ['[vpn_clients:vars]', 'ansible_connection=local',
                  # The modules run under Debian's interpreter, the one ansible-core is installed for.
                  'ansible_python_interpreter=/usr/bin/python3']
        Path(work, 'inventory', 'hosts.ini').write_text('\n'.join(lines) + '\n')

    def install_dir(self, host):
        return os.path.join(self.work, 'hosts', host)

    def policy_file(self, host):
        return Path(self.install_dir(host), POLICY_FILE)

    def states(self):
        return dict((host, file_state(self.policy_file(host))) for host in HOSTS)

    def tool(self, host, *arguments):
        """What qnpolicy ARGUMENTS --install-dir DIR --json prints on a host."""
        run = subprocess.run([self.qnpolicy] + list(arguments) + ['--install-dir', self.install_dir(host), '--json'],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, universal_newlines=True, check=False)
        return json.loads(run.stdout)

    def rollout(self, *options):
        """Runs the rollout play on the hosts it can deploy to."""
        return self.play('rollout.yml', '--limit', ','.join(HOSTS), *options)

    def audit(self):
        """Runs the audit play: (rc, its report), each reason of a host not judged as the pattern it matches."""
        rc, results = self.play('audit.yml')
        report = by_host(results, "The fleet's report")
        report = list(report.values())[0]['result']['msg'] if report else {}
        report['not_judged'] = explained(report.get('not_judged', {}), NOT_JUDGED)
        return rc, report

    def report(self):
        """{host: (status, reason)} of the compliance report the role wrote beside the plays."""
        report = json.loads(Path(self.work, 'plays', 'compliance-report', 'compliance-report.json').read_text())
        return dict((entry['host'], (entry['status'], entry.get('reason'))) for entry in report['hosts'])

    def play(self, name, *options):
        """Runs one play: (rc, {(task, host): record}), the output saved beside it."""
        records = Path(self.work, 'records.jsonl')
        records.write_text('')
        environment = dict(os.environ, ANSIBLE_CALLBACKS_ENABLED='record_results',
                           ANSIBLE_CALLBACK_PLUGINS=os.path.join(HERE, 'callback_plugins'),
                           RECORD_RESULTS_FILE=str(records), ANSIBLE_NOCOLOR='1',
                           PATH=os.path.join(self.work, 'bin') + os.pathsep + os.environ['PATH'])
        command = ['ansible-playbook', '-i', os.path.join(self.work, 'inventory', 'hosts.ini'),
                   os.path.join(self.work, 'plays', name)] + list(options)
        output = os.path.join(self.work, '%s%s.out' % (name, re.sub(r'[^\w,.]', '_', ''.join(options))))
        with open(output, 'a') as handle:
            rc = subprocess.run(command, stdout=handle, stderr=subprocess.STDOUT, env=environment,
                                check=False).returncode
        results = dict(((record['task'], record['host']), record)
                       for record in map(json.loads, records.read_text().splitlines()))
        print('-- ansible-playbook %s %s: exit %d (%d task results; output in %s)'
              % (name, ' '.join(options), rc, len(results), output))
        return rc, results


def by_host(results, task):
    """{host: record} of one task."""
    return dict((host, record) for (name, host), record in results.items() if name == task)


def explained(texts, patterns):
    """{key: the pattern its text matches, or else its text}: equal to patterns when each text says it."""
    return {key: patterns[key] if key in patterns and re.search(patterns[key], text) else text
            for key, text in texts.items()}


def writes(results):
    """{host: (status, result, policy)} of the rollout's write."""
    return dict((host, (record['status'], record['result'].get('result'), record['result'].get('policy')))
                for host, record in by_host(results, ROLLOUT_TASK).items())


def statuses(results, task):
    return dict((host, record['status']) for host, record in by_host(results, task).items())


def extract(directory):
    """Writes the README's blocks as printed into directory, each under the file it names."""
    for name, text in readme_blocks(README).items():
        path = Path(directory, name)
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def main():
    if len(sys.argv) == 3 and sys.argv[1] == '--extract':
        extract(sys.argv[2])
        return 0
    if len(sys.argv) != 2:
        sys.exit('usage: readme_plays.py QNPOLICY | --extract DIRECTORY')
    qnpolicy = os.path.realpath(sys.argv[1])
    if os.geteuid() != 0:
        print('readme_plays: SKIPPED, not root: the README\'s plays become root and give files to root')
        return 0
    checks = Checks()
    work = tempfile.mkdtemp(prefix='readme-plays.')
    try:
        run_fleet(Fleet(work, qnpolicy, readme_blocks(README)), checks)
    finally:
        if checks.failed:
            print('readme_plays: the scratch directory %s is kept' % work)
        else:
            shutil.rmtree(work)
    print('%d passed, %d failed' % (checks.passed, checks.failed))
    return 1 if checks.failed else 0


def run_fleet(fleet, checks):
    # The fleet before the rollout (drifted's own policy misjudged below if generate fails).
    rc, results = fleet.play('rollout.yml', '--limit', 'compliant,loose')
    checks.equal('setup: the rollout writes the fleet policy on compliant and loose', rc, 0)
    fleet_document = fleet.policy_file('compliant').read_text()
    fleet.tool('drifted', 'generate', 'fm=false', 'rtp=ipsec')
    fleet.policy_file('broken').write_text('<QuillnetLocalPolicy>\n')
    os.chmod(fleet.policy_file('loose'), 0o666)
    os.chown(fleet.policy_file('loose'), pwd.getpwnam('nobody').pw_uid, -1)
    before = fleet.states()
    judge(fleet, checks, 'before the rollout',
          dict(drifted=['drifted', 'fresh', 'broken', 'loose'], fips_off=['drifted', 'fresh', 'broken'],
               files_with_errors=['broken', 'loose']),
          dict(drifted='drifted: the rollout would report written', fresh='drifted: the rollout would report written',
               broken='the client cannot load the file', loose='drifted: the rollout would report repaired'),
          dict(drifted=('not-compliant', None), fresh=('not-compliant', None), broken=('unreadable', 'unreadable'),
               loose=('unreadable', 'unsafe')))
    roll_out(fleet, checks, fleet_document, before)
    judge(fleet, checks, 'after the rollout', dict(drifted=[], fips_off=[], files_with_errors=[]), {}, {})
    own_template(fleet, checks, fleet_document)

    # The rollout with other values the README documents: its assertion accepts each, and the
    # client applies the tunnel restriction.
    for name, policy, tunnel in (('rtp false', dict(fm=True, rtp=False), 'false'),
                                 ('rtp TLS', dict(fm=True, rtp='TLS'), 'tls'),
                                 ('fm false, rtp IPSec', dict(fm=False, rtp='IPSec'), 'ipsec')):
        rc, results = fleet.play('rollout.yml', '--limit', 'compliant', '-e', json.dumps(dict(fleet_policy=policy)))
        checks.equal('rollout with %s: the assertion passes, the client reads the tunnel' % name,
                     (rc, statuses(results, READS_AS_WRITTEN),
                      fleet.tool('compliant', 'show')['settings']['RestrictTunnelProtocols']),
                     (0, dict(compliant='ok'), tunnel))


def judge(fleet, checks, when, audit, failing, listed):
    """The audit, the compliance play and the report: the audit's lists, why each failing host fails the
    compliance assertion (the others pass it) and the report's entries that are not compliant, each also
    naming the hosts no play can judge."""
    checks.equal('audit %s: no host fails, the report names each problem' % when, fleet.audit(),
                 (0, dict(audit, not_judged=NOT_JUDGED)))
    rc, results = fleet.play('compliance.yml')
    why = dict.fromkeys(HOSTS, 'All assertions passed')
    why.update(COMPLIANCE_NOT_JUDGED, **failing)
    checks.equal('compliance %s: the play fails, each host that fails the assertion saying why' % when,
                 (rc != 0, explained({host: record['result'].get('msg', '') for host, record
                                      in by_host(results, COMPLIANCE_ASSERTION).items()}, why)), (True, why))
    rc, results = fleet.play('compliance-report.yml')
    report = dict.fromkeys(HOSTS, ('compliant', None))
    report.update(UNJUDGED_REPORT, **listed)
    checks.equal('compliance report %s: the play passes, each host as the report has it' % when,
                 (rc, fleet.report()), (0, report))


def roll_out(fleet, checks, fleet_document, before):
    """The rollout with --check --diff, then for real, then again: the plan is what happens, once."""
    rc, results = fleet.rollout('--check', '--diff')
    planned = writes(results)
    checks.equal('rollout --check --diff: no host fails, what each host would do',
                 (rc, dict((host, plan[:2]) for host, plan in planned.items())),
                 (0, dict(compliant=('ok', 'unchanged'), drifted=('changed', 'written'), fresh=('changed', 'written'),
                          broken=('changed', 'written'), loose=('changed', 'repaired'))))
    checks.equal('rollout --check --diff: the loose file\'s diff ends in its owner and mode',
                 by_host(results, ROLLOUT_TASK)['loose']['result'].get('diff', {}).get('after'), 'owner: 0\nmode: 0644\n')
    checks.equal('the audit, the compliance play, the report and the rollout in check mode changed no file',
                 fleet.states(), before)

    rc, results = fleet.rollout()
    checks.equal('rollout: no host fails, each did what check mode said and has the policy it showed',
                 (rc, writes(results)), (0, planned))
    checks.equal('rollout: every host holds the fleet\'s document, 0644, owned by root', fleet.states(),
                 dict.fromkeys(HOSTS, (hashlib.sha256(fleet_document.encode()).hexdigest(), '0644', 0)))

    rc, results = fleet.rollout()
    checks.equal('rollout again: no host fails and none changed',
                 (rc, statuses(results, ROLLOUT_TASK)), (0, dict.fromkeys(HOSTS, 'ok')))


def own_template(fleet, checks, fleet_document):
    """A team's own template: one the client would not read as written, then a good one."""
    fleet_state = fleet.states()
    template = Path(fleet.work, 'plays', 'templates', POLICY_FILE + '.j2')
    template.write_text(fleet_document.replace('<FipsMode>true</FipsMode>', '<FipsMode>{{ "TRUE" }}</FipsMode>'))
    rc, results = fleet.play('own-template.yml', '--limit', ','.join(HOSTS))
    finding = dict.fromkeys(HOSTS, 'non-boolean-value')
    refused = {host: json.dumps(record['result']) for host, record in by_host(results, OWN_TEMPLATE).items()}
    checks.equal('own template with a flaw: qnpolicy check refuses it on every host with its finding',
                 (rc != 0, statuses(results, OWN_TEMPLATE), explained(refused, finding)),
                 (True, dict.fromkeys(HOSTS, 'failed'), finding))
    checks.equal('own template with a flaw: no file changed', fleet.states(), fleet_state)
    own_document = fleet_document.replace('<FipsMode>true</FipsMode>', '<FipsMode>false</FipsMode>')
    template.write_text(own_document.replace('<FipsMode>false</FipsMode>', '<FipsMode>{{ "false" }}</FipsMode>'))
    rc, results = fleet.play('own-template.yml', '--limit', ','.join(HOSTS))
    checks.equal('own template: every host changed and holds the rendered template',
                 (rc, statuses(results, OWN_TEMPLATE), dict((host, fleet.policy_file(host).read_text()) for host in HOSTS)),
                 (0, dict.fromkeys(HOSTS, 'changed'), dict.fromkeys(HOSTS, own_document)))


if __name__ == '__main__':
    sys.exit(main())
