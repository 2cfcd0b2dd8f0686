#!/usr/bin/env bash
# Builds the benchmarks and prints one table: path, ours, limit, peer, ratios.
#
#   ./bench.sh [ARGUMENTS of bench/run.sh...]
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$top/scripts/common.sh"

need build-linux bench
configure linux-release -DVDREADER_BUILD_BENCH=ON
build linux-release
say "measure"
exec "$top/bench/run.sh" "$top/build/linux-release" "$@"
