# Shared by build.sh, test.sh, demo.sh and bench.sh, which source it: one line for each step,
# details in a log file, the end of that log at the first failure.  Owns build/ and dist/.
# The caller sets `top` to the project's root and uses bash with `set -euo pipefail`.
# shellcheck shell=bash

: "${top:?the root of the project}"
logs="$top/build/logs"
mkdir -p "$logs"

# say TEXT: one line about what happens now.
say() { printf '== %s\n' "$*"; }

# fail TEXT: the reason, and the end.
fail() {
    printf '== FAILED: %s\n' "$*" >&2
    exit 1
}

# step NAME TEXT COMMAND...: says TEXT, runs the command with its output in the log NAME, and stops
# with the end of that log if the command fails.
step() {
    local log="$logs/$1.log" text="$2"
    shift 2
    say "$text"
    if ! "$@" >"$log" 2>&1 </dev/null; then
        printf -- '-- last lines of %s:\n' "${log#"$top"/}" >&2
        tail -n 40 "$log" >&2
        fail "$text"
    fi
}

# need GROUP...: the distribution's packages of these groups.
need() { "$top/scripts/install-deps.sh" "$@" || exit 1; }

# configure PRESET [-DNAME=VALUE...]: runs CMake when the build folder is new, older than the
# presets or lacks one of the settings; otherwise the build itself brings it up to date.
configure() {
    local preset="$1" folder="$top/build/$1" setting name current=yes
    shift
    if ! [ "$folder/build.ninja" -nt "$top/CMakePresets.json" ]; then
        current=no
    fi
    for setting in "$@"; do
        name="${setting%%=*}"
        grep -qs "^${name#-D}:[A-Z]*=${setting#*=}\$" "$folder/CMakeCache.txt" || current=no
    done
    [ $current = no ] || return 0
    cd "$top" || fail "no folder $top"
    step "configure-$preset" "configure $preset" cmake --preset "$preset" "$@"
}

# build PRESET [TARGET...]: compiles what is out of date.
build() {
    local preset="$1" targets=()
    shift
    [ $# = 0 ] || targets=(--target "$@")
    step "build-$preset" "build $preset" \
        cmake --build "$top/build/$preset" -j "${JOBS:-$(nproc)}" "${targets[@]}"
}
