#!/usr/bin/env bash
# Second boot: the cache is loaded again, and holds what was written through it.
# shellcheck source=demo/telling.sh
source "$(dirname "${BASH_SOURCE[0]}")/telling.sh"

Tell "The appliance has been switched off and on. The kernel knows of no cache, the configuration does."
Run "ls /dev/mapper"
Run "vemocachectl config list"
Run "vemocachectl load --all"

Tell "Does it hold what was written through it? The checksums of the first boot tell."
Run "mount /dev/mapper/cachedev_0 /volume1"
Run "sha256sum --check /dev/fd/3"

Tell "A report, for admins and for programs."
Run "vemocachectl list"
Run "vemocachectl --json status cachedev_0"

Run "umount /volume1"
