#!/usr/bin/env bash
# examples_test.sh BUILD SOURCE: the examples are built against the installed package, checked as their languages' own
# tools do, and run on the simulated appliance with caches.
set -euo pipefail
build=$1 source=$2
examples=$source/examples

# A folder that an appliance shows: it has a /tmp of its own.
work=$(mktemp -d "$build/examples.XXXXXX")
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/usr" >/dev/null
libdir=$(dirname "$(find "$work/usr" -name libvemoflashcache.so)")
export PKG_CONFIG_PATH=$libdir/pkgconfig

# shellcheck disable=SC2046 # the flags are words of their own
"$CC" -std=c11 -Wall -Wextra -Wpedantic -Werror "$examples/c/list_caches.c" -o "$work/list_caches" \
    $(pkg-config --cflags --libs vemoflashcache)
# shellcheck disable=SC2046
"$CXX" -std=c++20 -Wall -Wextra -Wpedantic -Werror "$examples/cpp/flush_cache.cpp" -o "$work/flush_cache" -pthread \
    $(pkg-config --cflags --libs vemoflashcache)

# What is not installed here is checked elsewhere.
if command -v mypy >/dev/null; then
    mypy --strict --cache-dir "$work/mypy" "$examples/python" || exit 1
fi
if command -v ansible-playbook >/dev/null; then
    (cd "$examples/ansible" && ANSIBLE_LOCAL_TEMP=$work/ansible ansible-playbook --syntax-check -i localhost, playbook.yml) ||
        exit 1
fi

cat >"$work/story.sh" <<'END'
set -euxo pipefail
export LD_LIBRARY_PATH=$libdir PYTHONPATH=$examples/python PYTHONDONTWRITEBYTECODE=1
Fail() { echo "$*" >&2; exit 1; }
vemocachectl create /dev/md3 /dev/vg1/volume_1 --size 64M --quiet >/dev/null
"$work/list_caches" | grep -qx '/dev/md3 in front of /dev/vg1/volume_1: write-back, 64 MiB, 0% of the reads hit'

vemo-appliance fault cleaning pause
dd if=/dev/urandom of=/dev/mapper/cachedev_0 bs=64k count=20 oflag=direct status=none
if command -v jq >/dev/null; then
    "$examples/shell/unclean_caches.sh" 2000000
    code=0
    "$examples/shell/unclean_caches.sh" 1000000 >said || code=$?
    [ "$code $(cat said)" = "1 md3+volume_1: 1310720" ] || Fail "unclean_caches: $code $(cat said)"
fi
if command -v python3 >/dev/null; then
    python3 "$examples/python/show_caches.py" |
        grep -qx '/dev/md3 /dev/vg1/volume_1 back 67108864 bytes, 20 dirty blocks'
    ! python3 "$examples/python/show_caches.py" /dev/mapper/cachedev_7 2>said || Fail "it flushed no cache"
    grep -q 'the flush of /dev/mapper/cachedev_7 failed' said
fi

# Cancelled while nothing is written back, and done when it may be.
"$work/flush_cache" /dev/mapper/cachedev_0 >told &
flush=$!
until grep -q flushing /usr/vemo/etc/flashcache.conf; do :; done
kill -INT $flush
code=0
wait $flush || code=$?
[ "$code $(tail -n 1 told)" = "3 cancelled" ] || Fail "flush_cache: $code $(cat told)"
vemo-appliance fault cleaning run
"$work/flush_cache" /dev/mapper/cachedev_0 | tail -n 1 | grep -qx flushed
vemocachectl state get cachedev_0 | grep -q normal
END
export PATH=$build/bin:$PATH libdir examples work
vemo-appliance bash "$work/story.sh" >"$work/log" 2>&1 || { cat "$work/log"; exit 1; }
