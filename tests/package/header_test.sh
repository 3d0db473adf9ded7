#!/usr/bin/env bash
# header_test.sh INCLUDE: the public header stands alone, in C and in C++, with every warning on.
set -euo pipefail
include=$1
readonly warnings=(-Wall -Wextra -Wpedantic -Wconversion -Wundef -Werror -fsyntax-only)

for standard in c11 c17; do
    "$CC" -x c -std=$standard "${warnings[@]}" -Wstrict-prototypes "$include/vemoflashcache.h"
done
for standard in c++11 c++20; do
    "$CXX" -x c++ -std=$standard "${warnings[@]}" "$include/vemoflashcache.h"
done
