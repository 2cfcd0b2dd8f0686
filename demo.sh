#!/usr/bin/env bash
# From a fresh machine to the main job: builds, writes a set of sample files, shows what the library
# reads from them, and goes on while a server changes them.
#
#   ./demo.sh
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
"$top/build.sh" linux
source "$top/scripts/common.sh"
bin="$top/dist/linux/bin"

files=$(mktemp -d)
server=
trap '[ -z "$server" ] || kill "$server" 2>/dev/null; rm -rf "$files"' EXIT

# show COMMAND...: the command as one would type it, and what it prints.
show() {
    printf '\n$ %s\n' "$*"
    "$bin/$1" "${@:2}" || fail "$1 $2"
}

say "write sample files"
show vdsample "$files"
say "read them"
show vdcat info "$files" --table
show vdcat classes "$files" --table --limit 5
show vdcat securities "$files" --table --limit 5
show vdcat params "$files" --table --limit 5
show vdcat limits "$files" --table --limit 5
show vdcat last "$files" --table --limit 5
show vdcat journal "$files" --table --limit 5
show vdcat alerts "$files" --table --fields number,type,firm_id,client_code,class_code,body_size \
    --limit 5
show vdcat positions "$files" --table --limit 5
show vdcat securities "$files" --json --limit 1

say "let a server change them, and follow it"
printf '\n$ vdsample %s --live --rate 50 --log %s/logs &\n' "$files" "$files"
"$bin/vdsample" "$files" --live --rate 50 --log "$files/logs" &
server=$!
follow=(--live --follow --new --interval 500 --seconds 3 --limit 10)
show vdcat last "$files" "${follow[@]}" --class SHARE01 --table
show vdcat journal "$files" "${follow[@]}" --json \
    --fields dataField1,class_code,sec_code,values
show vdcat alerts "$files" "${follow[@]}" --table \
    --fields number,type,firm_id,client_code,class_code,user_ids --log "$files/logs"
kill -TERM "$server"
wait "$server" || fail "the server did not end in good order"
server=

say "look at the logs"
printf '\n$ cat %s/logs/events.log\n' "$files"
cat "$files/logs/events.log"
say "done"
