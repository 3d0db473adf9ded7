#!/usr/bin/env bash
# names_test.sh SOURCE PROMTOOL TOOL, on the appliance: the metrics are well formed, and rules and dashboard know no
# others.
set -euo pipefail
source=$1 promtool=$2 tool=$3
"$tool" create /dev/md3 /dev/vg1/volume_1 --size 64M --discard-content --quiet >/dev/null
rm /tmp/flashcache.conf # a finding
"$tool" metrics --plain | tee /tmp/metrics | "$promtool" check metrics

sed -n 's/^\([a-z][a-z_]*\).*/\1/p' /tmp/metrics | sort -u >/tmp/names
grep -hoE '\b(flashcache|node)_[a-z_]+' "$source/contrib/prometheus/flashcache.rules.yml" \
    "$source/contrib/grafana/flashcache.json" | sort -u |
    grep -vxE 'flashcache_(handle_)?state|node_textfile_mtime_seconds' >/tmp/used
if grep -vxFf /tmp/names /tmp/used; then
    echo "the above is no metric" >&2
    exit 1
fi
