#!/usr/bin/env bash
# root_test.sh ROOT PACKAGES: the packages in a bare root of Debian's, in namespaces of its own. ROOT is copied, so that it
# serves again.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
if [ "${VEMO_ROOT_TEST:-}" != inside ]; then
    used=$(mktemp -d "$(dirname "$(realpath "$1")")/used.XXXXXX")
    # What was mounted there is gone with the namespaces.
    trap 'rm -rf --one-file-system "$used"' EXIT
    VEMO_ROOT_TEST=inside unshare --mount --pid --fork --propagation private "$here/root_test.sh" \
        "$(realpath "$1")" "$(realpath "$2")" "$used"
    exit
fi
root=$1 packages=$2 used=$3

mount --bind "$used" "$used"
cp --archive --reflink=auto "$root/." "$used"

# An older version of each package: the same files under a lower number.
mkdir -p "$used"/packages/{old,new} "$used/tests"
cp "$packages"/*.deb "$used/packages/new"
rm -f "$used"/packages/new/*-dbgsym_*
for package in "$used"/packages/new/*.deb; do
    dpkg-deb --raw-extract "$package" "$used/packages/unpacked"
    version=$(dpkg-deb --field "$package" Version)
    control=$used/packages/unpacked/DEBIAN/control
    awk -v newer="$version" '
        BEGIN { gsub(/[.]/, "[.]", newer) }
        $1 == "Version:" || $1 == "Depends:" { gsub(newer, "0.0.1") }
        { print }' "$control" >"$control.older"
    grep -qx 'Version: 0.0.1' "$control.older"
    mv "$control.older" "$control"
    dpkg-deb --build --root-owner-group "$used/packages/unpacked" "$used/packages/old" >/dev/null
    rm -r "$used/packages/unpacked"
done
cp "$here"/../debian/tests/{story,programs} "$here/in_root.sh" "$used/tests"

mount --rbind /dev "$used/dev"
mount --rbind /sys "$used/sys"
mount -t proc proc "$used/proc"
mount -t tmpfs tmp "$used/tmp"
mkdir "$used/outside"
# A root of its own rather than a changed one: the appliance changes roots itself.
(cd "$used" && pivot_root . outside && cd / &&
    exec env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive /tests/in_root.sh)
