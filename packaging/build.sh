#!/usr/bin/env bash
# build.sh FOLDER: Debian's packages of the tree as it is, into FOLDER, which is emptied first. Needs no network.
set -euo pipefail
out=$(realpath -m "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=packaging/tree.sh
source packaging/tree.sh

rm -rf "$out"
tree=$out/vemoflashcache-$(Version)
CopyTree "$tree"
cd "$tree"
dpkg-buildpackage --build=binary --no-sign >"$out/build.log" 2>&1 || { tail -n 50 "$out/build.log" >&2; exit 1; }
# What it was built from and in is not what was asked for.
rm -rf "$tree"
