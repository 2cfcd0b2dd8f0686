#!/usr/bin/env bash
# Builds and runs the tests, from a machine with nothing but the base system to the verdict.
#
#   ./test.sh [style|linux|asan|tsan|windows|fuzz|all]
#
# FUZZ_SECONDS (default 15) is how long each fuzz target looks for new input after its corpus.
set -euo pipefail
top=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$top/scripts/common.sh"
summary=()

# run_tests STAGE PRESET [CTEST OPTION...]: shows the result, the reasons of skipped tests, and the
# output of each failed one.
run_tests() {
    local stage="$1" preset="$2" log="$logs/test-$1.log" result
    shift 2
    say "run the tests of $stage"
    if ! (cd "$top" && ctest --preset "$preset" "$@") >"$log" 2>&1 </dev/null; then
        sed -n '/\*\*\*/,$p' "$log" | tail -n 150 >&2
        # Once more at the end, where a log that is cut off from above still has it.
        grep -h -A 8 -E ': Failure|Sanitizer: |\*\*\*' "$log" | tail -n 60 >&2 ||
            tail -n 60 "$log" >&2
        fail "tests of $stage (all output: ${log#"$top"/})"
    fi
    awk '{sub(/\r$/, "")} skipped {count[$0]++} {skipped = /: Skipped$/}
        END {for (reason in count) printf "   skipped %d: %s\n", count[reason], reason}' \
        "$top/build/$preset/Testing/Temporary/LastTest.log"
    # A preset may try a failed test again; what passed in the end is named all the same.
    sed -n '/\*\*\*\(Failed\|Timeout\|Exception\)/s/^.* Test *#[0-9]*: /   tried again: /p' "$log"
    sed -n '/its cases cannot be listed/s/^/   /p' "$log"
    result=$(grep 'tests passed' "$log")
    result+=$(awk '/^\[  PASSED  \]/ {cases += $4} END {if (cases) printf " (cases: %d)", cases}' \
        "$top/build/$preset/Testing/Temporary/LastTest.log")
    say "$stage: $result"
    summary+=("$(printf '%-8s %s' "$stage" "$result")")
}

# test_preset STAGE PRESET GROUP...
test_preset() {
    local stage="$1" preset="$2"
    shift 2
    need "$@"
    configure "$preset" -DVDREADER_BUILD_TESTS=ON
    build "$preset"
    run_tests "$stage" "$preset" -LE style
}

test_style() {
    need build-linux test style
    # By name, so that a build folder that was made without these programs finds them now.
    configure linux-release -DVDREADER_BUILD_TESTS=ON \
        -DVDREADER_CLANG_FORMAT="$(command -v clang-format-14)" \
        -DVDREADER_CLANG_TIDY="$(command -v clang-tidy-14)" \
        -DVDREADER_SHELLCHECK="$(command -v shellcheck)"
    run_tests style linux-release -L style
}

# One start before the tests, so that none of them pays for the first one of a prefix.  The prefix
# is the one that the preset of the tests names.
start_wine() {
    export VDREADER_WINEPREFIX="$top/build/windows-release/wine"
    [ ! -f "$VDREADER_WINEPREFIX/system.reg" ] || return 0
    step wine-start "start Wine" "$top/scripts/wine-run.sh" wineboot --init
}

# fuzz_target PROGRAM: lets it look for more than its corpus holds.
fuzz_target() {
    local name="${1##*/fuzz_}" found
    found="$top/build/linux-fuzz/found/$name"
    mkdir -p "$found"
    step "fuzz-$name" "fuzz $name for ${FUZZ_SECONDS:-15} s" \
        "$1" -max_total_time="${FUZZ_SECONDS:-15}" -print_final_stats=1 \
        -artifact_prefix="$found/" "$found" "$top/fuzz/corpus/$name"
}

# test_fuzz: replays the corpora, then lets the targets look for more, one on each processor.
test_fuzz() {
    local target name running=() failed=
    need build-linux test fuzz
    configure linux-fuzz
    build linux-fuzz
    run_tests fuzz linux-fuzz
    for target in "$top"/build/linux-fuzz/bin/fuzz_*; do
        fuzz_target "$target" &
        running+=($!)
        [ ${#running[@]} -ge "$(nproc)" ] || continue
        wait "${running[0]}" || failed=yes
        running=("${running[@]:1}")
    done
    for target in "${running[@]}"; do
        wait "$target" || failed=yes
    done
    [ -z "$failed" ] || fail "fuzz targets"
    for target in "$top"/build/linux-fuzz/bin/fuzz_*; do
        name="${target##*/fuzz_}"
        summary+=("$(printf '%-8s %s: %s runs' fuzz "$name" \
            "$(awk '/stat::number_of_executed_units/ {print $2}' "$logs/fuzz-$name.log")")")
    done
}

run_stage() {
    case "$1" in
        style) test_style ;;
        linux) test_preset linux linux-release build-linux test ;;
        asan) test_preset asan linux-asan build-linux test ;;
        tsan) test_preset tsan linux-tsan build-linux test ;;
        windows)
            need test-windows
            start_wine
            test_preset windows windows-release build-windows test
            ;;
        fuzz) test_fuzz ;;
        *) echo "usage: $0 [style|linux|asan|tsan|windows|fuzz|all]" >&2 && exit 2 ;;
    esac
}

stages=("${1:-all}")
[ "${stages[0]}" != all ] || stages=(style linux asan tsan windows fuzz)
for stage in "${stages[@]}"; do
    run_stage "$stage"
done
say "all passed in $((SECONDS / 60)) min $((SECONDS % 60)) s"
printf '   %s\n' "${summary[@]}"
