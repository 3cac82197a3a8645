#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Writes the benchmarks' policies, mode 0644:
#   the large one: the document as the module writes it, a few settings, then SERVERS
#   authorized servers (gw000000.example.com, ...);
#   the typical one: every installer setting and five servers, as qnpolicy generate writes it
#   into DIR.
#
#   scripts/bench-policy.sh FILE [SERVERS]           (default 100000)
#   scripts/bench-policy.sh --typical QNPOLICY DIR
set -euo pipefail
if [ "${1:-}" = "--typical" ]; then
    tool=${2:?usage: bench-policy.sh --typical QNPOLICY DIR}
    dir=${3:?usage: bench-policy.sh --typical QNPOLICY DIR}
    "$tool" generate --quiet --install-dir "$dir" fm=true bd=true bdl=false rswd=true rhwd=true \
        rrwd=true rlwd=true rwl=true sct=true ecc=true orc=true rpc=Credentials,Thumbprints \
        rtp=tls efn=true epf=true emn=false ewn=false rsc=false upsu=false upcu=false \
        upvp=false upmv=false uppp=false upsp=false upscr=false uphlp=false upres=false \
        uploc=false "upal=$(printf 'gw%06d.example.com;' 0 1 2 3 4)"
    chmod 0644 "$dir/QuillnetLocalPolicy.xml"
    exit 0
fi
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
