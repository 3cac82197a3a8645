#!/usr/bin/env bash
# SPDX-License-Identifier: Apache-2.0
# Builds the RPM packages quillnet-localpolicy, -devel and qnpolicy with this machine's rpmbuild
# from packaging/rpm/quillnet-localpolicy.spec, on a source archive of the files git knows or
# would add (what a clean clone with these changes holds, as build-packages.sh does for the
# Debian packages). rpmbuild runs with --nodeps: the build dependencies are Debian packages,
# which the RPM database does not know. The packages land in OUT_DIR (default build-rpm/),
# then rpmlint checks the recipe and the three packages with packaging/rpm/rpmlint.toml: any
# error or warning fails. Packages that pass get the digest of their tree beside them (tree.sha256).
#   build-rpm.sh [OUT_DIR]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$(realpath -m "${1:-$root/build-rpm}")
recipe="$root/packaging/rpm/quillnet-localpolicy.spec"

# One version everywhere: the RPM recipe's must be the CMake project's and debian/changelog's.
name=$(rpmspec -q --srpm --qf '%{NAME}' "$recipe")
version=$(rpmspec -q --srpm --qf '%{VERSION}' "$recipe")
cmake_version=$(sed -n 's/^project([A-Za-z]* VERSION \([0-9.]*\).*/\1/p' "$root/CMakeLists.txt")
debian_version=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Version)
if [ "$version" != "$cmake_version" ] || [ "$version" != "$debian_version" ]; then
    echo "build-rpm: the RPM recipe's version $version differs from CMakeLists.txt ($cmake_version)" \
        "or debian/changelog ($debian_version)" >&2
    exit 1
fi

digest=$(bash "$root/scripts/tree-digest.sh")
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
mkdir -p "$work/SOURCES" "$work/tree/$name-$version"
(cd "$root" && git ls-files -z --cached --others --exclude-standard) |
    while IFS= read -r -d '' file; do
        if [ -e "$root/$file" ]; then
            (cd "$root" && cp -a --parents "$file" "$work/tree/$name-$version")
        fi
    done
tar -C "$work/tree" --owner=0 --group=0 --numeric-owner -czf \
    "$work/SOURCES/$name-$version.tar.gz" "$name-$version"

# What Debian's rpm lacks, defined as on a RHEL-family system: documentation and licence
# directories named after the package alone (/usr/share/licenses/qnpolicy/), man pages
# compressed with gzip (rpm's brp-compress needs bash, and Debian's /bin/sh is dash), and the
# compiler and linker flags of redhat-rpm-config (fortified calls, stack protector and clash
# protection, control-flow protection, full RELRO; Debian's gcc makes position-independent
# executables by default), and systemd-rpm-macros' unit directory and scriptlets (on a RHEL-family
# system the presets decide, and the default preset enables nothing of a package's own). The
# packager is the builder's, set here as a distributor sets it, not in the recipe.
build_cxxflags="-O2 -g -pipe -Wall -Werror=format-security -Wp,-D_FORTIFY_SOURCE=2 -fexceptions"
build_cxxflags+=" -fstack-protector-strong -fasynchronous-unwind-tables -fstack-clash-protection"
build_cxxflags+=" -fcf-protection"
build_ldflags="-Wl,-z,relro -Wl,-z,now"

# The release's date, which the Debian build takes from debian/changelog too: the manual pages
# carry it, so both formats hold the same pages.
SOURCE_DATE_EPOCH=$(dpkg-parsechangelog -l "$root/debian/changelog" -S Timestamp)
export SOURCE_DATE_EPOCH

rm -rf "$out"
mkdir -p "$out"
rpmbuild -bb --nodeps \
    --define "_docdir_fmt %%{NAME}" \
    --define "__brp_compress /bin/bash /usr/lib/rpm/brp-compress /usr" \
    --define "_topdir $work/rpmbuild" \
    --define "_sourcedir $work/SOURCES" \
    --define "_rpmdir $out" \
    --define "_build_name_fmt %%{NAME}-%%{VERSION}-%%{RELEASE}.%%{ARCH}.rpm" \
    --define "packager Quillnet Maintainers <maintainers@quillnet.example>" \
    --define "build_cxxflags $build_cxxflags" \
    --define "build_ldflags $build_ldflags" \
    --define "_unitdir /usr/lib/systemd/system" \
    --define "systemd_post() if [ \$1 -eq 1 ] && [ -x /usr/lib/systemd/systemd-update-helper ]; then /usr/lib/systemd/systemd-update-helper install-system-units %{?*} || :; fi" \
    --define "systemd_preun() if [ \$1 -eq 0 ] && [ -x /usr/lib/systemd/systemd-update-helper ]; then /usr/lib/systemd/systemd-update-helper remove-system-units %{?*} || :; fi" \
    "$recipe"

echo "packages in $out:"
ls -l "$out"/*.rpm
# rpmlint exits non-zero on an error only; --strict would turn the filtered warnings into
# errors before the filters see them, so the summary line decides for warnings.
lint=$(rpmlint -c "$root/packaging/rpm/rpmlint.toml" "$recipe" "$out"/*.rpm) || { echo "$lint"; exit 1; }
echo "$lint"
grep -q ' 0 errors, 0 warnings,' <<<"$lint" || { echo "build-rpm: rpmlint warned" >&2; exit 1; }
# Checked packages of this tree (rpm-test.sh compares them with the Debian packages of the same).
echo "$digest" > "$out/tree.sha256"
