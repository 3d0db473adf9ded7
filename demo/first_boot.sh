#!/usr/bin/env bash
# First boot: a cache is created, written through and taken down.
# shellcheck source=demo/telling.sh
source "$(dirname "${BASH_SOURCE[0]}")/telling.sh"

Tell "An appliance has booted. It has an SSD, /dev/md3, a volume, /dev/vg1/volume_1, and no cache."
Run "vemocachectl list"

Tell "A write-back cache: what is written is safe once it lies on the SSD, and reaches the volume later."
Run "vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 256M --mode back --discard-content"

Tell "From now on its device is used in place of the volume. Files are written through it ..."
Run "mkfs.ext4 -q /dev/mapper/cachedev_0"
Run "mount /dev/mapper/cachedev_0 /volume1"
Run "for n in 1 2 3; do head -c 12M /dev/urandom >/volume1/photo\$n.raw; done"
Run "umount /volume1"

Tell "... and read back. Their checksums leave the appliance through descriptor 3, to be compared later."
Run "mount /dev/mapper/cachedev_0 /volume1"
Run "sha256sum /volume1/*.raw | tee /dev/fd/3"

Tell "The counters have counted, and the knobs can be turned."
Run "vemocachectl status cachedev_0"
Run "vemocachectl knob set cachedev_0 fallow_delay 600"

Tell "All of it lies on the SSD alone: on the volume itself there is not even a file system yet."
Run "blkid --probe /dev/vg1/volume_1 || echo 'nothing found'"

Tell "The cache is taken down. Its blocks stay on the SSD, its entry stays configured."
Run "umount /volume1"
Run "vemocachectl unload cachedev_0"
Run "vemocachectl list"
