#!/usr/bin/env bash
# Third boot: the cache is flushed, with a cancellation in between, follows its volume's growth, and is deleted.
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

Tell "The cache is deleted: device, metadata on the SSD, and configuration entry."
Run "vemocachectl delete cachedev_0"
Run "vemocachectl list"

Tell "Was anything lost? The volume alone now has to hold what was written through the cache."
Run "mount /dev/vg1/volume_1 /volume1"
Run "sha256sum --check /dev/fd/3"
Run "umount /volume1"
