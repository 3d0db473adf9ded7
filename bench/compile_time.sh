#!/usr/bin/env bash
# compile_time.sh COMPILER ARGUMENT...: a compiler launcher. Compiles, and where VEMO_COMPILE_TIMES names a file adds
# a line to it: SOURCE TAB USER TAB SYSTEM, the CPU time as `times` writes it.
set -euo pipefail

result=0
"$@" || result=$?

source='' last=''
for argument in "$@"; do
    if [ "$last" = -c ]; then source=$argument; fi
    last=$argument
done
if [ "$result" -eq 0 ] && [ -n "$source" ] && [ -n "${VEMO_COMPILE_TIMES:-}" ]; then
    # A builtin: unlike `time` it writes when the compiler has said all it had to, and to standard output alone. It
    # counts the children of the shell that it runs in, so it may not run in one of $( ).
    times >"$VEMO_COMPILE_TIMES.$$"
    { read -r && read -r user system; } <"$VEMO_COMPILE_TIMES.$$"
    rm "$VEMO_COMPILE_TIMES.$$"
    # One short write, which nothing of another compilation can come between.
    printf '%s\t%s\t%s\n' "$source" "$user" "$system" >>"$VEMO_COMPILE_TIMES"
fi
exit "$result"
