#!/usr/bin/env bash
# install_test.sh pkg_config|cmake BUILD SOURCE: installs into a private folder, moves it, and builds and runs
# there the C program that the README shows.
set -euo pipefail
how=$1 build=$2 source=$3

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
cmake --install "$build" --prefix "$work/first" >/dev/null
mv "$work/first" "$work/usr"
libdir=$(dirname "$(find "$work/usr" -name libvemoflashcache.so)")

mkdir "$work/program"
cd "$work/program"
awk '/^```c$/ { inside = 1; next } /^```$/ { inside = 0 } inside' "$source/README.md" >first.c

BuildWith_pkg_config() {
    export PKG_CONFIG_PATH=$libdir/pkgconfig
    # shellcheck disable=SC2046 # the flags are words of their own
    "$CC" -std=c11 -Wall -Wextra -Wpedantic -Werror first.c -o first \
        $(pkg-config --cflags --libs vemoflashcache)
}

BuildWith_cmake() {
    cat >CMakeLists.txt <<'END'
cmake_minimum_required(VERSION 3.25)
project(first C)
find_package(vemoflashcache 1.0 REQUIRED)
add_executable(first first.c)
target_link_libraries(first PRIVATE vemoflashcache::vemoflashcache)
END
    cmake -S . -B . -G Ninja -DCMAKE_PREFIX_PATH="$work/usr" -DCMAKE_C_COMPILER="$CC" >/dev/null
    cmake --build . >/dev/null
}

"BuildWith_$how"
LD_LIBRARY_PATH=$libdir ./first | tee output
grep -Eqx '[0-9]+ live caches' output

# The installed tool finds its library by itself, and nothing installed names where it was built.
env -u LD_LIBRARY_PATH "$work/usr/bin/vemocachectl" --help >/dev/null
if grep -rIlF -e "$build" -e "$source" "$work/usr"; then
    echo "the files above name the folder that they were built in" >&2
    exit 1
fi
