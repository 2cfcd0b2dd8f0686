#!/bin/sh
# Runs one Windows program under Wine with its arguments, and gives its output and exit code.
#
# The output goes through a file: the background processes that the first program starts inherit the
# standard output and would hold the reader's pipe open until they end.  Wine keeps its state in a
# folder of its own, shows no window and starts no debugger when a program crashes.
cache="${XDG_CACHE_HOME:-${HOME:-/tmp}/.cache}/vdreader"
WINEPREFIX="${VDREADER_WINEPREFIX:-$cache/wine}"
WINEDEBUG="${WINEDEBUG:--all}"
WINEDLLOVERRIDES="mscoree=;mshtml=;winemenubuilder.exe=;winedbg.exe="
DISPLAY=
export WINEPREFIX WINEDEBUG WINEDLLOVERRIDES DISPLAY
mkdir -p "$WINEPREFIX" || exit 99
out=$(mktemp) || exit 99
wine "$@" >"$out" 2>&1 </dev/null &
pid=$!
trap 'kill -KILL $pid 2>/dev/null; cat "$out"; rm -f "$out"; exit 143' TERM INT HUP
wait $pid
code=$?
cat "$out"
rm -f "$out"
exit $code
