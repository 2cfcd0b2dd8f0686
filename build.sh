#!/usr/bin/env bash
# Installs what is missing from the distribution, builds, and installs into dist/linux and
# dist/windows.  A second run repeats nothing that is up to date.
#
#   ./build.sh [linux|windows|all]
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$top/scripts/common.sh"

build_for() {
    need "build-$1"
    configure "$1-release"
    build "$1-release" vdreader_product
    step "install-$1" "install into dist/$1" cmake --install "$top/build/$1-release"
}

case "${1:-all}" in
    linux | windows) build_for "$1" ;;
    all) build_for linux && build_for windows ;;
    *) echo "usage: $0 [linux|windows|all]" >&2 && exit 2 ;;
esac
say "done"
