#!/usr/bin/env bash
# Runs the benchmark programs of a build and prints one table; ./bench.sh builds them first.
#
#   bench/run.sh BUILD_FOLDER [--runs N] [--cpu] [--only PATTERN]
#
# Data and raw results go to BUILD_FOLDER/bench-data.  The machine should be quiet.
set -euo pipefail
bench=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
[ $# -gt 0 ] || { sed -n '2,6s/^# \{0,1\}//p' "${BASH_SOURCE[0]}" >&2; exit 2; }
build="$1"
shift
"$build/bin/vdreader_bench_data" "$build/bench-data"
exec python3 "$bench/table.py" "$build/bin" "$build/bench-data" "$@"
