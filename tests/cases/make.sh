#!/usr/bin/env bash
# make.sh [CASE...]: makes these cases, or all that are told here, anew: what a simulated appliance reports once it was
# spoiled so. Any other report.json can be a case as well: its findings are what is expected. Needs the tool and
# vemo-appliance in PATH.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")"

kConfig=/usr/vemo/etc/flashcache.conf
kCreate='vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 64M'
kUnload='vemocachectl unload cachedev_0'
kRefresh='vemocachectl config refresh'
kPause='vemo-appliance fault cleaning pause'
kDirty="$kCreate; $kPause; dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=20 oflag=direct"

Edit() { echo "sed -i '$1' $kConfig; $kRefresh"; }

declare -A spoil=(
    [nothing-wrong]="$kDirty; vemocachectl create /dev/md4 /dev/vg1/volume_2 --size 32M --mode around;
        dd if=/dev/mapper/cachedev_1 of=/dev/null bs=64k count=100 iflag=direct"
    [configured-but-not-loaded]="$kDirty; vemocachectl knob set cachedev_0 fast_remove 1; dmsetup remove cachedev_0"
    [unloaded-with-dirty-blocks]="$kDirty; $kUnload"
    [loaded-but-not-configured]="$kDirty; $(Edit '/./d')"
    [creation-not-finished]="$kCreate; $(Edit 's/CreateCritSection.*/CreateCritSection=1/')"
    [wrong-mode]="$kCreate; $(Edit 's/WriteMode.*/WriteMode=around/')"
    [wrong-tuning-and-size]="$kCreate; vemocachectl knob set cachedev_0 fast_remove 0;
        $(Edit 's/CacheSizeByte.*/CacheSizeByte=4096/')"
    [ssd-missing]="$kDirty; $kUnload; mv /dev/md3 /dev/gone"
    [ssd-missing-while-up]="$kDirty; mv /dev/md3 /dev/gone"
    [volume-missing]="$kCreate; $kUnload; mv /dev/vg1/volume_1 /dev/gone"
    [volume-grown]="$kCreate; vemo-appliance grow /dev/vg1/volume_1 3G"
    [wrong-ssd]="$kCreate; $kUnload; $(Edit 's,/dev/vg1/volume_1,/dev/vg1/volume_2,')"
    [ssd-wiped-while-up]="$kDirty; dd if=/dev/zero of=/dev/md3 bs=4k count=1"
    [ssd-wiped-while-down]="$kCreate; $kUnload; vemocachectl wipe /dev/md3 --discard-metadata"
    [superblock-of-other-version]="$kCreate; $(Edit 's/CacheVersion.*/CacheVersion=0/')"
    [not-taken-down-in-order]="$kDirty; $kUnload; printf '\\0\\0\\0\\0' | dd of=/dev/md3 bs=1 seek=16 conv=notrunc;
        $(Edit 's/loaded.*/loaded=1/')"
    [dead-flush]="$kDirty; vemocachectl flush cachedev_0 & sleep 0.2; kill -9 \$!"
    [left-in-repairing]="$kCreate; vemocachectl state set cachedev_0 repairing"
    [force-remove-left-set]="$kDirty; vemocachectl attribute set cachedev_0 force-remove --ignore-write-errors"
    [write-back-errors]="$kDirty; vemo-appliance fault errors 3"
    [ssd-errors]="$kCreate; vemo-appliance fault file.flashcache_errors 'disk_read_errors=4 disk_write_errors=0
ssd_read_errors=2 ssd_write_errors=0 memory_alloc_errors=0 write_disk_sync_errors=0'"
    [dirty-above-threshold]="$kDirty; vemocachectl knob set cachedev_0 dirty_thresh_pct 1"
    [all-dirty]="vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 2M; $kPause;
        dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=32 oflag=direct"
    [few-reads-hit]="vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 1M --mode around;
        dd if=/dev/mapper/cachedev_0 of=/dev/null bs=64k count=400 iflag=direct"
    [config-damaged]="$kDirty; sed -i 2s/.*/rubbish/ $kConfig"
    [copy-differs]="$kCreate; sed -i s/back/around/ /tmp/flashcache.conf"
    [copy-foreign]="$kCreate; chown nobody /tmp/flashcache.conf"
    [two-entries]="$kCreate; $kUnload; sed 's/^.md3+volume_1]/[twin]/' $kConfig >/tmp/twin; cat /tmp/twin >>$kConfig;
        $kRefresh"
    [leftovers]="touch /flashcache-create-64mb /tmp/cache-debug-remove /run/lock/vemocachectl.lock;
        chown nobody /run/lock/vemocachectl.lock;
        printf 'pid=\"1\"\ncmd=\"no\"\n' >/tmp/flashcache_file_statistics_processing"
    [pins-of-a-volume-that-is-gone]="$kCreate;
        printf '[/volume9]\n/volume9/f\n[/volume8]\n' >/usr/vemo/etc/flashcache_pin_file.conf"
    [files-without-numbers]="$kCreate; for file in stats errors progress attribute; do
        vemo-appliance fault file.flashcache_\$file rubbish; done"
    [muted]="$kDirty; vemocachectl attribute set cachedev_0 force-remove --ignore-write-errors;
        vemocachectl doctor --mute VFC-D063:cachedev_0 --for 52w"
)
# The names of these stay as they are.
kPlain=" nothing-wrong wrong-ssd config-damaged "

[ $# -gt 0 ] || set -- "${!spoil[@]}"
for case in "$@"; do
    plain=
    [[ $kPlain != *" $case "* ]] || plain=--plain
    vemo-appliance --pairs 2 bash -c "{ ${spoil[$case]}; } >/dev/null 2>&1
        vemocachectl report --quiet --seconds 0.1 $plain /tmp/r.tar.gz >/dev/null
        tar xzOf /tmp/r.tar.gz vemocachectl-report/report.json" >"$case.new"
    mv "$case.new" "$case.json"
done
