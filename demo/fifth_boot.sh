#!/usr/bin/env bash
# Fifth boot, on new disks again: the recorded traffic, behind descriptor 3, names a size; a cache of it is made,
# gets the same traffic, and keeps what was promised.
# shellcheck source=demo/telling.sh
source "$(dirname "${BASH_SOURCE[0]}")/telling.sh"

Tell "What does the recorded traffic say?"
cat <&3 >/tmp/recorded.txt
Run "vemocachectl advise trace /tmp/recorded.txt"

# The last ones in the answer are of the cache that is advised.
Advised() { vemocachectl --json advise trace /tmp/recorded.txt | sed "s/.*\"$1\":\"*\\([^\",]*\\).*/\\1/"; }
size=$(Advised size_bytes)
mode=$(Advised mode)

Tell "A cache as advised, and what is promised of it."
Run "vemocachectl advise trace /tmp/recorded.txt --exact --size $size --mode $mode --filter chosen=true -o size_bytes,read_hit_percent"
Run "vemocachectl create /dev/md3 /dev/vg1/volume_1 --size $size --mode $mode --discard-content --quiet"

Tell "It gets the same traffic. All that is read is held against what was written."
Run "vemo-appliance replay /tmp/recorded.txt | head -n 5"
Run "vemocachectl stats cachedev_0 -o name,read_hit_percent"
