#!/usr/bin/env bash
# compare.sh LIBRARY VERSION [BASELINE]: holds the library's binary interface against the kept one, and VERSION against what
# the changes ask for: programs that were built with an older version must run with a newer one of the same first number.
# Ends with 1 where the version is too low, with 2 where it could not be told.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
library=$1 version=$2 baseline=${3:-$here/libvemoflashcache.abi}

kept=$(sed -n '$s/<!-- of version \(.*\) -->/\1/p' "$baseline")
[ -n "$kept" ] || { echo "$baseline does not tell its version in its last line" >&2; exit 2; }

# Differs OPTION...: whether there are differences, which are left in $report. The bits of abidiff's exit code: 1 an error, 2
# wrong usage, 4 a change, 8 one that no program survives.
Differs() {
    local code=0
    report=$(abidiff --suppressions "$here/suppressions.ini" "$@" "$baseline" "$library") || code=$?
    if ((code & 3)); then
        printf '%s\nabidiff could not compare\n' "$report" >&2
        exit 2
    fi
    ((code != 0))
}

# The version that the changes ask for, "" when they ask for none.
IFS=. read -r major minor _ <<<"$kept"
asked=''
if Differs --no-added-syms; then
    asked=$((major + 1)).0.0
    what="Programs that were built with $kept may fail with this"
elif Differs; then
    asked=$major.$((minor + 1)).0
    what="Programs that are built with this may not run with $kept"
fi
if [ -z "$asked" ]; then
    echo "The binary interface is that of $kept."
    exit 0
fi
printf '%s\n%s: the version must be %s at least, and is %s.\n' "$report" "$what" "$asked" "$version"
[ "$(printf '%s\n%s\n' "$asked" "$version" | sort --version-sort | head -n 1)" = "$asked" ]
