#!/usr/bin/env bash
# rules_test.sh SOURCE PROMTOOL: the alert rules are well formed, each has a case, and the cases hold.
set -euo pipefail
source=$1 promtool=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cp "$source/contrib/prometheus/flashcache.rules.yml" "$source/tests/monitoring/alerts_test.yml" "$work"
cd "$work"
"$promtool" check rules flashcache.rules.yml
while read -r alert; do
    grep -q "alertname: $alert$" alerts_test.yml || { echo "no case lets $alert fire" >&2; exit 1; }
done < <(sed -n 's/.*- alert: //p' flashcache.rules.yml)
"$promtool" test rules alerts_test.yml
