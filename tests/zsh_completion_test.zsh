#!/usr/bin/env zsh
# Drives the generated zsh completion of qnpolicy as a user does: an interactive zsh on a
# pseudo-terminal (zpty) whose compinit finds _qnpolicy in $fpath by its #compdef line, a line
# typed there and <Tab> pressed. What compsys offers is recorded by a compadd function that
# hands every call on to the builtin: the words that match the line (compadd -O) are what the
# user is offered. Checks subcommands, options, option values, directories, file names, and
# installer abbreviations with their allowed values.
#   zsh -f zsh_completion_test.zsh COMPLETION_FILE
zmodload zsh/zpty zsh/zselect || exit 1

completion=${1:A}
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX) || exit 1
trap 'zpty -d qn 2>/dev/null; rm -rf $work' EXIT
mkdir -p $work/functions $work/cwd/sub || exit 1
touch $work/cwd/a.xml
cp $completion $work/functions/_qnpolicy || exit 1

# The interactive shell's setup: compsys (the completion loaded by LOAD), <Tab> completes, ^T
# writes the line as completion left it to $work/line and what was offered since the last ^T
# to $work/offers (sorted, one a line), then clears the line. No list is shown, so no "do you
# wish to see all" question waits for an answer.
write_setup() {
    cat > $work/setup.zsh <<EOF
PS1='> '
stty columns 200 rows 50 2>/dev/null
unsetopt AUTO_LIST AUTO_MENU BEEP
$1
typeset -ga qn_offers
compadd() {
    if (( \${@[(I)-(O|A|D)]} )); then
        builtin compadd "\$@"
        return
    fi
    local -a hits
    builtin compadd -O hits "\$@"
    qn_offers+=(\$hits)
    builtin compadd "\$@"
}
qn-report() {
    print -r -- "\$BUFFER" > $work/line
    print -rl -- \${(ou)qn_offers} > $work/offers.part
    mv $work/offers.part $work/offers
    qn_offers=()
    BUFFER=
}
zle -N qn-report
bindkey '^I' complete-word
bindkey '^T' qn-report
cd $work/cwd
print -r -- ready > $work/offers
EOF
}

# Reads what the shell writes (so that it never blocks on a full terminal) until the offers
# file appears, however long a busy machine takes (the suite's timeout bounds a hang); 1 when
# the shell ends without writing it.
await_offers() {
    local chunk
    while [[ ! -e $work/offers ]]; do
        while zpty -rt qn chunk 2>/dev/null; do :; done
        if ! zpty -t qn; then
            [[ -e $work/offers ]]
            return
        fi
        zselect -t 5
    done
    return 0
}

# Starts an interactive zsh on a pseudo-terminal that loads the completion with LOAD.
start_shell() {
    zpty -d qn 2>/dev/null
    write_setup $1
    zpty qn 'zsh -f -i' || exit 1
    zpty -w qn "source $work/setup.zsh"
    if ! await_offers; then
        print -r -- "FAIL: the interactive zsh did not start with: $1"
        exit 1
    fi
    rm -f $work/offers
}

# Types a command line and presses <Tab>, the cursor at its end: offers is then what was
# offered (sorted, one space between), line what completion made of the line.
offers= line=
press_tab() {
    zpty -w -n qn "$1"$'\t\x14'
    if ! await_offers; then
        offers='<no answer>' line='<no answer>'
        return
    fi
    offers=${(j: :)${(f)"$(<$work/offers)"}}
    line=$(<$work/line)
    rm -f $work/offers $work/line
}

failures=0
expect() {
    press_tab $1
    if [[ $offers != "$2" ]]; then
        print -r -- "FAIL: '$1' offers '$offers', expected '$2'"
        ((failures++))
    fi
}
# A line that completion completes: what it becomes (a space after a finished word, none after
# "ABBREV=" or a directory's "/").
expect_line() {
    press_tab $1
    if [[ $line != "$2" ]]; then
        print -r -- "FAIL: '$1' becomes '$line', expected '$2'"
        ((failures++))
    fi
}

# As installed: compinit finds _qnpolicy in $fpath by its #compdef line and autoloads it.
start_shell "fpath=($work/functions \$fpath); autoload -Uz compinit && compinit -u -D"

expect 'qnpolicy ' 'check comply diff edit generate scap schema set show unset vocabulary'
expect 'qnpolicy gen' 'generate'
expect 'qnpolicy unset up' 'upal upcu uphlp uploc upmv uppp upres upscr upsp upsu upvp'
expect 'qnpolicy --' '--help --install-dir --json --log --quiet --verbose --version'
expect 'qnpolicy --log ' 'stderr syslog'
expect 'qnpolicy --log=s' 'stderr syslog'
expect 'qnpolicy --log syslog ch' 'check'
expect 'qnpolicy --install-dir sub sh' 'show'
expect 'qnpolicy generate --' '--all-defaults --allow-unsafe-directory --args-from --diff --dry-run --help --install-dir --json --lenient --log --overwrite --quiet --verbose'
expect 'qnpolicy check --ig' '--ignore'
expect 'qnpolicy generate up' 'upal= upcu= uphlp= uploc= upmv= uppp= upres= upscr= upsp= upsu= upvp='
expect 'qnpolicy generate fm=' 'false true'
expect 'qnpolicy generate fm=true ecc=' 'false true'
expect 'qnpolicy generate --dry-run upsu=t' 'true'
expect 'qnpolicy generate upal=' ''
expect 'qnpolicy generate rtp=' 'false ipsec tls'
expect 'qnpolicy generate --install-dir ' 'sub'
expect 'qnpolicy check ' 'a.xml sub'
expect 'qnpolicy check --json a' 'a.xml'
expect 'qnpolicy show a' 'a.xml'
expect 'qnpolicy show --origin FipsMode Strict' 'StrictCertificateTrust'
expect 'qnpolicy show --format ' 'flat json text'
expect 'qnpolicy diff ' 'a.xml sub'
expect 'qnpolicy show --install-dir s' 'sub'
expect_line 'qnpolicy gen' 'qnpolicy generate '
expect_line 'qnpolicy generate --ove' 'qnpolicy generate --overwrite '
expect_line 'qnpolicy generate fm' 'qnpolicy generate fm='
expect_line 'qnpolicy generate fm=t' 'qnpolicy generate fm=true '
expect_line 'qnpolicy --log s' 'qnpolicy --log s'
expect_line 'qnpolicy --log sy' 'qnpolicy --log syslog '
expect_line 'qnpolicy --install-dir su' 'qnpolicy --install-dir sub/'

# Without the package: compinit first, then the file sourced registers itself with compdef.
start_shell "autoload -Uz compinit && compinit -u -D && source $work/functions/_qnpolicy"
expect 'qnpolicy ' 'check comply diff edit generate scap schema set show unset vocabulary'
expect 'qnpolicy generate ecc=' 'false true'
expect 'qnpolicy check --json a' 'a.xml'

if ((failures > 0)); then
    echo "zsh completion: $failures failed"
    exit 1
fi
echo "zsh completion: all offers as expected"
