#!/usr/bin/env bash
# Third boot: the cache is flushed, with a cancellation in between, follows its volume's growth, is asked about
# its costs, its pinned files and the age of its volume's files, and is deleted.
# shellcheck source=demo/telling.sh
source "$(dirname "${BASH_SOURCE[0]}")/telling.sh"

Tell "Another boot. The cache is loaded, and all that was written still lies on the SSD alone."
Run "vemocachectl load --all"

Tell "A flush writes it back to the volume. It is cancelled from a second process, and leaves a known state."
Run "vemocachectl flush cachedev_0 & sleep 2; vemocachectl flush --cancel cachedev_0; wait"
Run "vemocachectl state get cachedev_0"

Tell "The second flush runs to its end."
Run "vemocachectl flush cachedev_0"

Tell "The volume grows, and the cache device with it."
Run "vemo-appliance grow /dev/vg1/volume_1 3G"
Run "blockdev --getsize64 /dev/mapper/cachedev_0"
Run "vemocachectl expand cachedev_0"
Run "blockdev --getsize64 /dev/mapper/cachedev_0"

Tell "What the cache costs in kernel memory, and whether its SSD is one that this appliance supports."
Run "vemocachectl memory"
Run "vemocachectl ssd check QM-S400 240G"

Tell "A file is pinned: it stays in the cache, whatever else is read."
Run "mount /dev/mapper/cachedev_0 /volume1"
Run "mkdir /volume1/photos && cp /volume1/photo1.raw /volume1/photos"
Run "vemocachectl pin add /volume1 /volume1/photos/photo1.raw"
Run "vemocachectl pin bitmap /volume1 --send"

Tell "How old are the files of the volume?"
Run "vemocachectl filestat run /volume1"
Run "umount /volume1"

Tell "The cache is deleted: device, metadata on the SSD, and configuration entry."
Run "vemocachectl delete cachedev_0"
Run "vemocachectl list"

Tell "Was anything lost? The volume alone now has to hold what was written through the cache."
Run "mount /dev/vg1/volume_1 /volume1"
Run "sha256sum --check /dev/fd/3"
Run "umount /volume1"
