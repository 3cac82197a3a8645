#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The README's transcripts and worked examples, run as printed: every plain fenced block whose
# first line is a "$ " command is a transcript, run command by command with bash in one working
# directory, and what each command prints (standard output and error together) must be the
# lines shown below it; "$ cat FILE" shows a file, which is made from those lines when it is not
# there yet. The Ansible task of the worked examples runs with ansible-playbook on localhost.
# All of it runs with the built qnpolicy first on PATH, in a private mount namespace where /opt
# and /srv are scratch directories, so that /opt/quillnet and /srv/policies are what the
# examples name.
#   readme_examples_test.sh QNPOLICY README
set -uo pipefail
if [ "${1:-}" = --inside ]; then
    shift
    tool=$1 readme=$2 work=$3
    # Unmounted explicitly as well: in a chroot the namespace may share its mounts (below).
    trap 'umount -R /dev /srv /opt 2>/dev/null' EXIT
    mount -t tmpfs tmpfs /opt && mount -t tmpfs tmpfs /srv || exit 1
    mkdir -p /opt/quillnet /srv/policies "$work/bin" "$work/cwd"
    chmod 0755 /opt /srv /opt/quillnet /srv/policies "$work" "$work/cwd"
    ln -s "$tool" "$work/bin/qnpolicy"
    # A /dev of the namespace's own, holding the machine's devices and the system logger's
    # socket /dev/log, which the Python below binds and drains: the writers' audit records are
    # delivered, as on a machine with a logger.
    mkdir "$work/dev" && mount --rbind /dev "$work/dev" && mount -t tmpfs tmpfs /dev || exit 1
    for node in null zero full random urandom tty; do
        touch "/dev/$node" && mount --bind "$work/dev/$node" "/dev/$node" || exit 1
    done
    mkdir /dev/pts && mount --rbind "$work/dev/pts" /dev/pts || exit 1
    mkdir /dev/shm && mount -t tmpfs tmpfs /dev/shm || exit 1
    ln -s pts/ptmx /dev/ptmx && ln -s /proc/self/fd /dev/fd
    export PATH="$work/bin:$PATH" ANSIBLE_NOCOLOR=1
    exec /usr/bin/python3 - "$readme" "$work" <<'PYTHON'
import os
import re
import shutil
import socket
import subprocess
import sys
import threading

readme, work = sys.argv[1], sys.argv[2]
cwd = os.path.join(work, 'cwd')
text = open(readme, encoding='utf-8').read()
# The transcripts show the documented default client version; a build configured with another
# QN_CLIENT_VERSION writes and reports its own.
documented = re.search(r'^\| `QN_CLIENT_VERSION` \| `([^`]+)`', text, re.M).group(1)
built = subprocess.run(['qnpolicy', '--version'], stdout=subprocess.PIPE, check=True,
                       text=True).stdout.split()[-1]
text = text.replace(documented, built)
worked = text.index('### Worked examples')
worked_end = text.index('\n### ', worked + 1)
failures, commands = 0, 0
logger = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
logger.bind('/dev/log')
threading.Thread(target=lambda: [logger.recv(8192) for _ in iter(int, 1)], daemon=True).start()


def run(command):
    done = subprocess.run(['bash', '-c', command], cwd=cwd, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False)
    return done.stdout.decode('utf-8', 'replace')


def transcript(body):
    """Runs each command of a transcript; returns the number that printed something else."""
    global commands
    lines, wrong, i = body.split('\n')[:-1], 0, 0
    while i < len(lines):
        command = lines[i][2:]
        while command.endswith('\\'):
            i += 1
            command += '\n' + lines[i]
        i += 1
        expected = []
        while i < len(lines) and not lines[i].startswith('$ '):
            expected.append(lines[i])
            i += 1
        shown = ''.join(line + '\n' for line in expected)
        cat = re.fullmatch(r'cat (\S+)', command)
        if cat and not os.path.exists(os.path.join(cwd, cat.group(1))):
            with open(os.path.join(cwd, cat.group(1)), 'w', encoding='utf-8') as made:
                made.write(shown)
        commands += 1
        printed = run(command)
        if printed != shown:
            print('FAIL: $ %s\n--- shown\n%s--- printed\n%s' % (command, shown, printed))
            wrong += 1
    return wrong


def ansible_task(body):
    """Runs the copy task with the installer's policy as the repository's file (another owner)."""
    repository = os.path.join(cwd, 'QuillnetLocalPolicy.xml')
    shutil.move('/opt/quillnet/QuillnetLocalPolicy.xml', repository)
    os.chown(repository, 65534, -1)
    play = '- hosts: localhost\n  connection: local\n  gather_facts: false\n  tasks:\n'
    play += ''.join('    ' + line + '\n' for line in body.split('\n')[:-1])
    with open(os.path.join(cwd, 'play.yml'), 'w', encoding='utf-8') as out:
        out.write(play)
    printed = run('ansible-playbook -i localhost, play.yml')
    if 'changed=1' not in printed:
        print('FAIL: the Ansible task did not install the file once: %s' % printed)
        return 1
    return 0


blocks = 0
for match in re.finditer(r'^```(\w*)\n(.*?)^```$', text, re.M | re.S):
    language, body = match.group(1), match.group(2)
    if language == '' and body.startswith('$ '):
        failures += transcript(body)
        blocks += 1
    elif language == 'yaml' and worked < match.start() < worked_end:
        failures += ansible_task(body)
        blocks += 1
if blocks < 8:
    print('FAIL: only %d transcripts and tasks found in the README' % blocks)
    failures += 1
print('README examples: %d blocks, %d commands, %d failed' % (blocks, commands, failures))
sys.exit(1 if failures else 0)
PYTHON
fi

tool=$(realpath "$1")
readme=$(realpath "$2")
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
# Inside a chroot whose root is no mount point (a fresh build root), the propagation of "/"
# cannot be changed; the namespace then keeps it, and the inside unmounts its two scratch
# mounts before it ends, so that none stays behind wherever they propagated.
propagation=private
unshare --mount --propagation private true 2>/dev/null || propagation=unchanged
unshare --mount --propagation "$propagation" bash "$0" --inside "$tool" "$readme" "$work"
