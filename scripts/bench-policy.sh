#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Writes the benchmarks' large policy: the document as the module writes it, a few settings,
# then SERVERS authorized servers (gw000000.example.com, ...), mode 0644.
#
#   scripts/bench-policy.sh FILE [SERVERS]   (default 100000)
set -euo pipefail
file=${1:?usage: bench-policy.sh FILE [SERVERS]}
servers=${2:-100000}
{
    printf '<?xml version="1.0" encoding="UTF-8"?>\n'
    printf '<QuillnetLocalPolicy xmlns="http://schemas.xmlsoap.org/encoding/" xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance" xsi:schemaLocation="http://schemas.xmlsoap.org/encoding/ QuillnetLocalPolicy.xsd" qnversion="5.1.8.105">\n'
    printf '    <BypassDownloader>true</BypassDownloader>\n    <FipsMode>true</FipsMode>\n'
    printf '    <UpdatePolicy>\n        <AllowSoftwareUpdatesFromAnyServer>false</AllowSoftwareUpdatesFromAnyServer>\n'
    printf '        <AuthorizedServerList>\n'
    awk -v n="$servers" 'BEGIN { for (i = 0; i < n; i++) printf "            <ServerName>gw%06d.example.com</ServerName>\n", i }'
    printf '        </AuthorizedServerList>\n    </UpdatePolicy>\n</QuillnetLocalPolicy>\n'
} >"$file"
chmod 0644 "$file"
