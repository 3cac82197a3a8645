#!/usr/bin/env bash
# SPDX-License-Identifier: GPL-3.0-or-later
# The compliance_report role on a simulated fleet: HOSTS inventory hosts (default 200), each a
# local connection with an install directory of its own, hold the fleet's policy, except a
# known set: five with drift, one lab host whose drift a waiver covers, and five that cannot be
# judged (no client, an unsafe install directory, an unreachable host, no install directory, a
# file the client cannot parse). The report must name exactly the drifted hosts as not
# compliant and the five with their reasons, and its page must render in headless Chromium
# with the matrix, every host that is not compliant, and nothing loaded from outside the page.
# Then the report builder takes 10,000 hosts' synthetic results: the page stays under 5 MB
# and renders. Prints the wall time and the share spent in qnpolicy.
#   integrations/ansible/tests/compliance-fleet.sh [QNPOLICY] [HOSTS] [ARTIFACTS]
# ARTIFACTS (default build/ansible-artifacts) receives the screenshots and the reports.
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
repo=$(cd "$here/../../.." && pwd)
qnpolicy=$(realpath "${1:-${QNPOLICY:-$repo/build/tools/qnpolicy/qnpolicy}}")
hosts=${2:-200}
artifacts=$(realpath -m "${3:-$repo/build/ansible-artifacts}")
if [ ! -x "$qnpolicy" ]; then
    echo "compliance-fleet: no qnpolicy at $qnpolicy; build it first" >&2
    exit 1
fi
if [ "$hosts" -lt 200 ] && [ "$hosts" -ne 0 ]; then
    echo "compliance-fleet: at least 200 hosts (the planted set reaches host 199)" >&2
    exit 1
fi
mkdir -p "$artifacts"
# Under /tmp whatever TMPDIR says: the path audit judges every directory above the policy.
work=$(mktemp -d /tmp/qn-compliance.XXXXXX)
trap 'rm -rf "$work"' EXIT
chmod 0755 "$work"
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

# The time inside qnpolicy, as fleet-simulation.sh takes it.
cat >"$work/qnpolicy" <<SHIM
#!/usr/bin/env bash
start=\${EPOCHREALTIME/,/.}
"$qnpolicy" "\$@"
rc=\$?
echo "\$start \${EPOCHREALTIME/,/.}" >>"$work/qnpolicy.log"
exit \$rc
SHIM
chmod +x "$work/qnpolicy"

cat >"$work/baseline.yml" <<'EOF'
version: 1
settings:
  FipsMode: true
  StrictCertificateTrust: true
  RestrictTunnelProtocols: {one_of: [tls, ipsec]}
  AllowSoftwareUpdatesFromAnyServer: false
  AuthorizedServerList: {subset_of: [gw1.example.com, gw2.example.com]}
severity:
  FipsMode: high
waivers:
  - setting: StrictCertificateTrust
    hosts: [lab-*]
    reason: lab machines, ticket SEC-142
    expires: 2099-12-31
EOF
fleet_policy=(fm=true sct=true rtp=tls upsu=false "upal=gw1.example.com;gw2.example.com")
# The planted set, by host number: drift, and the hosts that cannot be judged with the reason.
declare -A drift=([7]="fm=false" [42]="upal=gw1.example.com;rogue.example.net" [99]="sct=false"
    [123]="upsu=true" [188]="")
declare -A unjudged=([60]=no-qnpolicy [61]=unsafe [62]=unreachable [63]=no-such-directory
    [64]=unreadable)
lab=150 # drift a waiver covers: compliant

name_of() { if [ "$1" -eq "$lab" ]; then printf 'lab-%04d' "$1"; else printf 'web-%04d' "$1"; fi; }

# The fleet: the fleet's policy written once by the tool itself and copied to every host, the
# drifted hosts' own policies written by the tool, then the planted faults.
if [ "$hosts" -gt 0 ]; then
    mkdir "$work/fleet-policy"
    "$qnpolicy" generate --quiet --install-dir "$work/fleet-policy" "${fleet_policy[@]}"
    {
        echo "[fleet]"
        for i in $(seq 1 "$hosts"); do
            name=$(name_of "$i")
            dir="$work/hosts/$name"
            mkdir -p "$dir"
            settings=()
            if [ "$i" -eq "$lab" ]; then
                settings=(sct=false)
            elif [ -n "${drift[$i]+set}" ]; then
                settings=(${drift[$i]})
            fi
            if [ ${#settings[@]} -gt 0 ]; then
                # A later argument for the same setting replaces the fleet's.
                declare -A last=()
                for setting in "${fleet_policy[@]}" "${settings[@]}"; do last[${setting%%=*}]=$setting; done
                "$qnpolicy" generate --quiet --install-dir "$dir" "${last[@]}"
                unset last
            elif [ "${drift[$i]+set}" != set ]; then
                cp "$work/fleet-policy/QuillnetLocalPolicy.xml" "$dir/"
            fi
            line="$name compliance_report_install_dir=$dir/"
            case "${unjudged[$i]:-}" in
                no-qnpolicy) line+=" compliance_report_qnpolicy=$work/not-installed/qnpolicy" ;;
                unsafe) chmod 0777 "$dir" ;;
                unreachable) line+=" ansible_connection=ssh ansible_host=127.0.0.1 ansible_port=9"
                    line+=" ansible_ssh_common_args='-o ConnectTimeout=5 -o BatchMode=yes'" ;;
                no-such-directory) rm -rf "$dir" ;;
                unreadable) echo '<QuillnetLocalPolicy><FipsMode>' >"$dir/QuillnetLocalPolicy.xml" ;;
            esac
            echo "$line"
        done
        echo "[fleet:vars]"
        echo "ansible_connection=local"
        echo "ansible_python_interpreter=/usr/bin/python3"
        echo "compliance_report_qnpolicy=$work/qnpolicy"
    } >"$work/inventory.ini"

    export ANSIBLE_COLLECTIONS_PATH="$repo/integrations/ansible" ANSIBLE_NOCOLOR=1
    export ANSIBLE_FORKS=${ANSIBLE_FORKS:-10} ANSIBLE_PIPELINING=1 ANSIBLE_HOST_KEY_CHECKING=0
    # Read the piped module payloads buffered (see scripts/ansible-tests.sh).
    unset PYTHONUNBUFFERED
    : >"$work/qnpolicy.log"
    start=${EPOCHREALTIME/,/.}
    if ! ansible-playbook -i "$work/inventory.ini" -e "compliance_report_baseline=$work/baseline.yml" \
        -e "compliance_report_dest=$work/report" "$here/compliance-report.yml" >"$work/play.out" 2>&1; then
        tail -n 40 "$work/play.out" >&2
        fail "the compliance report play did not complete"
    fi
    end=${EPOCHREALTIME/,/.}
    cp "$work/report/compliance-report.json" "$work/report/compliance-report.html" "$artifacts/" 2>/dev/null || true

    # The report names exactly the planted hosts.
    expected_drift=$(for i in "${!drift[@]}"; do name_of "$i"; echo; done | sort | paste -sd' ')
    expected_unjudged=$(for i in "${!unjudged[@]}"; do echo "$(name_of "$i")=${unjudged[$i]}"; done | sort | paste -sd' ')
    report="$work/report/compliance-report.json"
    found_drift=$(jq -r '[.hosts[] | select(.status == "not-compliant") | .host] | sort | join(" ")' "$report")
    found_unjudged=$(jq -r '[.hosts[] | select(.status == "unreadable") | "\(.host)=\(.reason)"] | sort | join(" ")' "$report")
    totals=$(jq -c .totals "$report")
    [ "$found_drift" = "$expected_drift" ] || fail "not compliant: '$found_drift', planted '$expected_drift'"
    [ "$found_unjudged" = "$expected_unjudged" ] || fail "not judged: '$found_unjudged', planted '$expected_unjudged'"
    compliant=$((hosts - ${#drift[@]} - ${#unjudged[@]}))
    [ "$totals" = "{\"compliant\":$compliant,\"hosts\":$hosts,\"not_compliant\":${#drift[@]},\"unreadable\":${#unjudged[@]}}" ] ||
        fail "totals $totals"
    [ "$(jq -r --arg h "$(name_of $lab)" '.hosts[] | select(.host == $h) | .states.StrictCertificateTrust' "$report")" = waived ] ||
        fail "the lab host's drift is not waived"
    echo "report: not compliant $found_drift; not judged $found_unjudged; totals $totals"
    awk -v hosts="$hosts" -v forks="$ANSIBLE_FORKS" -v s="$start" -v e="$end" '
        { inside += $2 - $1; calls++ }
        END { wall = e - s
              printf "compliance report run: %d hosts, forks %d: wall time %.2f s, %.1f ms per host; %d qnpolicy runs, %.1f ms each; share in qnpolicy %.1f%%\n",
                  hosts, forks, wall, 1000 * wall / hosts, calls, 1000 * inside / calls, 100 * inside / (wall * forks) }' "$work/qnpolicy.log"
fi

# render PAGE NAME: headless Chromium's DOM of the page into $work/NAME.dom and its screenshot,
# kept in the artifacts, from one launch (Chromium runs both commands on the page it loaded),
# with a profile of its own that loads nothing for itself.
render() {
    local page=$1 name=$2
    rm -f "$artifacts/$name.png"
    local flags=(--headless --no-sandbox --disable-gpu --no-first-run --disable-background-networking
        --disable-component-update --disable-sync --hide-scrollbars --user-data-dir="$work/chromium-profile")
    timeout 120 chromium "${flags[@]}" --window-size=1400,1800 --dump-dom --screenshot="$artifacts/$name.png" \
        "file://$page" >"$work/$name.dom" 2>"$work/$name.err" ||
        fail "chromium --dump-dom --screenshot $page: $(tail -n 3 "$work/$name.err")"
    [ -s "$work/$name.dom" ] || fail "no DOM of $page"
    [ -s "$artifacts/$name.png" ] || fail "no screenshot of $page"
    echo "screenshot: $artifacts/$name.png"
}

# self_contained PAGE: no script, and nothing the page could load: no source, no link but to
# its own anchors, no style import or url(), and a policy that forbids any load.
self_contained() {
    local page=$1
    local loads
    loads=$(grep -Eoi '<script|(src|href|action|srcset|data|poster)="[^#"][^"]*"|url\(|@import' "$page" | head -n 3 || true)
    [ -z "$loads" ] || fail "$page loads from outside: $loads"
    grep -q "default-src 'none'" "$page" || fail "$page has no policy forbidding loads"
}

if [ "$hosts" -gt 0 ]; then
    page="$work/report/compliance-report.html"
    self_contained "$page"
    render "$page" compliance-report
    grep -q 'id="matrix"' "$work/compliance-report.dom" || fail "the rendered page has no matrix"
    for host in $found_drift $(sed "s/=[a-z-]*//g" <<<"$found_unjudged"); do
        grep -q ">$host</a>" "$work/compliance-report.dom" || fail "the rendered matrix lacks $host"
    done
fi

# 10,000 hosts' synthetic results through the report builder.
PYTHONPATH="$repo/integrations/ansible" /usr/bin/python3 "$here/synthetic_fleet.py" 10000 "$work/large.html" \
    "$work/large.hosts" || fail "the report builder failed on 10,000 hosts"
size=$(stat -c %s "$work/large.html")
[ "$size" -lt 5000000 ] || fail "the 10,000-host page is $size bytes"
self_contained "$work/large.html"
render "$work/large.html" compliance-report-10000
rows=$(grep -o '<tr><th><a href="#h-' "$work/compliance-report-10000.dom" | wc -l)
[ "$rows" -eq "$(wc -l <"$work/large.hosts")" ] || fail "the 10,000-host matrix has $rows host rows"
echo "10,000 hosts: page $size bytes, $rows host rows rendered"

if ((failures > 0)); then
    echo "compliance fleet: $failures failed"
    exit 1
fi
echo "compliance fleet: PASSED"
