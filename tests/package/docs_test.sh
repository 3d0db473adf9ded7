#!/usr/bin/env bash
# docs_test.sh SOURCE: the interface's pages come out without a warning and hold every function, and documents name only
# files of the tree that there are.
set -euo pipefail
source=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$source"

failed=0
for document in *.md docs/*.md simulation/*.md examples/*.md; do
    # A path stands in backquotes; commands and patterns have blanks or stars.
    # shellcheck disable=SC2016 # backquotes are meant
    while IFS= read -r path; do
        [ -e "$path" ] || [ -e "$(dirname "$document")/$path" ] || { echo "$document: there is no $path"; failed=1; }
    done < <(grep -oE '`[a-z]+/[A-Za-z0-9_./-]+`' "$document" | tr -d '`' | grep -vE '^(dev|build|usr|tmp|proc|etc|run)/' | sort -u)
done

if ! command -v doxygen >/dev/null; then
    echo "doxygen is not installed: the pages were not made"
    [ "$failed" = 0 ] && exit 77
    exit 1
fi
docs/api/make.sh "$work" || failed=1
while IFS= read -r name; do
    grep -qF "$name()</h2>" "$work/html/vemoflashcache_8h.html" || { echo "no page tells of $name"; failed=1; }
done < <(sed -nE 's/^ +([A-Za-z]+);$/\1/p' src/libvemoflashcache.map)
exit "$failed"
