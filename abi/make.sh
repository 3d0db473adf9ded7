#!/usr/bin/env bash
# make.sh LIBRARY VERSION: the library's binary interface as text, on standard output, for abi/libvemoflashcache.abi.
set -euo pipefail
# Names of arguments, lines and folders may change; what the library needs itself is tested elsewhere.
abidw --exported-interfaces-only --no-elf-needed --no-corpus-path --no-comp-dir-path --no-show-locs \
    --no-parameter-names "$1"
printf '<!-- of version %s -->\n' "$2"
