#!/usr/bin/env bash
# Installs the build, moves the tree, builds the examples against it as a user of the library would,
# and runs them on sample files.
#
#   check_install.sh cmake|pkgconfig BUILD WORK      in the environment:
#     SOURCE        the project's root
#     TOOLCHAIN     CMake's toolchain file of a cross build, or empty
#     EMULATOR      what runs the programs of a cross build, or empty
#     SUFFIX        of programs
#     CC, CXX       the compilers
set -euo pipefail
method="$1" build="$2" work="$3"
tree="$work/moved tree"

fail() {
    echo "$*" >&2
    exit 1
}

# run PROGRAM FOLDER: with the library of the moved tree and the folder's name on the target.
run() {
    if [ -n "$EMULATOR" ]; then
        WINEPATH="Z:${tree//\//\\}\\bin" "$EMULATOR" "$1" "Z:${2//\//\\}"
    else
        LD_LIBRARY_PATH="$tree/lib" "$@"
    fi
}

install_and_move() {
    rm -rf "$work"
    mkdir -p "$work/first/lib"
    # As a former version leaves it: the stub has to take the place of the link.
    [ -n "$EMULATOR" ] || ln -s libvdreader.so.0 "$work/first/lib/libvdreader.so"
    cmake --install "$build" --prefix "$work/first" >"$work/install.log"
    mv "$work/first" "$tree"
    if grep -rlF -e "$SOURCE/" -e "$build/" -e "$work/first" "$tree"; then
        fail "the files above name folders of this machine"
    fi
}

build_with_cmake() {
    local found=(-DCMAKE_PREFIX_PATH="$tree")
    [ -z "$TOOLCHAIN" ] ||
        found=(-Dvdreader_DIR="$tree/lib/cmake/vdreader" -DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN")
    cmake -G Ninja -S "$SOURCE/examples" -B "$work/cmake" -DCMAKE_BUILD_TYPE=Release "${found[@]}"
    cmake --build "$work/cmake"
    examples="$work/cmake"
}

build_with_pkgconfig() {
    cp -r "$SOURCE/examples" "$work/make"
    PKG_CONFIG_LIBDIR="$tree/lib/pkgconfig" make -C "$work/make" CC="$CC" CXX="$CXX" EXE="$SUFFIX"
    examples="$work/make"
}

# Hosts that use the C library's error(), which Windows does not have.
try_hosts_with_cmake() {
    [ -z "$EMULATOR" ] || return 0
    cmake -G Ninja -S "$SOURCE/tests/install/hosts" -B "$work/hosts" -DCMAKE_PREFIX_PATH="$tree"
    cmake --build "$work/hosts"
    (cd "$work/hosts" && ctest --output-on-failure)
}

try_hosts_with_pkgconfig() {
    [ -z "$EMULATOR" ] || return 0
    local host="$SOURCE/tests/linking/linked_host.c" flags
    flags=$(PKG_CONFIG_LIBDIR="$tree/lib/pkgconfig" pkg-config --cflags --libs vdreader)
    eval "$CC -o '$work/by_pkgconfig' '$host' $flags"
    "$CC" -o "$work/by_name" "$host" -I"$tree/include" -L"$tree/lib" -lvdreader
    "$CC" -o "$work/by_file" "$host" -I"$tree/include" "$tree/lib/libvdreader.so"
    for host in "$work"/by_*; do
        echo "run ${host##*/}"
        run "$host" || fail "${host##*/} failed"
    done
}

run_examples() {
    local program count=0 output="$work/output.txt"
    run "$tree/bin/vdsample$SUFFIX" "$work/files"
    for program in "$examples"/walk*; do
        case "$program" in *.c | *.cpp | *.o) continue ;; esac
        [ -x "$program" ] || continue
        echo "run ${program##*/}"
        run "$program" "$work/files" >"$output" || fail "${program##*/} failed: $(cat "$output")"
        [ "$(wc -l <"$output")" -ge 5 ] || fail "${program##*/} showed only: $(cat "$output")"
        ! run "$program" "$work/absent" >"$output" 2>&1 ||
            fail "${program##*/} does not fail without files: $(cat "$output")"
        count=$((count + 1))
    done
    [ $count = 2 ] || fail "$count examples, where walk.c and walk.cpp make 2"
}

run_postmortem() {
    local program="$examples/postmortem$SUFFIX" output="$work/postmortem.txt"
    mkdir -p "$work/crash"
    run "$program" "$work/crash" >"$output" || fail "postmortem failed: $(cat "$output")"
    grep -q "goes on" "$output" || fail "postmortem showed only: $(cat "$output")"
    grep -q "0xC0000005 occurred" "$output" || fail "no fault was caught: $(cat "$output")"
    grep -q "Func=.*readNothing" "$work/crash/events.log" ||
        fail "the report does not name the function: $(cat "$work/crash/events.log")"
    [ -n "$(find "$work/crash/Dumps" -name 'mini*.dmp' -size +1k)" ] || fail "there is no dump"
}

install_and_move
case "$method" in
    cmake)
        build_with_cmake
        try_hosts_with_cmake
        ;;
    pkgconfig)
        build_with_pkgconfig
        try_hosts_with_pkgconfig
        ;;
    *) fail "no method '$method'" ;;
esac
run_examples
run_postmortem
