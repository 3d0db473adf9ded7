#!/usr/bin/env bash
# build_cost.sh FOLDER CC CXX: builds the tree, tests included, anew in FOLDER, and tells what CPU time compiling took.
# A unit is what a file costs at -O2 -g that only includes <CLI/CLI.hpp>: it carries from machine to machine.
set -euo pipefail
cd "$(dirname "${BASH_SOURCE[0]}")/.."

# Nothing of the caller's may keep compilations, or start them in another way.
unset CMAKE_C_COMPILER_LAUNCHER CMAKE_CXX_COMPILER_LAUNCHER CFLAGS CXXFLAGS
export CCACHE_DISABLE=1 # the compiler may itself be a link to ccache

folder=$(realpath -m "$1") cc=$2 cxx=$3
launcher=$PWD/bench/compile_time.sh
export VEMO_COMPILE_TIMES=$folder/compile_times

# One on each core, as the build keeps all of them busy; before and after it, as another job may do so for a part.
CompileUnits() {
    local copy
    printf '#include <CLI/CLI.hpp>\n' >"$folder/unit.cpp"
    for copy in $(seq "$(nproc)"); do
        "$launcher" "$cxx" -std=c++20 -O2 -g -o "$folder/unit$copy.o" -c "$folder/unit.cpp" &
    done
    wait
}

# Lines SOURCE TAB SECONDS. Bash writes 1m2.345s.
Seconds() {
    awk -F '\t' -v OFS='\t' '
        function seconds(text, parts) { split(text, parts, /[ms]/); return 60 * parts[1] + parts[2] }
        { print $1, seconds($2) + seconds($3) }' "$VEMO_COMPILE_TIMES"
}

# Names below the tree; a source that CMake wrote, such as a precompiled header, belongs to the folder it is for.
Shorten() { sed -E -e "s|^$folder/||" -e 's|/CMakeFiles/[^/]*\.dir/|/|' -e "s|^$PWD/||"; }

# The tables of lines SOURCE TAB SECONDS.
Tables() {
    LC_ALL=C awk -F '\t' '
        function head(title) { printf "\n%-34s %5s %9s %7s\n", title, "files", "seconds", "units"; fflush() }
        function row(through, name, files, seconds) {
            printf "%-34s %5d %9.1f %7.1f\n", name, files, seconds, seconds / unit | through
        }
        $1 == "unit.cpp" { unit += $2; ++units; next }
        {
            count = split($1, part, "/")
            room = count > 2 ? part[1] "/" part[2] : part[1]
            ++roomFiles[room]; roomSeconds[room] += $2
            ++files; all += $2; cost[$1] = $2
            if (part[1] ~ /^(src|simulation|cli)$/) { ++demoFiles; demo += $2 }
        }
        END {
            unit /= units
            printf "A unit is %.2f seconds of CPU time.\n", unit
            head("Room")
            for (room in roomFiles) row("sort", room, roomFiles[room], roomSeconds[room])
            close("sort")
            head("Total")
            row("cat", "the demo: src, simulation, cli", demoFiles, demo)
            row("cat", "everything", files, all)
            close("cat")
            head("Most expensive files")
            for (file in cost) row("sort -k3,3nr | head -n 10", file, 1, cost[file])
        }'
}

rm -rf "$folder"
mkdir -p "$folder"
cmake -S . -B "$folder" -G Ninja -DCMAKE_C_COMPILER="$cc" -DCMAKE_CXX_COMPILER="$cxx" \
    -DCMAKE_C_COMPILER_LAUNCHER="$launcher" -DCMAKE_CXX_COMPILER_LAUNCHER="$launcher" >/dev/null
: >"$VEMO_COMPILE_TIMES" # what CMake tried out does not count
CompileUnits
cmake --build "$folder"
CompileUnits
Seconds | Shorten | Tables
