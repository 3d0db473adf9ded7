#!/bin/sh
# comments.sh HEADER: the header with comments as Doxygen reads them: of members behind them, of all else before them.
# What stands at its head is of the file, laid out as it is; a ruler begins a group; <words in brackets> stay words.
set -eu
awk '
    NR == 1 { print "/** @file\n * SSD caches of a storage appliance.\n *\n * @verbatim"; head = 1; next }
    head && /^ \*\/$/ { print " * @endverbatim"; head = 0 }
    /^\/\* -+ / {
        if (isOpen) print "/**@}*/"
        sub(/^\/\* -+ /, "/** @name "); sub(/ -+/, "")
        isOpen = inRuler = 1
    }
    /^#ifdef __cplusplus/ && isOpen { print "/**@}*/"; isOpen = 0 }
    { print }
    inRuler && /\*\/$/ { print "/**@{*/"; inRuler = 0 }
' "$1" | sed -E \
    -e 's#^/\* #/** #' \
    -e 's#^( +[^ /*].*) /\* #\1 /**< #' \
    -e 's#^( +)/\* #\1/**< #' \
    -e 's#<(ssd|space|ssdName|model|capacity in GiB|module)>#\\<\1\\>#g'
