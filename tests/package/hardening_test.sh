#!/usr/bin/env bash
# hardening_test.sh BUILD: every program and library that is installed is hardened, as far as the file tells.
# The marks of control-flow protection are no part of it: they stand in a file only when the C library's own start
# files have them, and Debian's do not. That our code has the landing pads can be seen.
set -euo pipefail
build=$1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/usr" >/dev/null

failed=0
Require() { # FILE WHAT TEXT PATTERN
    if ! grep -Eq -- "$4" <<<"$3"; then
        echo "$1: no $2" >&2
        failed=1
    fi
}

count=0
while IFS= read -r -d '' file; do
    headers=$(readelf --wide --file-header --program-headers --dynamic "$file" 2>/dev/null) || continue
    count=$((count + 1))
    Require "$file" "position-independent code" "$headers" 'Type: +DYN'
    Require "$file" "read-only relocations" "$headers" GNU_RELRO
    Require "$file" "binding at start" "$headers" 'BIND_NOW|Flags:.* NOW'
    Require "$file" "data that cannot be run" "$headers" 'GNU_STACK .* RW +0x'
    Require "$file" "landing pads" "$(objdump --disassemble "$file" | grep -m 1 endbr64)" endbr64
    if grep -q 'NEEDED.*libc\.so' <<<"$headers"; then
        symbols=$(readelf --wide --dyn-syms "$file")
        Require "$file" "guarded stack" "$symbols" '__stack_chk_fail'
        case $file in */vemocachectl | */vemo-appliance | */libvemoflashcache.so*)
            Require "$file" "checked calls of the C library" "$symbols" '_chk@'
            ;;
        esac
    fi
    if grep -E 'R(UN)?PATH' <<<"$headers" | grep -Fv "\$ORIGIN"; then
        echo "$file: a library path that is not its own folder's" >&2
        failed=1
    fi
    if strings "$file" | grep -F -m 1 "$build"; then
        echo "$file: names the folder that it was built in" >&2
        failed=1
    fi
done < <(find "$work/usr" -type f -print0)
[ "$count" -ge 7 ] || { echo "only $count programs and libraries were found" >&2; failed=1; }
exit "$failed"
