#!/bin/sh
# unclean_caches.sh BYTES: names the caches that hold more than so many dirty bytes, and those of which that is not
# known; ends with 1 when there are any.
set -eu
# First the answer alone: a tool that fails must not pass for one that found nothing.
answer=$(vemocachectl list --json)
unclean=$(printf '%s\n' "$answer" | jq --raw-output --argjson most "$1" '.caches[]
    | select(.dirty_bytes == null or .dirty_bytes > $most)
    | "\(.name): \(.dirty_bytes // "not known")"')
[ -z "$unclean" ] || { printf '%s\n' "$unclean"; exit 1; }
