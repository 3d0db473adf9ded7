# What packages and the tarball are made from. Sourced, with the tree as the current folder.
# shellcheck shell=bash

# "1.0.0", and the date or "unreleased" behind it, as CHANGELOG.md tells.
Version() { sed -nE 's/^## ([0-9.]+) \((.*)\)$/\1/p' CHANGELOG.md | head -n 1; }
ReleaseDate() { sed -nE 's/^## ([0-9.]+) \((.*)\)$/\2/p' CHANGELOG.md | head -n 1; }

# The time that stands in everything that is made: of the release, or else of the last commit.
SourceTime() {
    case $(ReleaseDate) in
        unreleased) git log -1 --format=%ct ;;
        *) date --utc --date "$(ReleaseDate)" +%s ;;
    esac
}

# The newest part of CHANGELOG.md, as Debian tells changes.
DebianChangelog() {
    local suite=unstable
    [ "$(ReleaseDate)" != unreleased ] || suite=UNRELEASED
    printf 'vemoflashcache (%s) %s; urgency=medium\n\n' "$(Version)" "$suite"
    local item
    # An item of several lines becomes one, and that as many as Debian's width asks for.
    awk '/^## / { part++; next } part != 1 || !NF { next } /^- / { printf "%s%s", sep, substr($0, 3); sep = "\n"; next }
        { sub(/^ +/, " "); printf "%s", $0 } END { print "" }' CHANGELOG.md |
        while IFS= read -r item; do
            fold --spaces --width=74 <<<"$item" | sed -E '1s/^/  * /; 2,$s/^/    /; s/ +$//'
        done
    printf '\n -- %s  %s\n' "$(sed -n 's/^Maintainer: //p' debian/control)" \
        "$(LC_ALL=C date --utc --rfc-email --date "@$(SourceTime)")"
}

# CopyTree FOLDER: the files that belong to the tree, with Debian's changelog among them.
CopyTree() {
    rm -rf "$1"
    mkdir -p "$1"
    git ls-files -z --cached --others --exclude-standard | xargs -0 cp --parents --no-dereference -t "$1"
    DebianChangelog >"$1/debian/changelog"
    find "$1" -exec touch --no-dereference --date "@$(SourceTime)" {} +
}
