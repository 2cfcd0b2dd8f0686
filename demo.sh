#!/usr/bin/env bash
# From a fresh machine to the main job: builds, writes a set of sample files and shows what the
# library reads from them.
#
#   ./demo.sh
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
"$top/build.sh" linux
source "$top/scripts/common.sh"
bin="$top/dist/linux/bin"

files=$(mktemp -d)
trap 'rm -rf "$files"' EXIT

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
show vdcat positions "$files" --table --limit 5
show vdcat securities "$files" --json --limit 1
say "done"
