#!/usr/bin/env bash
# Makes docs/report.png anew: what chromium shows of a report of a simulated appliance. Needs chromium, and the tool
# and vemo-appliance in PATH.
set -euo pipefail
here=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

vemo-appliance --pairs 2 --clean-rate 200 --state "$work/appliance" "$here/report.sh" /usr/vemo/etc/report.tar.gz
tar xzf "$work/appliance/usr-vemo-etc/report.tar.gz" -C "$work"
chromium --headless --no-sandbox --disable-gpu --hide-scrollbars --user-data-dir="$work/profile" \
    --window-size=1000,1250 --screenshot="${1:-$here/../docs/report.png}" \
    "file://$work/vemocachectl-report/index.html" 2>"$work/said" || { cat "$work/said" >&2; exit 1; }
