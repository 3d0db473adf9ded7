#!/usr/bin/env bash
# Tells the life of a cache on a simulated appliance that is switched off and on in between. Its disks and
# its configuration are kept over the restart in a folder that goes with the demo; the checksums of what was
# written are kept outside of the appliance, behind descriptor 3.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

vemo-appliance --state "$work/appliance" "$here/first_boot.sh" 3>"$work/checksums"
vemo-appliance --state "$work/appliance" "$here/second_boot.sh" 3<"$work/checksums"
# Slow enough to be cancelled on the way.
vemo-appliance --state "$work/appliance" --clean-rate 60 "$here/third_boot.sh" 3<"$work/checksums"
vemo-appliance --trace "$work/recorded" "$here/fourth_boot.sh"
vemo-appliance "$here/fifth_boot.sh" 3<"$work/recorded"
printf '\nThe story took %s seconds.\n' "$SECONDS"
