#!/usr/bin/env bash
# pages_test.sh BUILD SOURCE: the manual pages can be shown, and tell of every verb, option, function, key and file.
set -euo pipefail
build=$1 source=$2
pages=$build/share/man
export LC_ALL=C

failed=0
Fail() {
    echo "$*" >&2
    failed=1
}

# What a page says, without the marks of its form.
TextOf() { sed -e 's/\\f[BIR]//g' -e 's/\\&//g' -e 's/\\//g' "$pages/$1"; }

Options() { grep -oE -- '(^|[ ,(])--[a-z][a-z-]*' | tr -d ' ,(' | sort -u; }

# The verbs that a help lists.
Verbs() { sed -n '/^Subcommands:/,/^[A-Z]*$/s/^  \([a-z-]*\) .*/\1/p'; }

# RequireAll PAGE WHAT WORD...: the page has each of the words.
RequireAll() {
    local page=$1 what=$2 word text
    shift 2
    text=$(TextOf "$page")
    [ $# -gt 0 ] || Fail "$page: no $what to look for"
    for word in "$@"; do
        grep -qwF -e "$word" <<<"$text" || Fail "$page: does not tell of the $what $word"
    done
}

# RequireOptions PAGE HELP: those of the help stand on the page.
RequireOptions() {
    local options
    mapfile -t options < <(sed -n '/^Options:/,/^[A-Z][^:]*[: ]/p' <<<"$2" | grep -E '^  -' | Options)
    RequireAll "$1" option "${options[@]}"
}

# RequireKnown PAGE HELP: the page has no option that is in none of these helps.
RequireKnown() {
    local strange
    strange=$(comm -13 <(Options <<<"$2") <(TextOf "$1" | Options))
    [ -z "$strange" ] || Fail "$1: tells of options that there are not: ${strange//$'\n'/ }"
}

Tool() { "$build/bin/vemocachectl" "$@"; }

for page in "$pages"/man*/*; do
    if alias=$(sed -n 's/^\.so //p' "$page") && [ -n "$alias" ]; then
        RequireAll "$alias" function "$(basename "$page" .3)"
        continue
    fi
    warnings=$(groff -ww -mandoc -Tutf8 "$page" 2>&1 >/dev/null)
    [ -z "$warnings" ] || Fail "$page: $warnings"
done

help=$(Tool --help)
RequireOptions man8/vemocachectl.8 "$help"
all=$help
for verb in $(Verbs <<<"$help"); do
    all+=$'\n'$(Tool "$verb" --help)
    [ "$verb" != help ] || continue
    RequireAll man8/vemocachectl.8 verb "vemocachectl-$verb"
    # The page of the tool tells of this one.
    one=$(Tool help "$verb" | sed '/-h,--help/d')
    members=$(Verbs <<<"$one")
    for member in $members; do
        one=$(Tool help "$verb" "$member" | sed '/-h,--help/d')
        all+=$'\n'$one
        RequireAll "man8/vemocachectl-$verb.8" verb "vemocachectl $verb $member"
        ! grep -q '^  --' <<<"$one" || RequireOptions "man8/vemocachectl-$verb.8" "$one"
    done
    ! grep -q '^  --' <<<"$one" || RequireOptions "man8/vemocachectl-$verb.8" "$one"
done
for page in "$pages"/man8/*; do RequireKnown "man8/$(basename "$page")" "$all"; done

appliance=$build/bin/vemo-appliance
all=$("$appliance" --help)
RequireOptions man1/vemo-appliance.1 "$all"
for verb in $(Verbs <<<"$all"); do
    one=$("$appliance" "$verb" --help)
    all+=$'\n'$one
    RequireAll man1/vemo-appliance.1 verb "vemo-appliance $verb"
    RequireOptions man1/vemo-appliance.1 "$one"
done
# Its examples run the tool.
RequireKnown man1/vemo-appliance.1 "$all$(Tool create --help)$(Tool flush --help)"

mapfile -t functions < <(sed -nE 's/^ +([A-Za-z0-9]+);$/\1/p' "$source/src/libvemoflashcache.map")
RequireAll man3/libvemoflashcache.3 function "${functions[@]}"
for function in "${functions[@]}"; do
    [ -e "$pages/man3/$function.3" ] || Fail "the function $function has no page"
done

mapfile -t keys < <(sed -nE 's/.*keys\.(Text|Number|Size)\("(\w+)".*/\2/p' "$source/src/config/flashcache_config_set.cpp")
RequireAll man5/flashcache.conf.5 key "${keys[@]}"

mapfile -t files < <(grep -rhoE '"/(usr/vemo/etc|tmp|run/lock|var/lock|var/run|etc|etc\.defaults)/[a-zA-Z0-9_/.-]+"' \
    "$source/src" "$source/cli" | tr -d '"' | sort -u)
RequireAll man5/vemoflashcache-files.5 file "${files[@]}"

exit "$failed"
