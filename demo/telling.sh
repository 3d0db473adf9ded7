# How the demo tells: prose, then each command as it ran with what came out. Sourced by its chapters.
# shellcheck shell=bash
set -Eeuo pipefail

if [ -t 1 ]; then
    readonly kBold=$'\e[1m' kDim=$'\e[36m' kPlain=$'\e[0m'
else
    readonly kBold='' kDim='' kPlain=''
fi

# A paragraph of the story.
Tell() { printf '\n%s%s%s\n' "$kDim" "$*" "$kPlain"; }

# Shows a command line as one would type it, then runs it.
Run() {
    printf '%s$ %s%s\n' "$kBold" "$1" "$kPlain"
    eval "$1"
}

trap 'echo "The story broke off: \"$BASH_COMMAND\" failed." >&2' ERR
