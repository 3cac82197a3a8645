#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# The generated manual pages render without a warning at 80 columns, qnpolicy(1) describes
# every subcommand the tool's --help lists, and QuillnetLocalPolicy.xml(5) every element the
# tool's vocabulary names, and qnpolicy-baseline(5) the values of every element a baseline
# names (all but ServerName, which is an entry of the server list).
#   manual_pages_test.sh QNPOLICY TOOL_PAGE FILE_PAGE BASELINE_PAGE
set -uo pipefail
tool=$1 tool_page=$2 file_page=$3 baseline_page=$4
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

for page in "$tool_page" "$file_page" "$baseline_page"; do
    warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 >/dev/null)
    [[ -z $warnings ]] || fail "$page: $warnings"
done

tool_text=$(MANWIDTH=80 man -l "$tool_page" 2>/dev/null)
for subcommand in $("$tool" --help | sed -n '/^Subcommands:/,/^$/{s/^  \([a-z]\+\) .*/\1/p}'); do
    grep -q "^   $subcommand\$" <<<"$tool_text" || fail "qnpolicy(1) has no section $subcommand"
done
grep -q '^EXIT STATUS' <<<"$tool_text" || fail "qnpolicy(1) has no EXIT STATUS"

file_text=$(MANWIDTH=200 man -l "$file_page" 2>/dev/null)
for element in $("$tool" vocabulary --json | sed -n 's/.*"element": *"\([A-Za-z]*\)".*/\1/p') ServerName; do
    grep -q "^       $element\$" <<<"$file_text" || fail "the file page does not describe $element"
done

baseline_text=$(MANWIDTH=200 man -l "$baseline_page" 2>/dev/null)
for element in $("$tool" vocabulary --json | sed -n 's/.*"element": *"\([A-Za-z]*\)".*/\1/p'); do
    grep -q "^       $element\$" <<<"$baseline_text" || fail "the baseline page does not describe $element"
done

if ((failures > 0)); then
    echo "manual pages: $failures failed"
    exit 1
fi
echo "manual pages: render cleanly and describe every subcommand and element, and its baseline values"
