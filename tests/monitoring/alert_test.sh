#!/usr/bin/env bash
# alert_test.sh SOURCE PROGRAMS TOOL APPLIANCE, on the appliance: from a cache in trouble to the alert that fires. The
# collector reads what the tool wrote, a server scrapes the collector and judges by our rules, without their patience.
set -euo pipefail
source=$1 programs=$2 tool=$3 appliance=$4
work=$(mktemp -d)
children=()
End() { kill "${children[@]}" 2>/dev/null || true; wait; rm -rf "$work"; }
trap End EXIT
mkdir "$work/text"

sed 's/for: .*/for: 0s/' "$source/contrib/prometheus/flashcache.rules.yml" >"$work/rules.yml"
cat >"$work/server.yml" <<'END'
global: {scrape_interval: 200ms, scrape_timeout: 200ms, evaluation_interval: 200ms}
rule_files: [rules.yml]
scrape_configs: [{job_name: node, static_configs: [{targets: ["127.0.0.1:9100"]}]}]
END

# The appliance's loopback is its own, so any port is free.
"$programs/prometheus-node-exporter" --collector.disable-defaults --collector.textfile \
    --collector.textfile.directory="$work/text" --web.listen-address=127.0.0.1:9100 2>"$work/exporter.log" &
children+=($!)
"$programs/prometheus" --config.file="$work/server.yml" --storage.tsdb.path="$work/data" \
    --web.listen-address=127.0.0.1:9090 2>"$work/server.log" &
children+=($!)

Alerts() { wget -q -O - 'http://127.0.0.1:9090/api/v1/alerts' 2>/dev/null || true; }
# Tells the caches again and again until the server says so; the test's own time is the limit.
AwaitAlerts() {
    until "$tool" metrics --output "$work/text/flashcache.prom" && grep -Eq "$1" <<<"$(Alerts)"; do
        kill -0 "${children[@]}" || { cat "$work"/*.log; exit 1; }
    done
}

"$tool" create /dev/md3 /dev/vg1/volume_1 --size 64M --discard-content --quiet >/dev/null
AwaitAlerts '"alerts":\[\]'
# Only a server that has read the caches may be taken for content.
until wget -q -O - 'http://127.0.0.1:9090/api/v1/query?query=flashcache_size_bytes' | grep -q 'md3+volume_1'; do
    AwaitAlerts '"alerts":\[\]'
done

dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=10 oflag=direct status=none
"$appliance" fault writeback fail
if "$tool" flush cachedev_0 --quiet; then exit 1; fi
AwaitAlerts '"alertname":"FlashcacheCritical"[^}]*"code":"VFC-D080"[^]]*"state":"firing"'
Alerts
