#!/usr/bin/env bash
# symbols_test.sh LIBRARY MAP HEADER PACKAGED: header, version map, dynamic symbol table and the package's list of symbols
# name the same functions, and the library is linked as we promise.
set -euo pipefail
library=$1 map=$2 header=$3 packaged=$4

Fail() {
    echo "$*" >&2
    failed=1
}
failed=0

# The names that the header declares for export.
HeaderNames() {
    grep -v '^#' "$header" | tr '\n' ' ' | grep -o 'VEMOFLASHCACHE_API [^()]*(' |
        sed -E 's/.*[ *]([A-Za-z0-9_]+)\($/\1/' | sort
}

# "name@@version" of each exported name of the map.
MapNames() {
    awk '/^[A-Z0-9_.]+ *\{/ { version = $1; exported = 0 }
         /global:/ { exported = 1; next }
         /local:/ { exported = 0 }
         exported && /^ *[A-Za-z0-9_*]+;/ { sub(";", "", $1); print $1 "@@" version }' "$map" | sort
}

# The same of the library; a version's own name is an absolute symbol.
LibraryNames() {
    nm -D --defined-only --with-symbol-versions "$library" | awk '$2 != "A" { print $3 }' | sort
}

# The same of the package's list, which has the version's own name, too.
PackagedNames() {
    sed -nE 's/^ ([A-Za-z0-9_]+)@([A-Za-z0-9_.]+) .*/\1@@\2/p' "$packaged" |
        awk -F@@ '$1 != $2' | sort
}

Same() {
    local what=$1 left=$2 right=$3
    [ -n "$left" ] || Fail "$what: nothing found"
    diff <(echo "$left") <(echo "$right") || Fail "$what differ (< first, > second)"
}

Same "header and map" "$(HeaderNames)" "$(MapNames | sed 's/@@.*//')"
Same "map and library" "$(MapNames)" "$(LibraryNames)"
Same "map and package" "$(MapNames)" "$(PackagedNames)"

# The loader is the C library's own part: it hands out what each thread has to itself.
readonly mayNeed='lib(vemo(core|sdk|sysnotify)|stdc\+\+|c|m)\.so\.6|libgcc_s\.so\.1|ld-linux[-a-z0-9_]*\.so\.[0-9]'
dynamic=$(readelf --dynamic --wide "$library")
segments=$(readelf --program-headers --wide "$library")
grep -q 'SONAME.*\[libvemoflashcache\.so\.1\]' <<<"$dynamic" ||
    Fail "the soname is not libvemoflashcache.so.1"
grep -qw 'BIND_NOW\|NOW' <<<"$dynamic" || Fail "symbols are bound lazily"
grep -qw GNU_RELRO <<<"$segments" || Fail "relocations stay writable"
grep -w GNU_STACK <<<"$segments" | grep -qw RWE && Fail "the stack is executable"
grep -qw TEXTREL <<<"$dynamic" && Fail "the code is relocated"
unexpected=$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | grep -Evx "$mayNeed") &&
    Fail "needs unexpected libraries: $unexpected"

exit $failed
