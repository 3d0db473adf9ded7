#!/usr/bin/env bash
# release.sh FOLDER [--draft]: looks whether the tree is fit for a release, and makes the tarball, with the packages that
# test.sh left in FOLDER beside it. --draft tells what is missing and goes on.
set -euo pipefail
out=$(realpath -m "$1") draft=${2:-}
cd "$(dirname "${BASH_SOURCE[0]}")/.."
# shellcheck source=packaging/tree.sh
source packaging/tree.sh
version=$(Version)

missing=()
Require() { # WHAT COMMAND...
    local what=$1
    shift
    "$@" >/dev/null 2>&1 || missing+=("$what")
}

IsCommitted() { [ -z "$(git status --porcelain)" ]; }
IsDated() { [[ $(ReleaseDate) =~ ^[0-9]{4}-[0-9]{2}-[0-9]{2}$ ]]; }
IsTaggedHere() { ! git rev-parse "v$version" || [ "$(git rev-parse "v$version^{commit}")" = "$(git rev-parse HEAD)" ]; }
IsLicensed() { ! grep -q 'has not chosen a licence yet' LICENSE.md debian/copyright; }
HasInterface() { [ "$(sed -n '$s/<!-- of version \(.*\) -->/\1/p' abi/libvemoflashcache.abi)" = "$version" ]; }

Require "changes that are not committed: git status" IsCommitted
Require "CHANGELOG.md has no date for $version" IsDated
Require "the tag v$version is another commit's: CHANGELOG.md needs a new version" IsTaggedHere
Require "no licence was chosen: LICENSE.md, debian/copyright" IsLicensed
Require "abi/libvemoflashcache.abi is not of $version: ./dev abi accept" HasInterface
if [ ${#missing[@]} -gt 0 ]; then
    printf 'missing: %s\n' "${missing[@]}" >&2
    [ "$draft" = --draft ] || exit 1
fi

# The same bytes whoever makes it.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
CopyTree "$work/vemoflashcache-$version"
tar --create --directory "$work" --sort=name --mtime "@$(SourceTime)" --owner=0 --group=0 --numeric-owner \
    --mode='u+w,go=rX' "vemoflashcache-$version" | gzip --no-name --best >"$out/vemoflashcache-$version.tar.gz"
cp "$out"/packages/*.deb "$out"
(cd "$out" && sha256sum -- *.tar.gz *.deb >SHA256SUMS)
printf 'Made in %s:\n' "$out"
cat "$out/SHA256SUMS"
