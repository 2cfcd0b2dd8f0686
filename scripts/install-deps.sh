#!/usr/bin/env bash
# Installs what a group of commands needs from the distribution (Debian 12), and nothing that is
# there already.  For the Windows build it also fetches the distribution's Boost sources, from which
# Boost.Filesystem is compiled; they stay outside the build folder: a clean build fetches nothing.
#
#   scripts/install-deps.sh GROUP...    build-linux build-windows test test-windows fuzz bench style
set -euo pipefail

cache="${XDG_CACHE_HOME:-$HOME/.cache}/vdreader"

usage() {
    echo "usage: $0 build-linux|build-windows|test|test-windows|fuzz|bench|style..." >&2
    exit 2
}

packages_of() {
    case "$1" in
        build-linux)
            echo cmake ninja-build g++ libboost1.81-dev libboost-filesystem1.81-dev libcli11-dev \
                libdw-dev libunwind-dev ;;
        build-windows)
            echo cmake ninja-build g++-mingw-w64-x86-64-posix libboost1.81-dev \
                libcli11-dev xz-utils ;;
        test) echo gdb googletest python3 binutils pkgconf make ;;
        test-windows) echo wine wine64 ;;
        fuzz) echo clang-14 libclang-rt-14-dev llvm-14 python3 ;;
        bench)
            echo gdb heaptrack libbenchmark-dev liblmdb-dev libsimpleini-dev libspdlog-dev \
                libsqlite3-dev python3 ;;
        style) echo clang-format-14 clang-tidy-14 python3 shellcheck ;;
        *) usage ;;
    esac
}

fail() {
    echo "== FAILED: install packages: $*" >&2
    exit 1
}

# as_root COMMAND...: its output goes to the log; the first error line becomes the reason.
as_root() {
    local sudo=()
    if [ "$(id -u)" != 0 ]; then
        command -v sudo >/dev/null || fail "not root and no sudo; missing: ${missing[*]}"
        sudo=(sudo)
    fi
    if ! "${sudo[@]}" env DEBIAN_FRONTEND=noninteractive "$@" >"$log" 2>&1 </dev/null; then
        fail "$(grep -m 1 '^E:' "$log" || tail -n 1 "$log")"
    fi
}

install_missing() {
    local package
    missing=()
    for package in "$@"; do
        [ "$(dpkg-query -W -f='${db:Status-Status}' "$package" 2>/dev/null)" = installed ] ||
            missing+=("$package")
    done
    [ ${#missing[@]} = 0 ] && return
    echo "== install packages: ${missing[*]}"
    as_root apt-get update
    as_root apt-get install -y --no-install-recommends "${missing[@]}"
}

# source_list FOLDER: the system's own package sources of the archive that Boost came from, as
# sources of source packages.
source_list() {
    local uri file
    uri=$(apt-cache policy libboost1.81-dev |
        awk '$2 ~ /^[a-z+]+:\// && !uri {uri = $2} END {print uri}')
    uri="${uri%/}"
    for file in /etc/apt/sources.list /etc/apt/sources.list.d/*; do
        if [ -z "$uri" ] || ! grep -qsF "$uri" "$file"; then continue; fi
        case "$file" in
            *.sources) sed 's/^Types:.*/Types: deb-src/' "$file" >"$1/${file##*/}" ;;
            *.list)
                grep -F "$uri" "$file" | sed -n 's/^[[:space:]]*deb[[:space:]]/deb-src /p' \
                    >"$1/${file##*/}" ;;
        esac
    done
}

# The sources of Boost.Filesystem, of the same version as the headers.  The system's configuration
# is not touched: apt-get is pointed at a configuration and lists of its own.
fetch_boost_sources() {
    local version folder apt
    version=$(dpkg-query -W -f='${Version}' libboost1.81-dev)
    folder="$cache/boost-$version"
    [ -f "$folder/libs/filesystem/src/operations.cpp" ] && return
    echo "== fetch the sources of Boost.Filesystem $version"
    work=$(mktemp -d)
    chmod 755 "$work"
    mkdir -p "$work/parts" "$work/lists/partial" "$work/archives/partial" "$work/boost"
    source_list "$work/parts"
    apt=(apt-get -q -o "Dir::Etc::SourceList=/dev/null" -o "Dir::Etc::SourceParts=$work/parts"
        -o "Dir::State::Lists=$work/lists" -o "Dir::Cache=$work" -o "APT::Sandbox::User=$(id -un)")
    (cd "$work" && "${apt[@]}" update && "${apt[@]}" source --download-only "boost1.81=$version") \
        >"$log" 2>&1 </dev/null || fail "$(grep -m 1 '^E:' "$log" || tail -n 1 "$log")"
    tar -xJf "$work"/boost1.81_*.orig.tar.xz -C "$work/boost" --strip-components=1 --wildcards \
        '*/libs/filesystem/src/*' >"$log" 2>&1 || fail "$(tail -n 1 "$log")"
    mkdir -p "$cache"
    rm -rf "$folder"
    mv "$work/boost" "$folder"
}

[ $# -gt 0 ] || usage
log=$(mktemp)
work=
trap 'rm -rf "$log" ${work:+"$work"}' EXIT
packages=()
for group in "$@"; do
    list=$(packages_of "$group") || exit 2
    read -ra more <<<"$list"
    packages+=("${more[@]}")
done
install_missing "${packages[@]}"
for group in "$@"; do
    [ "$group" != build-windows ] || fetch_boost_sources
done
