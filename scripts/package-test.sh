#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Installs the Debian packages of PACKAGE_DIR (default build-package/) into this system with
# dpkg -i, uses what they install, then removes and purges them and checks that nothing of
# theirs is left. Needs root; the packages must not be installed already.
#   package-test.sh [PACKAGE_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
packages_dir=$(realpath "${1:-$root/build-package}")
packages=(libquillnet-localpolicy1 libquillnet-localpolicy-dev qnpolicy)
version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
failures=0

fail() {
    echo "package-test: FAIL: $*" >&2
    failures=$((failures + 1))
}
installed() {
    dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}
cleanup() {
    for package in "${packages[@]}"; do
        if dpkg-query -W "$package" > /dev/null 2>&1; then
            dpkg -P "$package" > /dev/null 2>&1 || true
        fi
    done
    rm -rf "$work"
}

if [ "$(id -u)" -ne 0 ]; then
    echo "package-test: installs packages into the system; run as root" >&2
    exit 1
fi
for package in "${packages[@]}"; do
    if dpkg-query -W "$package" > /dev/null 2>&1; then
        echo "package-test: $package is installed already; remove it first" >&2
        exit 1
    fi
done
trap cleanup EXIT

dpkg -i "$packages_dir"/libquillnet-localpolicy1_"$version"_*.deb \
    "$packages_dir"/libquillnet-localpolicy-dev_"$version"_*.deb \
    "$packages_dir"/qnpolicy_"$version"_*.deb
for package in "${packages[@]}"; do
    installed "$package" || fail "$package is not installed"
done
# Every file the packages hold, to check after removal, and their configuration files, which
# removal keeps and purging removes.
mapfile -t owned < <(dpkg -L "${packages[@]}" | sort -u)
mapfile -t conffiles < <(dpkg-query -W -f='${Conffiles}\n' "${packages[@]}" | awk 'NF { print $1 }')

# The tool, its manual pages and its completion.
[ "$(qnpolicy --version)" = "qnpolicy $version" ] || fail "qnpolicy --version: $(qnpolicy --version)"
man -w qnpolicy > /dev/null || fail "man -w qnpolicy finds no page"
man -w 5 QuillnetLocalPolicy.xml > /dev/null || fail "man -w 5 QuillnetLocalPolicy.xml finds no page"
for page in "$(man -w qnpolicy)" "$(man -w 5 QuillnetLocalPolicy.xml)"; do
    warnings=$(MANWIDTH=80 man --warnings -l "$page" 2>&1 > /dev/null)
    [ -z "$warnings" ] || fail "$page: $warnings"
done
offers=$(bash -c 'source /usr/share/bash-completion/bash_completion
    _completion_loader qnpolicy
    COMP_WORDS=(qnpolicy gen); COMP_CWORD=1; COMP_LINE="qnpolicy gen"; COMP_POINT=12
    _qnpolicy 2>/dev/null; echo "${COMPREPLY[*]}"')
[ "$offers" = "generate" ] || fail "bash completion of 'qnpolicy gen' offers '$offers'"

# The schema: what the tool prints, found through the XML catalog by the name the
# documents' xsi:schemaLocation gives, and valid documents validate against it.
qnpolicy schema | cmp -s - /usr/share/xml/quillnet/QuillnetLocalPolicy.xsd ||
    fail "qnpolicy schema differs from the installed schema"
mkdir -p "$work/install"
qnpolicy generate --install-dir "$work/install" fm=true bd=true "upal=gw1.example.com;gw2" \
    2> /dev/null > /dev/null
(cd "$work" && xmllint --noout --nonet --schema QuillnetLocalPolicy.xsd \
    install/QuillnetLocalPolicy.xml 2> /dev/null) ||
    fail "xmllint does not validate a generated policy through the XML catalog"
(cd "$work" && ! xmllint --noout --nonet --schema QuillnetLocalPolicy.xsd \
    "$root/examples/flawed-policy.xml" 2> /dev/null) || fail "the flawed sample validates"

# The metrics service and timer: accepted by systemd-analyze as installed, and not enabled.
systemd-analyze verify /lib/systemd/system/qnpolicy-metrics.service \
    /lib/systemd/system/qnpolicy-metrics.timer > "$work/verify" 2>&1 ||
    fail "systemd-analyze verify: $(cat "$work/verify")"
[ ! -e /etc/systemd/system/timers.target.wants/qnpolicy-metrics.timer ] ||
    fail "installing qnpolicy enabled qnpolicy-metrics.timer"
[ "$(. /etc/default/qnpolicy && echo "$QNPOLICY_BASELINE")" = /etc/quillnet/qnpolicy-baseline.yml ] ||
    fail "/etc/default/qnpolicy does not name the baseline"

# The library: the consumer built against /usr with find_package and with pkg-config, shared
# and static; then a client linked with the shared library runs with the runtime package alone.
bash "$root/scripts/consumer-test.sh" --prefix /usr "$work" || fail "the consumer against /usr"
dpkg -r libquillnet-localpolicy-dev > /dev/null
"$work/consumer-build/cmake-g++/defaults_through_the_package-shared" > /dev/null 2>&1 ||
    fail "a client of the shared library does not run with libquillnet-localpolicy1 alone"

# Removal leaves only configuration files; purging leaves nothing.
dpkg -r libquillnet-localpolicy1 qnpolicy
for file in "${owned[@]}"; do
    if [ -e "$file" ] && [ ! -d "$file" ] && ! printf '%s\n' "${conffiles[@]}" | grep -q -x -F "$file"; then
        fail "$file is left after dpkg -r"
    fi
done
dpkg -P "${packages[@]}"
for package in "${packages[@]}"; do
    if dpkg-query -W "$package" > /dev/null 2>&1; then
        fail "$package is still known to dpkg after dpkg -P"
    fi
done
for path in /usr/include/quillnet /usr/share/xml/quillnet /usr/lib/*/cmake/QuillnetLocalPolicy \
    /etc/xml/qnpolicy.xml "${conffiles[@]}"; do
    [ ! -e "$path" ] || fail "$path is left after dpkg -P"
done
# The catalogs in use; xml-core's *.old copies are its own backups of an earlier state.
if grep -l -i quillnet /etc/xml/*.xml /etc/xml/catalog > /dev/null 2>&1; then
    fail "the XML catalog still names the schema: $(grep -l -i quillnet /etc/xml/*.xml /etc/xml/catalog)"
fi

if [ "$failures" -ne 0 ]; then
    echo "package-test: $failures failed" >&2
    exit 1
fi
echo "package-test: installed, used, removed and purged; nothing left"
