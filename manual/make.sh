#!/usr/bin/env bash
# make.sh GENERATOR SCDOC SOURCE OUT: all manual pages, laid out in OUT as they are installed.
set -euo pipefail
generator=$1 scdoc=$2 source=$3 out=$4

rm -rf "$out"
mkdir -p "$out"/man{1,3,5,8}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
"$generator" "$source" "$work"

for page in "$work"/*.scd; do
    name=$(basename "$page" .scd)
    "$scdoc" <"$page" >"$out/man${name##*.}/$name" || { echo "$name: scdoc refuses it" >&2; exit 1; }
done
cp "$work"/*.3 "$out/man3"
