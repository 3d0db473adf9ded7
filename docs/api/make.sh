#!/usr/bin/env bash
# make.sh FOLDER: the library's interface as pages, into FOLDER/html. Ends with 1 where Doxygen warns of anything.
set -euo pipefail
out=$(realpath -m "$1")
cd "$(dirname "${BASH_SOURCE[0]}")/../.."
# shellcheck source=packaging/tree.sh
version=$(source packaging/tree.sh && Version)
mkdir -p "$out"
{ cat docs/api/Doxyfile; printf 'OUTPUT_DIRECTORY = %s\nPROJECT_NUMBER = %s\n' "$out" "$version"; } | doxygen -
grep -q 'VEMOFlashCacheFlush' "$out/html/vemoflashcache_8h.html" || { echo "the header's functions are not there" >&2; exit 1; }
