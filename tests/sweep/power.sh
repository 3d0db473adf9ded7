#!/usr/bin/env bash
# power.sh BIN [--operation NAME] [--n NUMBER] [--every STEP]: cuts the power of a simulated appliance, whose disks have
# volatile caches, at the n-th request of a command of the tool to its disks, for every n. After the next boot the caches
# are brought up as at every boot; then list must tell the truth, the same command comes to its end, and every byte that
# was synced before the command is there.
set -euo pipefail
bin=$1
shift
operation='' number=0 every=1
while [ $# -gt 1 ]; do
    case $1 in
        --operation) operation=$2 ;;
        --n) number=$2 ;;
        --every) every=$2 ;;
        *) echo "unknown option $1" >&2 && exit 2 ;;
    esac
    shift 2
done
export PATH=$bin:$PATH
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

readonly kCreate='vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 1M --format original --discard-content'
readonly kCache=/dev/mapper/cachedev_0
# By command: what it begins on ("-": an appliance without a cache), the command, the state that it leads to.
readonly kCommands=(
    "create|-|$kCreate|running"
    "load|unload|vemocachectl load md3+volume_1|running"
    "unload|run|vemocachectl unload md3+volume_1|down"
    "flush|run|vemocachectl flush md3+volume_1|clean"
    "delete|run|vemocachectl delete md3+volume_1|none"
    "expand|grow|vemocachectl expand md3+volume_1|running"
)

# Boot STATE SEED SCRIPT: what the script says comes back, errors too.
Boot() {
    vemo-appliance --ssd-size 2M --volume-size 2M --state "$1" --volatile="$2" bash -c "$3" 2>&1
}

# The first boot: the data are synced, in part dirty.
Prepare() {
    local before=$1
    local script="head -c 262144 /dev/urandom >/usr/vemo/etc/data; $kCreate >/dev/null 2>&1;
        dd if=/usr/vemo/etc/data of=$kCache bs=4k oflag=direct conv=fsync,notrunc status=none;"
    case $before in
        -) script='' ;;
        unload) script+='vemocachectl unload md3+volume_1 >/dev/null;' ;;
        grow) script+='vemo-appliance grow /dev/vg1/volume_1 3M;' ;;
    esac
    rm -rf "$work/begin"
    Boot "$work/begin" 1 "$script sync"
}

# The second boot: the command, until the power fails. Whether it did.
Cut() {
    local before=$1 command=$2 n=$3 said
    local up='vemocachectl load --all >/dev/null 2>&1;'
    [ "$before" = run ] || [ "$before" = grow ] || up=''
    rm -rf "$work/state"
    cp -r --sparse=always "$work/begin" "$work/state"
    said=$(Boot "$work/state" "$n" "$up vemo-appliance fault power cut@$n; $command >/dev/null 2>&1 && echo finished") || true
    [ "$said" != finished ]
}

# The third boot, which prints what is wrong.
Look() {
    local before=$1 command=$2 goal=$3
    Boot "$work/state" 1 "
        vemocachectl load --all >/tmp/said 2>&1
        told=\$(vemocachectl list --json | grep -o '\"state\":\"[a-z ]*\"' | cut -d'\"' -f4)
        [ -e $kCache ] && is=running || is=
        [ \"\$told\" = running ] && tells=running || tells=
        [ \"\$is\" = \"\$tells\" ] || echo \"list tells the state \$told\"
        $command >/tmp/said 2>&1; code=\$?
        state=\$(vemocachectl list --json | grep -o '\"state\":\"[a-z ]*\"' | cut -d'\"' -f4)
        case $goal in
            clean) vemocachectl list --json | grep -q '\"dirty_bytes\":0' || echo \"repeated, it leaves dirty blocks\" ;;
            running) [ -e $kCache ] || echo \"repeated, with exit code \$code, it does not come to its end: \$(cat /tmp/said)\" ;;
            down) [ ! -e $kCache ] && [ -n \"\$state\" ] || echo \"repeated, with exit code \$code, it leaves \$state\" ;;
            none) [ -z \"\$state\" ] || echo \"repeated, with exit code \$code, it leaves \$state: \$(cat /tmp/said)\" ;;
        esac
        [ $before = - ] && exit
        [ $goal != down ] || vemocachectl load --all >/tmp/said 2>&1
        device=$kCache; [ $goal != none ] || device=/dev/vg1/volume_1
        cmp -s -n 262144 /usr/vemo/etc/data \$device || echo \"what was synced is lost\"
        true"
}

points=0 findings=0
for line in "${kCommands[@]}"; do
    IFS='|' read -r name before command goal <<<"$line"
    [ -z "$operation" ] || [ "$operation" = "$name" ] || continue
    Prepare "$before"
    n=$((number > 0 ? number : every > 1 ? points % every : 0))
    while Cut "$before" "$command" "$n"; do
        points=$((points + 1))
        wrong=$(Look "$before" "$command" "$goal") || wrong+=" (exit code $?)"
        if [ -n "$wrong" ]; then
            findings=$((findings + 1))
            echo "finding: ./dev sweep power --operation $name --n $n: $wrong"
        fi
        [ "$number" -eq 0 ] || break
        n=$((n + every))
    done
    echo "$name: $points points so far"
done
echo "$points points tried, $findings findings"
[ "$findings" -eq 0 ] && [ "$points" -gt 0 ]
