# Shared by the scripts of this directory: the root of the tree, quiet builds and the lines that rerun a test.
# shellcheck shell=bash
root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
jobs=${ENGR_JOBS:-$(nproc)}
test_jobs=${ENGR_TEST_JOBS:-$((3 * jobs))} # most tests wait for the protocol's timers

# quietly LOG COMMAND...: the output of the command is shown only when it fails.
quietly() {
    local log=$1
    shift
    mkdir -p "$(dirname "$log")"
    if ! "$@" >"$log" 2>&1; then
        cat "$log" >&2
        return 1
    fi
}

# build PRESET [TARGET...]: configures build/PRESET and builds it; on a terminal with a progress line, else quietly.
build() {
    local preset=$1 directory=$root/build/$1
    shift
    (cd "$root" && quietly "$directory/configure.log" cmake --preset "$preset")
    local quiet=(--quiet)
    if [ -t 1 ]; then
        quiet=()
    fi
    ninja -C "$directory" -j "$jobs" "${quiet[@]}" "$@"
}

# run_tests PRESET RERUN CTEST-ARGS...: runs the tests of a build; each failure is followed by the line that
# reruns it alone, which starts with RERUN.
run_tests() {
    local directory=$root/build/$1 rerun=$2
    shift 2
    local failed=$directory/Testing/Temporary/LastTestsFailed.log
    rm -f "$failed"
    if ctest --test-dir "$directory" -j "$test_jobs" --output-on-failure --no-tests=error "$@" </dev/null; then
        return 0
    fi
    if [ -s "$failed" ]; then
        echo
        echo "To rerun a failed test alone:"
        awk -v rerun="$rerun" '{
            sub(/^[0-9]+:/, "")
            gsub(/[][.*+?^$()|\\]/, "\\\\&")
            printf "  %s -R '\''^%s$'\''\n", rerun, $0
        }' "$failed"
    fi
    return 1
}
