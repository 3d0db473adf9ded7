#!/usr/bin/env bash
# page_test.sh CHROMIUM SOURCE_FOLDER BINARY_FOLDER: a report's page in a real browser. Its screenshot stays in the
# build folder.
set -euo pipefail
chromium=$1 source=$2 build=$3
export PATH="$build/bin:$PATH"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
page="$work/vemocachectl-report/index.html"

Fail() { echo "page_test: $*" >&2; exit 1; }

# Chromium with a profile of its own; what the page's console says goes to "$work/console".
Browse() {
    "$chromium" --headless --no-sandbox --disable-gpu --hide-scrollbars --user-data-dir="$work/profile" \
        --enable-logging=stderr "$@" "file://$page" 2>"$work/said" || { cat "$work/said"; Fail "chromium failed"; }
    grep CONSOLE "$work/said" >"$work/console" || true
}

vemo-appliance --pairs 2 --clean-rate 200 --state "$work/appliance" \
    "$source/demo/report.sh" /usr/vemo/etc/report.tar.gz
tar xzf "$work/appliance/usr-vemo-etc/report.tar.gz" -C "$work"

Browse --dump-dom --window-size=1000,1250 --screenshot="$build/report-page.png" >"$work/dom"
[ ! -s "$work/console" ] || Fail "the page has errors: $(cat "$work/console")"
grep -q '<title>SSD caches of host-1</title>' "$work/dom" || Fail "it has not loaded"
# Findings come first, then the caches.
first=$(grep -nom1 '<article class="finding critical">' "$work/dom" | cut -d: -f1)
cache=$(grep -nom1 'id="cache-0"' "$work/dom" | cut -d: -f1)
[ -n "$first" ] || Fail "it has no finding"
[ "$first" -lt "$cache" ] || Fail "the findings do not come first"
# Five pictures of each cache, and of the one at work numbers in each of them.
[ "$(grep -c '<svg' "$work/dom")" -eq 10 ] || Fail "it has $(grep -c '<svg' "$work/dom") pictures"
sed -n '/id="cache-0"/,/id="cache-1"/p' "$work/dom" >"$work/first"
for title in 'Hit rate' 'Blocks in use' 'Dirty data' Write-back Requests; do
    points=$(sed -n "/aria-label=\"$title\"/,/<\/svg>/p" "$work/first" | grep -c '<circle') || true
    [ "$points" -ge 3 ] || Fail "the picture \"$title\" has $points points"
done
# A browser that finds anything of the page elsewhere would have said so: nothing may be fetched.
! grep -Eq '(src|href)="[^#]' "$work/dom" || Fail "it refers to other files"
[ "$(head -c 4 "$build/report-page.png" | tail -c 3)" = PNG ] || Fail "there is no screenshot"

# By night the page looks otherwise. And the console is heard at all: a page that breaks its own rule says so.
page="$work/broken.html"
sed 's,</main>,<img src="x.png"></main>,' "$work/vemocachectl-report/index.html" >"$page"
Browse --blink-settings=preferredColorScheme=0 --window-size=1000,1250 --screenshot="$build/report-page-dark.png" >/dev/null
[ -s "$work/console" ] || Fail "the console is not heard"
! cmp -s "$build/report-page.png" "$build/report-page-dark.png" || Fail "it looks the same by day and by night"
