#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Drives the generated fish completion of qnpolicy through fish itself (complete -C, what fish
# offers on <Tab> for a command line) and checks what it offers: subcommands, options, option
# values, directories, file names, and installer abbreviations with their allowed values.
# fish offers a whole token, so an allowed value comes with its "ABBREV=", a directory with "/".
#   fish_completion_test.sh COMPLETION_SCRIPT
set -uo pipefail
# shellcheck source=completion_expect.sh
source "$(dirname "${BASH_SOURCE[0]}")/completion_expect.sh"
completion=$(realpath "$1")

work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/cwd/sub"
touch "$work/cwd/a.xml"
cd "$work/cwd" || exit 1

# The sorted offers for a command line, the cursor at its end, without their descriptions.
# Only this completion is loaded: none from fish's own directories, no configuration; what
# fish keeps of its own goes to the scratch directory, not the home directory.
offers() {
    XDG_CONFIG_HOME="$work/config" XDG_DATA_HOME="$work/data" fish --no-config \
        -c 'set -g fish_complete_path; source $argv[1]; complete -C $argv[2]' \
        "$completion" "$1" | cut -f1 | sort | paste -sd' '
}

expect 'qnpolicy ' 'check comply diff edit generate scap schema set show unset vocabulary'
expect 'qnpolicy gen' 'generate'
expect 'qnpolicy unset up' 'upal upcu uphlp uploc upmv uppp upres upscr upsp upsu upvp'
expect 'qnpolicy --' '--help --install-dir --json --log --quiet --verbose --version'
expect 'qnpolicy --log ' 'stderr syslog'
expect 'qnpolicy --log=s' '--log=stderr --log=syslog'
expect 'qnpolicy --log syslog ch' 'check'
expect 'qnpolicy generate --' '--all-defaults --allow-unsafe-directory --args-from --diff --dry-run --help --install-dir --json --lenient --log --overwrite --quiet --verbose'
expect 'qnpolicy check --ig' '--ignore'
expect 'qnpolicy generate up' 'upal= upcu= uphlp= uploc= upmv= uppp= upres= upscr= upsp= upsu= upvp='
expect 'qnpolicy generate fm=' 'fm=false fm=true'
expect 'qnpolicy generate fm=true ecc=' 'ecc=false ecc=true'
expect 'qnpolicy generate --dry-run upsu=t' 'upsu=true'
expect 'qnpolicy generate upal=' ''
expect 'qnpolicy generate rtp=' 'rtp=false rtp=ipsec rtp=tls'
expect 'qnpolicy generate --install-dir ' 'sub/'
expect 'qnpolicy check ' 'a.xml sub/'
expect 'qnpolicy check --json a' 'a.xml'
expect 'qnpolicy show a.' 'a.xml'
expect 'qnpolicy show --origin FipsMode Strict' 'StrictCertificateTrust'
expect 'qnpolicy show --format ' 'flat json text'
expect 'qnpolicy diff ' 'a.xml sub/'
expect 'qnpolicy show --install-dir s' 'sub/'
expect 'qnpolicy vocabulary ' ''

finish "fish completion"
