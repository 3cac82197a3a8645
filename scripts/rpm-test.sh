#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Checks the RPM packages of RPM_DIR (default build-rpm/) against the Debian packages of
# DEB_DIR (default build-package/; built there first by build-packages.sh when missing or made
# from another tree), then installs them into a scratch root and uses them there:
#   1. rpm -qlp of quillnet-localpolicy, quillnet-localpolicy-devel and qnpolicy lists what
#      dpkg-deb -c lists for libquillnet-localpolicy1, libquillnet-localpolicy-dev and qnpolicy,
#      with the same permissions, at the RPM paths (/usr/lib64 for /usr/lib/x86_64-linux-gnu,
#      /etc/sysconfig for /etc/default, each package's own documentation directory), and the
#      RPM owns every directory of the project's own; only the documented differences below
#      are allowed. The architecture-independent files (headers, schemas, catalog, manual
#      pages, completion, NEWS) are byte for byte the Debian ones.
#   2. rpm --root installs the three into a scratch root that holds only a shell: the catalog
#      scriptlets, finding no xmlcatalog, do nothing and fail nothing. Removed again.
#   3. The same root with xmlcatalog, xmllint and an empty system catalog (what xml-common
#      provides): the installed qnpolicy runs (--version, schema), %post registers the schema
#      in the root's /etc/xml/catalog, xmllint inside the root validates a generated policy
#      through it, the consumer test passes against the installed packages (find_package and
#      pkg-config, shared and static), a client of the shared library runs with the runtime
#      package alone, a reinstall keeps exactly one entry of each kind, and rpm -e removes
#      every file and both entries.
# Needs root (rpm --root and chroot). Everything it creates is in one temporary directory,
# removed at the end.
#   rpm-test.sh [RPM_DIR [DEB_DIR]]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
rpm_dir=$(realpath -m "${1:-$root/build-rpm}")
deb_dir=$(realpath -m "${2:-$root/build-package}")
recipe="$root/packaging/rpm/quillnet-localpolicy.spec"
version=$(rpmspec -q --srpm --qf '%{VERSION}' "$recipe")
release=$(rpmspec -q --srpm --qf '%{RELEASE}' "$recipe")
# RPM package, its Debian counterpart.
pairs=("quillnet-localpolicy libquillnet-localpolicy1"
    "quillnet-localpolicy-devel libquillnet-localpolicy-dev" "qnpolicy qnpolicy")
failures=0
work=$(mktemp -d /tmp/qnpolicy-test-XXXXXX)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "rpm-test: FAIL: $*" >&2
    failures=$((failures + 1))
}
rpm_file() { echo "$rpm_dir/$1-$version-$release.x86_64.rpm"; }
deb_file() { echo "$deb_dir/$1_${version}_amd64.deb"; }

if [ "$(id -u)" -ne 0 ]; then
    echo "rpm-test: installs into a scratch root with rpm --root and chroot; run as root" >&2
    exit 1
fi
digest=$(bash "$root/scripts/tree-digest.sh")
if [ "$(cat "$rpm_dir/tree.sha256" 2>/dev/null)" != "$digest" ]; then
    echo "rpm-test: $rpm_dir holds no RPM packages of this tree; run make rpm first" >&2
    exit 1
fi
if [ "$(cat "$deb_dir/tree.sha256" 2>/dev/null)" != "$digest" ]; then
    echo "rpm-test: $deb_dir holds no Debian packages of this tree; building them"
    bash "$root/scripts/build-packages.sh" "$deb_dir"
fi

# --- 1. The file lists and the architecture-independent files against the Debian packages.
# "PERMISSIONS PATH" of every entry, directories marked by a trailing "/", links without their
# target. DEB RPM_NAME: the Debian package's entries at the RPM paths, with the two conventions that
# differ between the families: a shared library is 0644 on Debian and 0755 on RHEL-family
# systems, and Debian compresses NEWS where RPM keeps it as it is.
deb_entries() {
    dpkg-deb -c "$1" | awk '{ path = substr($0, index($0, "./") + 1); print $1, path }' |
        sed -e 's| -> .*$||' -e 's|^\(d[^ ]*\) \(.*[^/]\)$|\1 \2/|' -e '/ \/$/d' |
        sed -e 's| /usr/lib/x86_64-linux-gnu/| /usr/lib64/|' -e 's| /etc/default/| /etc/sysconfig/|' \
            -e 's| /lib/systemd/system/| /usr/lib/systemd/system/|' \
            -e 's| /usr/share/zsh/vendor-completions/| /usr/share/zsh/site-functions/|' \
            -e "s| /usr/share/doc/$(dpkg-deb -f "$1" Package)/| /usr/share/doc/$2/|" |
        sed -E -e 's|^-rw-r--r-- (/usr/lib64/lib[^/]+\.so\.[0-9.]+)$|-rwxr-xr-x \1|' \
            -e 's|^(.* /usr/share/doc/[^/]+/NEWS)\.gz$|\1|'
}
rpm_entries() {
    rpm -qp --qf '[%{FILEMODES:perms} %{FILENAMES}\n]' "$1" 2> /dev/null |
        sed -e 's|^\(d[^ ]*\) \(.*\)$|\1 \2/|'
}
for pair in "${pairs[@]}"; do
    read -r rpm_name deb_name <<< "$pair"
    rpm_path=$(rpm_file "$rpm_name")
    deb_path=$(deb_file "$deb_name")
    [ -f "$rpm_path" ] || { fail "no $rpm_path"; continue; }
    [ -f "$deb_path" ] || { fail "no $deb_path"; continue; }
    deb_entries "$deb_path" "$rpm_name" | sort > "$work/$rpm_name.deb-entries"
    rpm_entries "$rpm_path" | sort > "$work/$rpm_name.rpm-entries"

    # The documented differences: the Debian package's changelog and copyright (Debian policy;
    # the RPM carries the licence text with %license instead), and the RPM's licence and
    # documentation directories. Directories of the system (/usr/, /usr/share/man/man1/ and
    # the like) are owned by the distribution's base packages in an RPM; those of the
    # project's own (a path naming Quillnet) must be owned by the RPM too.
    grep -v -E "^[^ ]+ /usr/share/doc/$rpm_name/(changelog\.gz|copyright)?\$" \
        "$work/$rpm_name.deb-entries" |
        grep -E '^[^d]|[Qq]uillnet' > "$work/$rpm_name.deb-expected" || true
    grep -v -E "^[^ ]+ /usr/share/licenses/$rpm_name/(LICENSE)?\$" "$work/$rpm_name.rpm-entries" |
        grep -v -E "^[^ ]+ /usr/share/doc/$rpm_name/(README\.md)?\$" |
        grep -E '^[^d]|[Qq]uillnet' > "$work/$rpm_name.rpm-expected" || true
    if ! diff -u --label "$deb_name.deb (at RPM paths)" --label "$rpm_name.rpm" \
        "$work/$rpm_name.deb-expected" "$work/$rpm_name.rpm-expected" > "$work/$rpm_name.diff"; then
        fail "$rpm_name.rpm does not hold what $deb_name.deb holds:"
        cat "$work/$rpm_name.diff" >&2
    fi
    # Every directory the RPM owns is one the Debian package has too, or its licence or
    # documentation directory.
    while read -r _ dir; do
        case "$dir" in
            "/usr/share/licenses/$rpm_name/" | "/usr/share/doc/$rpm_name/") ;;
            *) grep -q -x -F "$dir" <(cut -d' ' -f2 "$work/$rpm_name.deb-entries") ||
                fail "$rpm_name.rpm owns $dir, which $deb_name.deb does not have" ;;
        esac
    done < <(grep '^d' "$work/$rpm_name.rpm-entries")
    grep -q -x -F -e "-rw-r--r-- /usr/share/licenses/$rpm_name/LICENSE" "$work/$rpm_name.rpm-entries" ||
        fail "$rpm_name.rpm has no licence file"
    [ "$(rpm -qp --qf '%{LICENSE}' "$rpm_path" 2> /dev/null)" = Apache-2.0 ] ||
        fail "$rpm_name.rpm's License is not Apache-2.0"
    echo "rpm-test: $rpm_name.rpm holds the $(grep -c '^[^d]' "$work/$rpm_name.deb-expected") files of $deb_name.deb"

    mkdir -p "$work/deb/$deb_name" "$work/rpm/$rpm_name"
    dpkg-deb -x "$deb_path" "$work/deb/$deb_name"
    (cd "$work/rpm/$rpm_name" && rpm2cpio "$rpm_path" | cpio -idm --quiet)
    # Made from the same sources by the same generators: identical on both.
    while read -r _ file; do
        case "$file" in
            /usr/bin/* | /usr/lib64/*) continue ;;
        esac
        deb_copy="$work/deb/$deb_name${file/#\/etc\/sysconfig\//\/etc\/default\/}"
        deb_copy=${deb_copy/\/usr\/lib\/systemd\/system\//\/lib\/systemd\/system\/}
        # The metrics service reads its defaults where each family keeps them.
        if [[ "$file" == */qnpolicy-metrics.service ]]; then
            cmp -s <(sed 's|/etc/default/|/etc/sysconfig/|' "$deb_copy") "$work/rpm/$rpm_name$file" ||
                fail "$file differs between $deb_name.deb and $rpm_name.rpm beyond its defaults path"
            continue
        fi
        # zsh reads vendor completions from another directory on each family.
        deb_copy=${deb_copy/\/usr\/share\/zsh\/site-functions\//\/usr\/share\/zsh\/vendor-completions\/}
        deb_copy=${deb_copy/\/usr\/share\/doc\/$rpm_name\//\/usr\/share\/doc\/$deb_name\/}
        if [[ "$file" == *.gz ]]; then
            cmp -s <(zcat "$deb_copy") <(zcat "$work/rpm/$rpm_name$file") ||
                fail "$file differs between $deb_name.deb and $rpm_name.rpm"
        elif [ ! -e "$deb_copy" ] && [ -f "$deb_copy.gz" ]; then
            cmp -s <(zcat "$deb_copy.gz") "$work/rpm/$rpm_name$file" ||
                fail "$file differs between $deb_name.deb and $rpm_name.rpm"
        else
            cmp -s "$deb_copy" "$work/rpm/$rpm_name$file" ||
                fail "$file differs between $deb_name.deb and $rpm_name.rpm"
        fi
    done < <(grep '^-' "$work/$rpm_name.rpm-expected")
done
[ -f "$work/rpm/qnpolicy/usr/share/xml/quillnet/QuillnetLocalPolicy.xsd" ] ||
    fail "qnpolicy.rpm has no schema"

# --- 2. A scratch root with nothing but a shell.
scratch="$work/root"
rpm_in_root() { rpm --root "$scratch" --dbpath /var/lib/rpm "$@"; }
# Copies programs with the libraries they load into the scratch root, at the same paths.
copy_into_root() {
    local program file
    for program in "$@"; do
        for file in "$program" $(ldd "$program" | grep -o '/[^ ]*'); do
            mkdir -p "$(dirname "$scratch$file")"
            [ -e "$scratch$file" ] || cp -L "$file" "$scratch$file"
        done
    done
}
# rpm's own chatter (Debian's rpm warns that it is not Debian's package manager) aside,
# anything an install or removal prints is a failure.
quiet_or_fail() {
    local what=$1
    shift
    if ! "$@" > "$work/out" 2>&1; then
        fail "$what failed: $(cat "$work/out")"
    elif grep -v -E '^rpm: (RPM should not be used directly|However assuming)' "$work/out" | grep -q .; then
        fail "$what printed: $(cat "$work/out")"
    fi
}
rpm_names=(quillnet-localpolicy quillnet-localpolicy-devel qnpolicy)
packages=()
for rpm_name in "${rpm_names[@]}"; do
    packages+=("$(rpm_file "$rpm_name")")
done
copy_into_root /bin/sh
rpm_in_root --initdb
quiet_or_fail "rpm -i into a root without xmlcatalog" rpm_in_root --nodeps -i "${packages[@]}"
[ -x "$scratch/usr/bin/qnpolicy" ] || fail "no /usr/bin/qnpolicy in the scratch root"
[ ! -e "$scratch/etc/xml" ] || fail "the scriptlet made /etc/xml without xmlcatalog"
quiet_or_fail "rpm -e from a root without xmlcatalog" rpm_in_root -e "${rpm_names[@]}"
[ ! -e "$scratch/usr/bin/qnpolicy" ] || fail "rpm -e left /usr/bin/qnpolicy"
echo "rpm-test: installed into and removed from a root without xmlcatalog"

# --- 3. The root with xmlcatalog, xmllint and the system catalog xml-common would provide.
copy_into_root /usr/bin/xmlcatalog /usr/bin/xmllint
mkdir -p "$scratch/etc/xml" "$scratch/tmp"
xmlcatalog --noout --create "$scratch/etc/xml/catalog"
cp "$scratch/etc/xml/catalog" "$work/catalog.empty"
quiet_or_fail "rpm -i" rpm_in_root --nodeps -i "${packages[@]}"
for package in "${rpm_names[@]}"; do
    rpm_in_root -q "$package" > /dev/null 2>&1 || fail "$package is not installed in the scratch root"
done

version_line=$("$scratch/usr/bin/qnpolicy" --version) || true
[ "$version_line" = "qnpolicy $version" ] || fail "qnpolicy --version: '$version_line'"
"$scratch/usr/bin/qnpolicy" schema | cmp -s - "$scratch/usr/share/xml/quillnet/QuillnetLocalPolicy.xsd" ||
    fail "qnpolicy schema differs from the installed schema"

# The catalog entries, and the schema found through them inside the root, by the name the
# policy file's xsi:schemaLocation gives.
catalog_entries() {
    grep -o -E '<delegate(URI|System) [^>]*quillnet[^>]*>' "$scratch/etc/xml/catalog" | sort || true
}
expected_entries=$(printf '%s\n' \
    '<delegateSystem systemIdStartString="QuillnetLocalPolicy.xsd" catalog="file:///usr/share/xml/quillnet/catalog.xml"/>' \
    '<delegateURI uriStartString="QuillnetLocalPolicy.xsd" catalog="file:///usr/share/xml/quillnet/catalog.xml"/>')
[ "$(catalog_entries)" = "$expected_entries" ] ||
    fail "the system catalog after rpm -i: $(cat "$scratch/etc/xml/catalog")"
in_root() { env -u XML_CATALOG_FILES chroot "$scratch" "$@"; }
resolved=$(in_root /usr/bin/xmlcatalog /etc/xml/catalog QuillnetLocalPolicy.xsd 2>&1) || true
grep -q -x -F "file:///usr/share/xml/quillnet/QuillnetLocalPolicy.xsd" <<< "$resolved" ||
    fail "xmlcatalog in the root resolves QuillnetLocalPolicy.xsd to: $resolved"
mkdir -p "$scratch/tmp/install"
"$scratch/usr/bin/qnpolicy" generate --install-dir "$scratch/tmp/install" fm=true \
    "upal=gw1.example.com;gw2" > /dev/null 2>&1 || fail "qnpolicy generate in the scratch root"
cp "$root/examples/flawed-policy.xml" "$scratch/tmp/flawed-policy.xml"
in_root /usr/bin/xmllint --noout --nonet --schema QuillnetLocalPolicy.xsd \
    /tmp/install/QuillnetLocalPolicy.xml > /dev/null 2>&1 ||
    fail "xmllint in the root does not validate a generated policy through the system catalog"
in_root /usr/bin/xmllint --noout --nonet --schema QuillnetLocalPolicy.xsd /tmp/flawed-policy.xml \
    > /dev/null 2>&1 && fail "the flawed sample validates in the root"
echo "rpm-test: qnpolicy runs; the schema resolves through the root's XML catalog"

# The library: the consumer test against the installed packages, with find_package and with
# pkg-config (its paths moved into the scratch root by the sysroot variable); then a client of
# the shared library runs with the runtime package alone.
consumer="$work/consumer"
if bash "$root/scripts/consumer-test.sh" --root "$scratch" --prefix /usr "$consumer" > "$work/out" 2>&1; then
    echo "rpm-test: the consumer test passes against the installed packages: $(tail -n 1 "$work/out")"
else
    fail "the consumer test against the installed packages: $(cat "$work/out")"
fi
quiet_or_fail "rpm -e quillnet-localpolicy-devel" rpm_in_root -e quillnet-localpolicy-devel
LD_LIBRARY_PATH="$scratch/usr/lib64" \
    "$consumer/consumer-build/cmake-g++/defaults_through_the_package-shared" > /dev/null 2>&1 ||
    fail "a client of the shared library does not run with quillnet-localpolicy alone"

# A reinstall (as an upgrade runs the scriptlets: the new %post, then the old %postun) keeps
# exactly one entry of each kind.
quiet_or_fail "rpm -U --replacepkgs" rpm_in_root --nodeps -U --replacepkgs "${packages[@]}"
[ "$(catalog_entries)" = "$expected_entries" ] ||
    fail "the system catalog after a reinstall: $(cat "$scratch/etc/xml/catalog")"

# Removal: no file of either package left, and the system catalog as before.
mapfile -t owned < <(rpm_in_root -ql "${rpm_names[@]}")
quiet_or_fail "rpm -e" rpm_in_root -e "${rpm_names[@]}"
for file in "${owned[@]}"; do
    [ ! -e "$scratch$file" ] || fail "$file is left after rpm -e"
done
cmp -s "$work/catalog.empty" "$scratch/etc/xml/catalog" ||
    fail "the system catalog after rpm -e: $(cat "$scratch/etc/xml/catalog")"
[ -z "$(rpm_in_root -qa 2> /dev/null)" ] || fail "packages left in the scratch root: $(rpm_in_root -qa)"
echo "rpm-test: reinstalled and removed; the system catalog is as before"

if [ "$failures" -ne 0 ]; then
    echo "rpm-test: $failures failed" >&2
    exit 1
fi
echo "rpm-test: PASSED (file lists against the Debian packages, install, use, removal)"
