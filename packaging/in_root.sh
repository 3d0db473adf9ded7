#!/usr/bin/env bash
# What root_test.sh does in the root: an older version is installed and upgraded, the tests run, the maker's libraries take
# the stand-ins' place, all is removed and purged, and nothing is left.
set -euo pipefail
umount --lazy /outside

Say() { printf -- '-- %s\n' "$*"; }
Fail() { printf '%s\n' "$*" >&2; exit 1; }

# All that is there, but for what Debian's own programs keep.
Everything() {
    find / -xdev \( -path /var/lib/dpkg -o -path /var/log -o -path /var/cache -o -path /tests -o -path /packages \) \
        -prune -o -printf '%p %y %m %U:%G %l\n' | sort
}

Names() { for package in /packages/new/*.deb; do dpkg-deb --field "$package" Package; done; }

CheckLibraries() {
    local file
    while IFS= read -r file; do
        [ -f "$file" ] || continue
        if readelf --dynamic "$file" 2>/dev/null | grep -E 'R(UN)?PATH'; then Fail "$file: looks for libraries elsewhere"; fi
        # Needs nothing that is not there, either.
        if ldd "$file" 2>/dev/null | grep 'not found'; then Fail "$file: lacks a library"; fi
    done < <(dpkg --listfiles "${names[@]}" | grep -E '^/usr/(bin|lib|libexec)/' | sort -u)
}

CheckPages() {
    local page
    for page in man1/vemo-appliance.1 man3/VEMOFlashCacheFlush.3 man3/libvemoflashcache.3 man5/flashcache.conf.5 \
        man8/vemocachectl.8 man8/vemocachectl-flush.8; do
        zcat "/usr/share/man/$page.gz" | grep -q '^\.SH NAME' || Fail "$page is no manual page"
    done
}

# A package as the appliance's maker might have, with the libraries of the stand-ins.
InstallMakers() {
    local work=/packages/maker
    dpkg-deb --raw-extract /packages/new/libvemo-platform-sim_*.deb $work
    rm -r "${work:?}"/{DEBIAN,usr/share}
    mkdir $work/DEBIAN
    cat >$work/DEBIAN/control <<'END'
Package: appliance-platform
Version: 6.1
Architecture: all
Maintainer: The maker of the appliance <maker@example.org>
Provides: libvemocore6, libvemosdk6, libvemosysnotify6
Conflicts: libvemocore6, libvemosdk6, libvemosysnotify6
Replaces: libvemocore6, libvemosdk6, libvemosysnotify6
Description: platform libraries of an appliance
END
    dpkg-deb --build $work /packages/maker.deb >/dev/null
    # As apt does it: the one goes, and the other comes before anything is asked to work.
    dpkg --force-depends --remove libvemo-platform-sim
    dpkg --install /packages/maker.deb
}

mapfile -t names < <(Names)
Everything >/tmp/before

Say "Installing the older version"
dpkg --install /packages/old/*.deb >/tmp/log 2>&1 || { cat /tmp/log; Fail "it cannot be installed"; }
Say "Upgrading to the newer one"
dpkg --install /packages/new/*.deb >/tmp/log 2>&1 || { cat /tmp/log; Fail "it cannot be upgraded"; }
for package in /packages/new/*.deb; do
    [ "$(dpkg-query -W -f '${Status} ${Version}' "$(dpkg-deb --field "$package" Package)")" = \
        "install ok installed $(dpkg-deb --field "$package" Version)" ] || Fail "$package: not installed"
done
CheckLibraries
CheckPages
Everything >/tmp/installed
for test in story programs; do
    Say "debian/tests/$test"
    "/tests/$test"
done
Everything | diff /tmp/installed - || Fail "the tests left the above behind"
Say "The maker's libraries in place of the stand-ins"
InstallMakers >/tmp/log 2>&1 || { cat /tmp/log; Fail "they do not take the stand-ins' place"; }
! dpkg-query -W -f '${Status}' libvemo-platform-sim | grep -q 'ok installed' || Fail "the stand-ins stayed"
vemocachectl --version
/tests/story
Say "Removing and purging"
dpkg --remove appliance-platform "${names[@]}" >/tmp/log 2>&1 || { cat /tmp/log; Fail "they cannot be removed"; }
dpkg --purge "${names[@]}" >>/tmp/log 2>&1 || { cat /tmp/log; Fail "they cannot be purged"; }
Everything | diff /tmp/before - || Fail "the above was left behind"
Say "Nothing is left"
