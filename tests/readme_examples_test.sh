#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The README's worked examples, run as printed: each fenced block of the section "Worked
# examples" (shell blocks with bash, the Ansible task with ansible-playbook on localhost), with
# the built qnpolicy first on PATH, in a private mount namespace where /opt and /srv are
# scratch directories, so that /opt/quillnet and /srv/policies are what the examples name.
#   readme_examples_test.sh QNPOLICY README
set -uo pipefail
if [ "${1:-}" = --inside ]; then
    shift
    tool=$1 readme=$2 work=$3
    # Unmounted explicitly as well: in a chroot the namespace may share its mounts (below).
    trap 'umount /srv /opt 2>/dev/null' EXIT
    mount -t tmpfs tmpfs /opt && mount -t tmpfs tmpfs /srv || exit 1
    mkdir -p /opt/quillnet /srv/policies
    chmod 0755 /opt /srv /opt/quillnet /srv/policies
    mkdir "$work/bin" && ln -s "$tool" "$work/bin/qnpolicy"
    export PATH="$work/bin:$PATH"
    failures=0
    fail() {
        echo "FAIL: $*"
        failures=$((failures + 1))
    }
    # The blocks: "lang<TAB>file" per block, each block's text in its own file.
    awk -v dir="$work" '
        /^### Worked examples/ { inside = 1; next }
        /^### / && inside { exit }
        inside && /^```(sh|yaml)$/ { n++; lang = substr($0, 4); file = dir "/block" n; print lang "\t" file; next }
        inside && /^```$/ { file = ""; next }
        file != "" { print > file }
    ' "$readme" >"$work/blocks"
    # What each block must print (a fixed text in its output), in the README's order.
    expected=("Wrote the policy file /opt/quillnet/QuillnetLocalPolicy.xml." "changed=1"
        "written" "tls" "true")
    index=0
    while IFS=$'\t' read -r lang file; do
        if [ "$lang" = yaml ]; then
            # The repository's policy: what the installer example wrote, with another owner.
            cp /opt/quillnet/QuillnetLocalPolicy.xml "$work/QuillnetLocalPolicy.xml"
            rm /opt/quillnet/QuillnetLocalPolicy.xml
            chown 65534 "$work/QuillnetLocalPolicy.xml"
            {
                printf -- '- hosts: localhost\n  connection: local\n  gather_facts: false\n  tasks:\n'
                sed 's/^/    /' "$file"
            } >"$work/play.yml"
            output=$(cd "$work" && ANSIBLE_NOCOLOR=1 ansible-playbook -i localhost, play.yml 2>&1)
        else
            output=$(cd "$work" && bash "$file" 2>&1)
        fi
        status=$?
        if [ $status -ne 0 ]; then
            fail "block $((index + 1)) ($lang) exited with $status: $output"
        elif [[ $output != *"${expected[$index]:-(no expectation)}"* ]]; then
            fail "block $((index + 1)) ($lang) did not print '${expected[$index]:-}': $output"
        fi
        index=$((index + 1))
    done <"$work/blocks"
    [ $index -eq ${#expected[@]} ] || fail "$index blocks in the README, ${#expected[@]} expected"
    if ((failures > 0)); then
        echo "README examples: $failures failed"
        exit 1
    fi
    echo "README examples: all $index blocks ran as printed"
    exit 0
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
