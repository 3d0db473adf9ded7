#!/usr/bin/env bash
# What a report shows best: two caches, one of them at work, and some trouble. Run on a simulated appliance; the
# report goes where the first word says.
set -euo pipefail

vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 64M --discard-content >/dev/null
vemocachectl create /dev/md4 /dev/vg1/volume_2 --size 32M --mode around >/dev/null
vemocachectl attribute set cachedev_0 force-remove --ignore-write-errors >/dev/null
sed -i 's/WriteMode.*around/WriteMode = thru/' /usr/vemo/etc/flashcache.conf
vemocachectl config refresh >/dev/null

# Reads and writes until the report is there.
(
    trap 'exit 0' TERM
    for ((i = 0; ; i = (i + 1) % 20)); do
        dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=40 seek=$((i * 25)) oflag=direct
        dd if=/dev/mapper/cachedev_0 of=/dev/null bs=64k count=$((60 + i * 20)) iflag=direct
    done 2>/dev/null
) &
vemocachectl report --quiet --seconds 4 "$1" >/dev/null
kill $!
