#!/usr/bin/env bash
# abi_test.sh SOURCE LIBRARY VERSION: the library keeps its binary interface as its version promises; and what would be said
# of changes, on a small library.
set -euo pipefail
source=$1 library=$2 version=$3

failed=0
"$source/abi/compare.sh" "$library" "$version" || failed=1

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cd "$work"

# Library NAME CODE
Library() { printf '%s\n' "$2" | "$CC" -x c -g -O0 -fPIC -shared -Wl,-soname,libsmall.so.1 -o "$1" -; }

# Expect CODE TEXT LIBRARY VERSION
Expect() {
    local code=0 said
    said=$("$source/abi/compare.sh" "$3" "$4" small.abi 2>&1) || code=$?
    if [ "$code" != "$1" ] || ! grep -qF "$2" <<<"$said"; then
        printf '%s as %s: ended with %s, not %s, and said:\n%s\n' "$3" "$4" "$code" "$1" "$said" >&2
        failed=1
    fi
}

readonly kRecord='struct R { int a; }; int Get(struct R *r) { return r->a; }'
Library first.so "$kRecord"
Library more.so "$kRecord int More(void) { return 0; }"
Library grown.so 'struct R { long b; int a; }; int Get(struct R *r) { return r->a; }'
Library less.so 'int Other(void) { return 0; }'
"$source/abi/make.sh" first.so 1.2.3 >small.abi

Expect 0 'is that of 1.2.3' first.so 1.2.3
Expect 1 'must be 1.3.0 at least' more.so 1.2.4
Expect 0 'must be 1.3.0 at least' more.so 1.3.0
Expect 0 'must be 1.3.0 at least' more.so 1.10.0
Expect 1 'must be 2.0.0 at least' grown.so 1.3.0
Expect 0 'must be 2.0.0 at least' grown.so 2.0.0
Expect 1 'must be 2.0.0 at least' less.so 1.9.9
Expect 2 'could not compare' missing.so 1.2.3
sed -i '$d' small.abi
Expect 2 'does not tell its version' first.so 1.2.3
exit "$failed"
