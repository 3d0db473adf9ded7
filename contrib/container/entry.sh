#!/bin/sh
# Without a command a shell on the appliance; "demo" tells the story; anything else runs there.
set -eu
case "${1:-bash}" in
    demo) exec bash /usr/local/share/vemo-demo/run.sh ;;
    *) exec vemo-appliance "${@:-bash}" ;;
esac
