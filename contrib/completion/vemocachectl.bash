# Completion of vemocachectl for bash. The tool itself tells what may come; see "vemocachectl --complete".
# shellcheck shell=bash

_vemocachectl() {
    local typed words kind word part=${COMP_WORDS[COMP_CWORD]}
    # Not COMP_WORDS: bash takes words apart at ":" and "=", which stand in codes and options.
    read -ra words <<<"${COMP_LINE:0:COMP_POINT}"
    case ${COMP_LINE:0:COMP_POINT} in *[[:space:]]) words+=("") ;; esac
    typed=${words[-1]}
    # What bash will replace is the part behind the last of them alone.
    case $part in : | =) part= ;; esac
    COMPREPLY=()
    {
        read -r kind
        while IFS=$'\t' read -r word _; do
            COMPREPLY+=("${word#"${typed%"$part"}"}")
        done
    } < <("${words[0]}" --complete "${words[@]:1}" 2>/dev/null)
    case $kind in
        files) compopt -o filenames -o default ;;
        folders) compopt -o dirnames ;;
    esac
    # An option whose value follows a "=" wants no space before it.
    if [ ${#COMPREPLY[@]} -eq 1 ] && [[ ${COMPREPLY[0]} == *= ]]; then compopt -o nospace; fi
    return 0
}

complete -F _vemocachectl vemocachectl
