#!/usr/bin/env bash
# test.sh FOLDER: packages of this tree are what Debian asks for, come out the same wherever they are built, and can be
# installed, used, upgraded and removed. FOLDER keeps a bare root, which is fetched from a mirror the first time.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(realpath -m "$1")
mkdir -p "$work"

# What the packages and their tests need, beside what is in every root.
readonly kInRoot=binutils,cmake,dmsetup,e2fsprogs,g++,kmod,libfmt9,libfuse3-3,lsof,make,mount,pkg-config,procps,wget

Say() { printf -- '-- %s\n' "$*"; }

Say "Building twice, in folders of different names"
"$here/build.sh" "$work/packages"
"$here/build.sh" "$work/packages-built-in-another-folder"

Say "The same bytes both times"
(cd "$work/packages" && sha256sum ./*.deb) >"$work/sums"
(cd "$work/packages-built-in-another-folder" && sha256sum --quiet --check "$work/sums")

Say "lintian"
lintian --fail-on error,warning,info --display-info --tag-display-limit 0 "$work"/packages/*.changes

if [ ! -e "$work/root/complete" ]; then
    Say "Fetching a bare root"
    rm -rf --one-file-system "$work/root"
    debootstrap --variant=minbase --include="$kInRoot" bookworm "$work/root" >"$work/root.log" ||
        { tail "$work/root.log" >&2; exit 1; }
    rm -f "$work/root"/var/cache/apt/archives/*.deb
    touch "$work/root/complete"
fi
"$here/root_test.sh" "$work/root" "$work/packages"
