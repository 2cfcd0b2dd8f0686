#!/bin/sh
# Runs one Windows program under Wine with its arguments, and gives its output and exit code.
#
# The output goes through a file: the background processes that the first program starts inherit the
# standard output and would hold the reader's pipe open until they end.  Wine keeps its state in a
# folder of its own, shows no window and starts no debugger when a program crashes.  A program that
# starts while the server that Wine leaves behind ends does not come to run; it is started again.
# Without a locale of UTF-8, Wine finds no names with letters above ASCII.
cache="${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/vdreader"
WINEPREFIX="${VDREADER_WINEPREFIX:-$cache/wine}"
WINEDEBUG="${WINEDEBUG:--all}"
WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe="
DISPLAY=
LC_ALL=C.UTF-8
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES DISPLAY LC_ALL
mkdir -p "$WINEPREFIX" || exit 99
out=$(mktemp) || exit 99
trap 'kill -KILL $pid 2>/dev/null; cat "$out"; rm -f "$out"; exit 143' TERM INT HUP
for try in 1 2 3; do
    wine "$@" >"$out" 2>&1 </dev/null &
    pid=$!
    wait $pid
    code=$?
    case "$try $code $(head -n 2 "$out" | tr -d '\r\n')" in
        [12]' 1 wine client error:0: '*': Connection reset by peer') sleep 1 ;;
        *) break ;;
    esac
done
cat "$out"
rm -f "$out"
exit "$code"
