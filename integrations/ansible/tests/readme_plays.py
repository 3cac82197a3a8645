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

HERE = os.path.dirname(os.path.abspath(__file__))
REPO = os.path.dirname(os.path.dirname(os.path.dirname(HERE)))
README = os.path.join(REPO, 'integrations/ansible/ansible_collections/quillnet/localpolicy/README.md')
INSTALL_DIR = '/opt/quillnet/'
BLOCKS = ('group_vars/vpn_clients.yml', 'rollout.yml', 'audit.yml', 'compliance.yml', 'own-template.yml',
          'baseline.yml', 'compliance-report.yml')
HOSTS = ('compliant', 'drifted', 'fresh', 'broken', 'loose')
UNJUDGED = ('noclient', 'unsafe')
# Why the audit cannot judge the last two hosts.
NOT_JUDGED = dict(noclient='^not installed: .*no such directory', unsafe='^the drift check failed: .*chmod')
# How the compliance report lists the hosts no play can judge: (status, reason).
UNJUDGED_REPORT = dict(noclient=('unreadable', 'no-such-directory'), unsafe=('unreadable', 'unsafe'))
POLICY_FILE = 'QuillnetLocalPolicy.xml'
# The names of the README's tasks whose results the checks read.
READS_AS_WRITTEN = 'The client reads it as written (in check mode, as it would read it)'
COMPLIANCE_ASSERTION = 'No drift, FIPS mode on, no file with an error'
OWN_TEMPLATE = 'The policy file from our template'


class Checks(object):
    """Counts and prints the outcome of each check."""

    def __init__(self):
        self.passed = 0
        self.failed = 0

    def check(self, what, ok, detail=''):
        if ok:
            self.passed += 1
            print('ok: %s' % what)
        else:
            self.failed += 1
            print('FAILED: %s%s' % (what, (': %s' % detail) if detail else ''))

    def equal(self, what, actual, expected):
        self.check(what, actual == expected, 'got %r, expected %r' % (actual, expected))


def readme_blocks(path):
    """The README's ```yaml blocks, by the file named in their first line."""
    blocks = {}
    for block in re.findall(r'^```yaml\n(.*?)^```$', read(path), re.S | re.M):
        first = block.partition('\n')[0]
        match = re.match(r'# (\S+)$', first)
        if not match:
            sys.exit('readme_plays: a yaml block of the README does not start with "# FILE": %r' % first)
        blocks[match.group(1)] = block
    unknown = sorted(set(blocks) - set(BLOCKS))
    missing = sorted(set(BLOCKS) - set(blocks))
    if unknown or missing:
        sys.exit('readme_plays: README blocks this runner does not know: %s; missing: %s' % (unknown, missing))
    return blocks


def file_state(path):
    """(sha256, mode, uid) of the file, or None when there is none."""
    if not os.path.lexists(path):
        return None
    status = os.lstat(path)
    return hashlib.sha256(read(path, 'rb')).hexdigest(), '%04o' % (status.st_mode & 0o7777), status.st_uid


def read(path, mode='r'):
    with open(path, mode) as handle:
        return handle.read()


class Fleet(object):
    """The inventory, the plays and the hosts' install directories in a scratch directory."""

    def __init__(self, work, qnpolicy, blocks):
        self.work = work
        self.qnpolicy = qnpolicy
        self.substituted = 0
        for directory in ('inventory/group_vars', 'plays/templates', 'bin', 'hosts'):
            os.makedirs(os.path.join(work, directory))
        os.symlink(qnpolicy, os.path.join(work, 'bin', 'qnpolicy'))
        for name, text in blocks.items():
            self.substituted += text.count(INSTALL_DIR)
            text = text.replace(INSTALL_DIR, '{{ install_dir }}')
            directory = 'inventory' if name.startswith('group_vars/') else 'plays'
            with open(os.path.join(work, directory, name), 'w') as handle:
                handle.write(text)
        lines = ['[vpn_clients]']
        for host in HOSTS + UNJUDGED:
            if host != 'noclient':
                os.makedirs(self.install_dir(host))
            lines.append('%s install_dir=%s/' % (host, self.install_dir(host)))
        os.chmod(self.install_dir('unsafe'), 0o777)
        lines += ['[vpn_clients:vars]', 'ansible_connection=local',
                  # The modules run under Debian's interpreter, the one ansible-core is installed for.
                  'ansible_python_interpreter=/usr/bin/python3']
        with open(os.path.join(work, 'inventory', 'hosts.ini'), 'w') as handle:
            handle.write('\n'.join(lines) + '\n')

    def install_dir(self, host):
        return os.path.join(self.work, 'hosts', host)

    def policy_file(self, host):
        return os.path.join(self.install_dir(host), POLICY_FILE)

    def states(self):
        return dict((host, file_state(self.policy_file(host))) for host in HOSTS)

    def tool(self, host, *arguments):
        """qnpolicy ARGUMENTS --install-dir DIR --json on a host: (rc, object)."""
        run = subprocess.run([self.qnpolicy] + list(arguments) + ['--install-dir', self.install_dir(host), '--json'],
                             stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, universal_newlines=True, check=False)
        return run.returncode, json.loads(run.stdout)

    def tunnel(self, host):
        """The tunnel restriction the client reads on a host."""
        return self.tool(host, 'show')[1]['settings']['RestrictTunnelProtocols']

    def rollout(self, *options):
        """Runs the rollout play on the hosts it can deploy to."""
        return self.play('rollout.yml', '--limit', ','.join(HOSTS), *options)

    def report(self):
        """{host: (status, reason)} of the compliance report the role wrote beside the plays."""
        with open(os.path.join(self.work, 'plays', 'compliance-report', 'compliance-report.json')) as handle:
            return dict((entry['host'], (entry['status'], entry.get('reason'))) for entry in json.load(handle)['hosts'])

    def play(self, name, *options):
        """Runs one play: (rc, {(task, host): record}), the output saved beside it."""
        records = os.path.join(self.work, 'records.jsonl')
        if os.path.exists(records):
            os.unlink(records)
        environment = dict(os.environ, ANSIBLE_CALLBACKS_ENABLED='record_results',
                           ANSIBLE_CALLBACK_PLUGINS=os.path.join(HERE, 'callback_plugins'),
                           RECORD_RESULTS_FILE=records, ANSIBLE_NOCOLOR='1',
                           PATH=os.path.join(self.work, 'bin') + os.pathsep + os.environ['PATH'])
        command = ['ansible-playbook', '-i', os.path.join(self.work, 'inventory', 'hosts.ini'),
                   os.path.join(self.work, 'plays', name)] + list(options)
        output = os.path.join(self.work, '%s%s.out' % (name, re.sub(r'[^\w,.]', '_', ''.join(options))))
        with open(output, 'a') as handle:
            rc = subprocess.run(command, stdout=handle, stderr=subprocess.STDOUT, env=environment,
                                check=False).returncode
        results = {}
        if os.path.exists(records):
            with open(records) as handle:
                for line in handle:
                    record = json.loads(line)
                    results[(record['task'], record['host'])] = record
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


def statuses(results, task):
    return dict((host, record['status']) for host, record in by_host(results, task).items())


def extract(directory):
    """Writes the README's blocks as printed into directory, each under the file it names."""
    for name, text in readme_blocks(README).items():
        path = os.path.join(directory, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, 'w') as handle:
            handle.write(text)


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
    nobody = pwd.getpwnam('nobody').pw_uid
    checks = Checks()
    work = tempfile.mkdtemp(prefix='readme-plays.')
    try:
        fleet = Fleet(work, qnpolicy, readme_blocks(README))
        checks.check('the README names the install directory in its plays (%d places)' % fleet.substituted,
                     fleet.substituted >= 4)
        run_fleet(fleet, checks, nobody)
    finally:
        if checks.failed:
            print('readme_plays: the scratch directory %s is kept' % work)
        else:
            shutil.rmtree(work)
    print('%d passed, %d failed' % (checks.passed, checks.failed))
    return 1 if checks.failed else 0


def run_fleet(fleet, checks, nobody):
    # The fleet before the rollout (drifted's own policy misjudged below if generate fails).
    rc, results = fleet.play('rollout.yml', '--limit', 'compliant,loose')
    checks.equal('setup: the rollout writes the fleet policy on compliant and loose', rc, 0)
    fleet_document = read(fleet.policy_file('compliant'))
    fleet.tool('drifted', 'generate', 'fm=false', 'rtp=ipsec')
    with open(fleet.policy_file('broken'), 'w') as handle:
        handle.write('<QuillnetLocalPolicy>\n')
    os.chmod(fleet.policy_file('loose'), 0o666)
    os.chown(fleet.policy_file('loose'), nobody, -1)
    before = fleet.states()
    judge_before_rollout(fleet, checks, fleet_document, before)
    roll_out(fleet, checks, fleet_document, before, nobody)
    judge_after_rollout(fleet, checks)
    own_template(fleet, checks, fleet_document)

    # The rollout with other values the README documents: its assertion accepts each, and the
    # client applies the tunnel restriction.
    for name, policy, tunnel in (('rtp false', dict(fm=True, rtp=False), 'false'),
                                 ('rtp TLS', dict(fm=True, rtp='TLS'), 'tls'),
                                 ('fm false, rtp IPSec', dict(fm=False, rtp='IPSec'), 'ipsec')):
        rc, results = fleet.play('rollout.yml', '--limit', 'compliant', '-e', json.dumps(dict(fleet_policy=policy)))
        checks.equal('rollout with %s: the assertion passes, the client reads the tunnel' % name,
                     (rc, statuses(results, READS_AS_WRITTEN), fleet.tunnel('compliant')),
                     (0, dict(compliant='ok'), tunnel))


def judge_before_rollout(fleet, checks, fleet_document, before):
    """The audit, the compliance play and the report name each host's problem and change nothing."""
    rc, results = fleet.play('audit.yml')
    checks.equal('audit before the rollout: no host fails', rc, 0)
    report = audit_report(results)
    checks.equal('audit: the hosts not judged, each with its reason',
                 explained(report.get('not_judged', {}), NOT_JUDGED), NOT_JUDGED)
    checks.equal('audit: drifted hosts', sorted(report.get('drifted', [])), ['broken', 'drifted', 'fresh', 'loose'])
    checks.equal('audit: FIPS mode off', sorted(report.get('fips_off', [])), ['broken', 'drifted', 'fresh'])
    checks.equal('audit: files with errors', sorted(report.get('files_with_errors', [])), ['broken', 'loose'])
    drift = by_host(results, 'Would the fleet\'s policy change this machine? (check mode writes nothing)')
    fresh = drift.get('fresh', {}).get('result', {})
    checks.check('audit: on a host without a file, check mode returns the policy the rollout would leave',
                 fresh.get('policy', {}).get('settings', {}).get('FipsMode') is True
                 and fresh.get('diff', {}).get('before') == '' and fresh.get('diff', {}).get('after') == fleet_document,
                 json.dumps(fresh)[:400])
    checks.equal('audit: loose would be repaired', drift.get('loose', {}).get('result', {}).get('result'), 'repaired')
    checks.equal('audit: no file changed', fleet.states(), before)

    rc, results = fleet.play('compliance.yml')
    checks.check('compliance before the rollout: the play fails', rc != 0)
    why = dict(drifted='drifted: the rollout would report written', fresh='drifted: the rollout would report written',
               broken='the client cannot load the file', loose='drifted: the rollout would report repaired',
               unsafe='not judged, the drift check failed: ', noclient='not judged, not installed: ')
    checks.equal('compliance: the hosts that fail the assertion, each saying why',
                 explained({host: record['result'].get('msg', '') for host, record
                            in by_host(results, COMPLIANCE_ASSERTION).items()}, why), dict(why, compliant='All assertions passed'))

    rc, results = fleet.play('compliance-report.yml')
    checks.equal('compliance report before the rollout: the play passes, each host as the report has it',
                 (rc, fleet.report()),
                 (0, dict(compliant=('compliant', None), drifted=('not-compliant', None), fresh=('not-compliant', None),
                          broken=('unreadable', 'unreadable'), loose=('unreadable', 'unsafe'), **UNJUDGED_REPORT)))


def roll_out(fleet, checks, fleet_document, before, nobody):
    """The rollout with --check --diff, then for real, then again: the plan is what happens, once."""
    rc, results = fleet.rollout('--check', '--diff')
    planned = by_host(results, "The fleet's local policy")
    outcome = dict((host, (record['status'], record['result'].get('result'))) for host, record in planned.items())
    checks.equal('rollout --check --diff: no host fails, what each host would do', (rc, outcome),
                 (0, dict(compliant=('ok', 'unchanged'), drifted=('changed', 'written'), fresh=('changed', 'written'),
                          broken=('changed', 'written'), loose=('changed', 'repaired'))))
    checks.equal('rollout --check --diff: the policy each host would have passes the play\'s assertion',
                 statuses(results, READS_AS_WRITTEN), dict.fromkeys(HOSTS, 'ok'))
    checks.equal('rollout --check --diff: the diffs end in the fleet\'s document, or its owner and mode',
                 dict((host, planned[host]['result'].get('diff', {}).get('after')) for host in ('drifted', 'loose')),
                 dict(drifted=fleet_document, loose='owner: 0\nmode: 0644\n'))
    checks.equal('rollout --check --diff: no file changed', fleet.states(), before)

    rc, results = fleet.rollout()
    done = by_host(results, "The fleet's local policy")
    checks.equal('rollout: no host fails, each did what check mode said',
                 (rc, dict((host, (record['status'], record['result'].get('result'))) for host, record in done.items())),
                 (0, outcome))
    checks.equal('rollout: check mode showed the policy each host now has',
                 dict((host, planned[host]['result']['policy']) for host in HOSTS),
                 dict((host, done[host]['result']['policy']) for host in HOSTS))
    checks.equal('rollout: every host holds the fleet\'s document, 0644, owned by root', fleet.states(),
                 dict.fromkeys(HOSTS, (hashlib.sha256(fleet_document.encode()).hexdigest(), '0644', 0)))
    checks.equal('rollout: the loose file\'s repairs', done.get('loose', {}).get('result', {}).get('repaired'),
                 [dict(attribute='owner', was=str(nobody), now='0'), dict(attribute='mode', was='0666', now='0644')])

    rc, results = fleet.rollout()
    checks.equal('rollout again: no host fails and none changed',
                 (rc, statuses(results, "The fleet's local policy")), (0, dict.fromkeys(HOSTS, 'ok')))


def judge_after_rollout(fleet, checks):
    """After the rollout only the hosts no play can judge stand out."""
    rc, results = fleet.play('audit.yml')
    report = audit_report(results)
    report['not_judged'] = sorted(report.get('not_judged', {}))
    checks.equal('audit after the rollout: the report', (rc, report),
                 (0, dict(drifted=[], fips_off=[], files_with_errors=[], not_judged=sorted(UNJUDGED))))
    rc, results = fleet.play('compliance.yml')
    checks.equal('compliance after the rollout: only the hosts it cannot judge fail',
                 statuses(results, COMPLIANCE_ASSERTION), dict(dict.fromkeys(HOSTS, 'ok'), unsafe='failed',
                                                               noclient='failed'))
    rc, results = fleet.play('compliance-report.yml')
    checks.equal('compliance report after the rollout: every host it can judge is compliant', (rc, fleet.report()),
                 (0, dict(dict.fromkeys(HOSTS, ('compliant', None)), **UNJUDGED_REPORT)))


def own_template(fleet, checks, fleet_document):
    """A team's own template: one the client would not read as written, then a good one."""
    fleet_state = fleet.states()
    template = os.path.join(fleet.work, 'plays', 'templates', POLICY_FILE + '.j2')
    with open(template, 'w') as handle:
        handle.write(fleet_document.replace('<FipsMode>true</FipsMode>', '<FipsMode>{{ "TRUE" }}</FipsMode>'))
    rc, results = fleet.play('own-template.yml', '--limit', ','.join(HOSTS))
    finding = dict.fromkeys(HOSTS, 'non-boolean-value')
    refused = {host: json.dumps(record['result']) for host, record in by_host(results, OWN_TEMPLATE).items()}
    checks.equal('own template with a flaw: qnpolicy check refuses it on every host with its finding',
                 (rc != 0, statuses(results, OWN_TEMPLATE), explained(refused, finding)),
                 (True, dict.fromkeys(HOSTS, 'failed'), finding))
    checks.equal('own template with a flaw: no file changed', fleet.states(), fleet_state)
    own_document = fleet_document.replace('<FipsMode>true</FipsMode>', '<FipsMode>false</FipsMode>')
    with open(template, 'w') as handle:
        handle.write(own_document.replace('<FipsMode>false</FipsMode>', '<FipsMode>{{ "false" }}</FipsMode>'))
    rc, results = fleet.play('own-template.yml', '--limit', ','.join(HOSTS))
    checks.equal('own template: every host changed', (rc, statuses(results, OWN_TEMPLATE)),
                 (0, dict.fromkeys(HOSTS, 'changed')))
    checks.equal('own template: every host holds the rendered template',
                 dict((host, read(fleet.policy_file(host))) for host in HOSTS), dict.fromkeys(HOSTS, own_document))


def audit_report(results):
    """The message of the audit play's report task."""
    report = by_host(results, "The fleet's report")
    return list(report.values())[0]['result']['msg'] if report else {}


if __name__ == '__main__':
    sys.exit(main())
