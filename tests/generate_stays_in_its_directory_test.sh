#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# qnpolicy generate --overwrite creates nothing outside the install directory it writes: no
# system call of the run creates, links or renames anything elsewhere (strace), and a SIGKILL
# at each file or descriptor call of the run in turn leaves nothing elsewhere either (the
# temporary directory the tool is given stays empty) and leaves the policy file whole: the old
# document or the new one.
#   generate_stays_in_its_directory_test.sh QNPOLICY
set -uo pipefail
tool=$1
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
dir="$work/install"
tmp="$work/tmp"
mkdir "$dir" "$tmp"
args=(generate --overwrite --install-dir "$dir" fm=true bd=true 'upal=gw1;gw2')
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}
# LeakSanitizer cannot run under strace's ptrace; the sanitizer builds run this test too.
run() {
    TMPDIR=$tmp HOME=$tmp ASAN_OPTIONS=${ASAN_OPTIONS:+$ASAN_OPTIONS:}detect_leaks=0 "$@" \
        >/dev/null 2>&1
}

# The old document, and the new one as the tool writes it.
run "$tool" generate --install-dir "$dir" fm=false || fail "the first generate failed"
old=$(cat "$dir/QuillnetLocalPolicy.xml")
new=$(TMPDIR=$tmp "$tool" "${args[@]/--overwrite/--dry-run}" 2>/dev/null)

# Every call that can create an entry, with the path it names; a relative name is relative to
# a directory's descriptor, which strace -y shows with its path: the install directory's.
run strace -f -y -qq -o "$work/trace" -e trace=%file,%desc "$tool" "${args[@]}" ||
    fail "generate under strace failed"
created=0
while read -r call; do
    created=$((created + 1))
    case $call in
        *\(\"$dir/*) ;;  # a path inside the install directory
        *\(*"<$dir>, \""* | *", "*"<$dir>, \""*) ;;  # relative to its descriptor
        *) fail "created outside $dir: $call" ;;
    esac
done < <(grep -E '^[0-9]+ +((mkdir|mkdirat|link|linkat|symlink|symlinkat|rename|renameat|renameat2|creat)\(|(open|openat)\(.*(O_CREAT|O_TMPFILE))' \
    "$work/trace" | grep -v '= -1 ')
((created >= 3)) || fail "only $created creating calls were seen (open, link, rename expected)"

# Each file and descriptor call of the run, by name and invocation, killed in turn, from the
# first that reaches the test's tree on. Only such calls change the file system, and none
# before that one can touch the tree, so a kill at any other call (memory management, the
# loader, a sanitizer's start and allocator: hundreds of calls) leaves what a kill at one of
# these leaves.
run strace -f -y -qq -o "$work/calls" -e trace=%file,%desc "$tool" "${args[@]}"
declare -A counts=()
targets=()
reached=0
while read -r line; do
    [[ $line =~ ^[0-9]+\ +([a-z_0-9]+)\( ]] || continue
    name=${BASH_REMATCH[1]}
    counts[$name]=$((${counts[$name]:-0} + 1))
    # A call reaches the tree when it names a path in it or a descriptor of it. Not execve,
    # which names it in its arguments, nor a read of the environment (TMPDIR names it), which
    # a sanitizer makes at its start.
    [[ $name != execve && ($line == *\""$work"* || $line == *\<"$work"*) ]] && reached=1
    # A mapping changes no file: a sanitizer's allocator makes hundreds.
    ((reached)) && [ "$name" != mmap ] && targets+=("$name ${counts[$name]}")
done <"$work/calls"
kills=0
for target in "${targets[@]}"; do
    read -r name invocation <<<"$target"
    run "$tool" generate --overwrite --install-dir "$dir" fm=false
    # strace dies of the signal it injects; the shell's report of that is no news.
    { run strace -f -qq -o /dev/null -e inject="$name:signal=KILL:when=$invocation" \
        "$tool" "${args[@]}"; } 2>/dev/null
    kills=$((kills + 1))
    if [ -n "$(ls -A "$tmp")" ]; then
        fail "killed at $name #$invocation: left $(ls -A "$tmp") in the temporary directory"
        rm -rf "${tmp:?}"/* "${tmp:?}"/.[!.]*
    fi
    content=$(cat "$dir/QuillnetLocalPolicy.xml")
    if [ "$content" != "$old" ] && [ "$content" != "$new" ]; then
        fail "killed at $name #$invocation: the policy file is neither document"
    fi
    # The writers' lock file stays by design: it is created once and never removed.
    leftovers=$(ls -A "$dir" | grep -v '^QuillnetLocalPolicy.xml$' | grep -v '^\.QuillnetLocalPolicy\.lock$' |
        grep -v '^\.QuillnetLocalPolicy\.xml\.[0-9]*\.......$')
    [ -z "$leftovers" ] || fail "killed at $name #$invocation: left $leftovers"
done
((kills > 20)) || fail "only $kills system calls were found to kill at"

if ((failures > 0)); then
    echo "generate: $failures failed"
    exit 1
fi
echo "generate: nothing created outside the install directory, at any of $kills kills"
