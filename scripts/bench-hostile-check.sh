#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# qnpolicy check on hostile 20 MB policy files: its wall-clock time, peak memory and output
# size, against the bounds of at most 1 s, 64 MiB and 1 MB. The files: 873,000 misspelt
# elements (each an unknown-element finding), and 873,000 repetitions of a setting with a
# text the client takes as false (a non-boolean-value and a duplicate-setting finding each).
# Then `check -` on endless standard input: zeros, small unknown elements, misspelt settings;
# each must stop at the first error or at the 64 MiB a stream may hold, within 64 MiB of
# memory and 1 MB of output, and 8 s (a stream is read to its limit, three times the files).
# Exits non-zero when a bound is passed.
#
#   scripts/bench-hostile-check.sh [QNPOLICY]      default build/tools/qnpolicy/qnpolicy
set -euo pipefail
tool=${1:-build/tools/qnpolicy/qnpolicy}
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT
elements=873000

write() {
    local element=$1 text=$2
    awk -v n="$elements" -v e="$element" -v t="$text" 'BEGIN {
        print "<QuillnetLocalPolicy>"
        for (i = 0; i < n; i++) printf "<%s>%s</%s>\n", e, t, e
        print "</QuillnetLocalPolicy>"
    }'
}
write FipMode true >"$work/misspelt.xml"
write FipsMode TRUE >"$work/repeated.xml"

printf '\nqnpolicy check on hostile files (bounds: 1 s, 64 MiB, 1 MB of output)\n'
printf '%-10s %10s %10s %9s %9s %12s\n' file bytes findings seconds MiB 'output bytes'
status=0
for name in misspelt repeated; do
    file="$work/$name.xml"
    # check exits 1: it has findings.
    /usr/bin/time -f '%e %M' -o "$work/time" "$tool" check --ignore file-owner "$file" \
        >"$work/out" 2>"$work/err" || [ $? -eq 1 ] || { cat "$work/err" >&2; exit 1; }
    read -r seconds kib < <(tail -n 1 "$work/time")
    mib=$(awk -v k="$kib" 'BEGIN { printf "%.1f", k / 1024 }')
    bytes=$(stat -c %s "$work/out")
    findings=$(tail -n 1 "$work/out" | awk '{ print $2 }')
    verdict=""
    if awk -v s="$seconds" -v m="$mib" -v b="$bytes" 'BEGIN { exit !(s > 1 || m > 64 || b > 1000000) }'; then
        verdict="  MISSED"
        status=1
    fi
    printf '%-10s %10s %10s %9s %9s %12s%s\n' "$name" "$(stat -c %s "$file")" "$findings" \
        "$seconds" "$mib" "$bytes" "$verdict"
done

endless() {
    case $1 in
        zeros) cat /dev/zero ;;
        elements) echo '<QuillnetLocalPolicy>' && yes '<a/>' ;;
        misspelt) echo '<QuillnetLocalPolicy>' && yes '<FipMode>true</FipMode>' ;;
    esac
}
printf '\nqnpolicy check - on endless standard input (bounds: 8 s, 64 MiB, 1 MB of output)\n'
printf '%-10s %9s %9s %12s  %s\n' input seconds MiB 'output bytes' 'why it stopped'
for name in zeros elements misspelt; do
    # check exits 2: the input cannot be read to its end. The generator ends on SIGPIPE.
    set +e
    endless "$name" 2>/dev/null | /usr/bin/time -f '%e %M' -o "$work/time" "$tool" check - \
        >"$work/out" 2>"$work/err"
    checked=${PIPESTATUS[1]}
    set -e
    [ "$checked" -eq 2 ] || { echo "check - on $name exited with $checked" >&2; exit 1; }
    read -r seconds kib < <(tail -n 1 "$work/time")
    mib=$(awk -v k="$kib" 'BEGIN { printf "%.1f", k / 1024 }')
    bytes=$(stat -c %s "$work/out")
    why=$(tail -n 1 "$work/out" | sed -E 's/^[^ ]* unreadable: ([^.]*)\..*/\1/')
    verdict=""
    if awk -v s="$seconds" -v m="$mib" -v b="$bytes" 'BEGIN { exit !(s > 8 || m > 64 || b > 1000000) }'; then
        verdict="  MISSED"
        status=1
    fi
    printf '%-10s %9s %9s %12s  %s%s\n' "$name" "$seconds" "$mib" "$bytes" "$why" "$verdict"
done
exit $status
