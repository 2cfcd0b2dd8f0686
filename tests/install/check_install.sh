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
    mkdir -p "$work"
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

install_and_move
case "$method" in
    cmake) build_with_cmake ;;
    pkgconfig) build_with_pkgconfig ;;
    *) fail "no method '$method'" ;;
esac
run_examples
