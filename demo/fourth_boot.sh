#!/usr/bin/env bash
# Fourth boot, on new disks: a cache that is too small for its load, while the simulated kernel records what it
# is asked for.
# shellcheck source=demo/telling.sh
source "$(dirname "${BASH_SOURCE[0]}")/telling.sh"

Tell "How large should a cache be? On another appliance one of 64 MiB is at work, and its traffic is recorded."
Run "vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 64M --mode back --discard-content --quiet"

# Of 8,000 requests to 400 MiB most go to 100 MiB of it, half of them writes.
awk 'BEGIN {
    srand(1)
    for (i = 1; i <= 8000; i++) {
        block = rand() < 0.9 ? int(rand() * 1600) : int(rand() * 6400)
        printf "1,%s,%d,%d,%d\n", rand() < 0.5 ? "R" : "W", block * 65536, 65536, i * 20000
    }
}' >/tmp/load.csv
Run "vemo-appliance replay /tmp/load.csv >/dev/null"
Run "vemocachectl stats cachedev_0 -o name,read_hit_percent"
