#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# qnpolicy on hostile input: its CPU time (user + system, which other work on the machine does
# not inflate), peak memory and output size, each against its bound. First `check` on hostile
# 20 MB policy files: 873,000 misspelt elements (each an unknown-element finding), and 873,000
# repetitions of a setting with a text the client takes as false (a non-boolean-value and a
# duplicate-setting finding each); bounds 1 s, 64 MiB, 1 MB. Then `check -` on endless
# standard input: zeros, small unknown elements, misspelt settings; each must stop at the first
# error or at the 64 MiB a stream may hold (exit 2), within 8 s (a stream is read to its limit,
# three times the files), 64 MiB and 1 MB. Last `generate --args-from -` on endless zeros and
# endless argument lines: refused (65) once more than 64 MiB have come, within 8 s, 72 MiB (the
# 64 MiB of arguments are held whole, since every argument is checked before anything is
# written) and 1 MB. Exits non-zero when a bound is passed.
#
#   scripts/bench-hostile-check.sh [QNPOLICY]      default build/tools/qnpolicy/qnpolicy
set -euo pipefail
shopt -s lastpipe  # a pipeline's last command, timed, sets this shell's variables
tool=${1:-build/tools/qnpolicy/qnpolicy}
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
elements=873000
status=0

write() {
    local element=$1 text=$2
    awk -v n="$elements" -v e="$element" -v t="$text" 'BEGIN {
        print "<QuillnetLocalPolicy>"
        for (i = 0; i < n; i++) printf "<%s>%s</%s>\n", e, t, e
        print "</QuillnetLocalPolicy>"
    }'
}

endless() {
    case $1 in
        zeros) cat /dev/zero ;;
        elements) echo '<QuillnetLocalPolicy>' && yes '<a/>' ;;
        misspelt) echo '<QuillnetLocalPolicy>' && yes '<FipMode>true</FipMode>' ;;
        arguments) yes 'fm=true' ;;
    esac
}

# Runs a command under /usr/bin/time with standard output to $work/out and standard error to
# $work/err; sets code (its status), seconds (CPU) and mib (peak memory).
timed() {
    set +e
    /usr/bin/time -f '%U %S %M' -o "$work/time" "$@" >"$work/out" 2>"$work/err"
    code=$?
    set -e
    local user system kib
    read -r user system kib < <(tail -n 1 "$work/time")
    seconds=$(awk -v u="$user" -v s="$system" 'BEGIN { printf "%.2f", u + s }')
    mib=$(awk -v k="$kib" 'BEGIN { printf "%.1f", k / 1024 }')
}

# "  MISSED" when seconds, mib or bytes passes its bound (MAX_SECONDS MAX_MIB), and status 1.
judge() {
    verdict=""
    if awk -v s="$seconds" -v m="$mib" -v b="$bytes" -v ms="$1" -v mm="$2" \
        'BEGIN { exit !(s > ms || m > mm || b > 1000000) }'; then
        verdict="  MISSED"
        status=1
    fi
}

# Requires the run's exit status.
expect() {
    [ "$code" -eq "$1" ] || { echo "$2 exited with $code" >&2; cat "$work/err" >&2; exit 1; }
}

write FipMode true >"$work/misspelt.xml"
write FipsMode TRUE >"$work/repeated.xml"
printf '\nqnpolicy check on hostile files (bounds: 1 s of CPU, 64 MiB, 1 MB of output)\n'
printf '%-10s %10s %10s %9s %9s %12s\n' file bytes findings seconds MiB 'output bytes'
for name in misspelt repeated; do
    file="$work/$name.xml"
    timed "$tool" check --ignore file-owner "$file"
    expect 1 "check $name"  # it has findings
    bytes=$(stat -c %s "$work/out")
    findings=$(tail -n 1 "$work/out" | awk '{ print $2 }')
    judge 1 64
    printf '%-10s %10s %10s %9s %9s %12s%s\n' "$name" "$(stat -c %s "$file")" "$findings" \
        "$seconds" "$mib" "$bytes" "$verdict"
done

printf '\nqnpolicy check - on endless standard input (bounds: 8 s of CPU, 64 MiB, 1 MB of output)\n'
printf '%-10s %9s %9s %12s  %s\n' input seconds MiB 'output bytes' 'why it stopped'
for name in zeros elements misspelt; do
    # The generator ends on SIGPIPE once check has stopped reading.
    endless "$name" 2>/dev/null | timed "$tool" check - || true
    expect 2 "check - on $name"  # the input cannot be read to its end
    bytes=$(stat -c %s "$work/out")
    why=$(tail -n 1 "$work/out" | sed -E 's/^[^ ]* unreadable: ([^.]*)\..*/\1/')
    judge 8 64
    printf '%-10s %9s %9s %12s  %s%s\n' "$name" "$seconds" "$mib" "$bytes" "$why" "$verdict"
done

mkdir -m 755 "$work/install"
printf '\nqnpolicy generate --args-from - on endless standard input (bounds: 8 s of CPU, 72 MiB, 1 MB of output)\n'
printf '%-10s %9s %9s %12s  %s\n' input seconds MiB 'output bytes' 'why it stopped'
for name in zeros arguments; do
    endless "$name" 2>/dev/null |
        timed "$tool" generate --dry-run --install-dir "$work/install" --args-from - || true
    expect 65 "generate --args-from - on $name"  # refused input
    bytes=$(($(stat -c %s "$work/out") + $(stat -c %s "$work/err")))
    why=$(head -n 1 "$work/err" | sed -E 's/^.*standard input\): //')
    judge 8 72
    printf '%-10s %9s %9s %12s  %s%s\n' "$name" "$seconds" "$mib" "$bytes" "$why" "$verdict"
done
exit $status
