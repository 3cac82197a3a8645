#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Drives the generated bash completion of qnpolicy as bash does on <Tab> and checks what it
# offers: subcommands, options, option values, directories, file names, and installer
# abbreviations with their allowed values.
#   shell_completion_test.sh COMPLETION_SCRIPT
set -uo pipefail
# shellcheck source=completion_expect.sh
source "$(dirname "${BASH_SOURCE[0]}")/completion_expect.sh"
# shellcheck source=/dev/null
source /usr/share/bash-completion/bash_completion
# shellcheck source=/dev/null
source "$1"

work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
cd "$work" || exit 1
mkdir sub
touch a.xml

# The sorted offers for a command line, the cursor at its end. Words are split as readline
# splits them: at blanks, and at "=" (one of COMP_WORDBREAKS), which is a word of its own.
offers() {
    local line=$1
    COMP_LINE=$line
    COMP_POINT=${#line}
    COMP_WORDS=()
    local word
    for word in $line; do
        while [[ $word == *=* ]]; do
            [[ -n ${word%%=*} ]] && COMP_WORDS+=("${word%%=*}")
            COMP_WORDS+=("=")
            word=${word#*=}
        done
        [[ -n $word ]] && COMP_WORDS+=("$word")
    done
    [[ $line == *' ' ]] && COMP_WORDS+=("")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    _qnpolicy 2>/dev/null
    printf '%s\n' "${COMPREPLY[@]}" | sort | paste -sd' '
}

expect 'qnpolicy ' 'check comply diff edit generate scap schema set show unset vocabulary'
expect 'qnpolicy --' '--help --install-dir --json --log --quiet --verbose --version'
expect 'qnpolicy --log ' 'stderr syslog'
expect 'qnpolicy --log syslog ch' 'check'
expect 'qnpolicy generate --' '--all-defaults --allow-unsafe-directory --args-from --diff --dry-run --help --install-dir --json --lenient --log --overwrite --quiet --verbose'
expect 'qnpolicy generate up' 'upal= upcu= uphlp= uploc= upmv= uppp= upres= upscr= upsp= upsu= upvp='
expect 'qnpolicy unset up' 'upal upcu uphlp uploc upmv uppp upres upscr upsp upsu upvp'
expect 'qnpolicy generate fm=true ecc=' 'false true'
expect 'qnpolicy generate rtp=' 'false ipsec tls'
expect 'qnpolicy generate rtp=i' 'ipsec'
expect 'qnpolicy generate upal=' ''
expect 'qnpolicy generate --install-dir ' 'sub'
expect 'qnpolicy check ' 'a.xml sub'
expect 'qnpolicy check --json a' 'a.xml'
expect 'qnpolicy show a' 'a.xml'
expect 'qnpolicy show --origin FipsMode Strict' 'StrictCertificateTrust'
expect 'qnpolicy show --format ' 'flat json text'
expect 'qnpolicy diff ' 'a.xml sub'
expect 'qnpolicy show --install-dir s' 'sub'

finish "shell completion"
