#!/bin/bash
# What ./test --long does. Every stage is run, whatever became of the others; the last line says which failed.
set -uo pipefail

. "$(dirname "$(readlink -f "$0")")/../packaging/setup.sh"
cd "$top" || exit 1
fuzz_seconds=${FUZZ_SECONDS:-20}  # for each target
objects=${SHARED_OBJECTS:-400}    # of each of the 24 senders that several servers have
soak_seconds=${SOAK_SECONDS:-600}  # of hostile peers beside an honest one
kills=${KILLS:-200}  # of a server that stores, commits, delivers or prints

passed=()
failed=()
stage() {  # NAME COMMAND...
    local name=$1 begin=$SECONDS
    shift
    printf '\n=== %s\n' "$name"
    if ("$@"); then
        passed+=("$name ($((SECONDS - begin)) s)")
    else
        failed+=("$name ($((SECONDS - begin)) s)")
    fi
}

tests_of() {  # PRESET
    build "$1"
    ctest --preset "$1"
}

shared_archive() {
    TESSALY_TEST_OBJECTS=$objects ctest --preset release -R '^tst_sharedarchive$'
}

# Without ctest, whose limit of time is for the short form.
largest_objects() {
    TESSALY_TEST_OBJECT_BYTES=4294967294 TESSALY_TEST_FRAGMENT_BYTES=6442450944 TESSALY_TEST_FILM_BYTES=3221225472 \
        TESSALY_TEST_STUDY_OBJECTS=20000 QTEST_FUNCTION_TIMEOUT=3600000 dbus-run-session -- build/release/tests/tst_large
}

# Without ctest, whose limit of time is for the short form.
server_kills() {
    local test engine status=0
    for test in tst_storekills tst_commitmentkills tst_ftpstored:killsLoseNothing tst_printkills; do
        for engine in sqlite postgresql; do
            echo "$test, $engine, $kills kills"
            TESSALY_TEST_KILLS=$kills TESSALY_TEST_ENGINE=$engine QTEST_FUNCTION_TIMEOUT=3600000 QT_QPA_PLATFORM=offscreen \
                dbus-run-session -- "build/release/tests/${test%:*}" $(expr "$test" : '.*:\(.*\)') || status=1
        done
    done
    return "$status"
}

# Without ctest, whose limit of time is for the short form.
hostile_peers() {
    TESSALY_TEST_SOAK_SECONDS=$soak_seconds QTEST_FUNCTION_TIMEOUT=$(((soak_seconds + 300) * 1000)) \
        dbus-run-session -- build/release/tests/tst_hostilepeers
}

# What a target made up in earlier runs is where it begins. An input that breaks something is kept beside it.
fuzz() {
    local target name findings=build/fuzz/findings status=0
    build fuzz
    for target in build/fuzz/fuzzers/*; do
        name=${target##*/}
        mkdir -p "build/fuzz/corpus/$name" "$findings"
        echo "$name, $fuzz_seconds s"
        UBSAN_OPTIONS=print_stacktrace=1 "$target" -max_total_time="$fuzz_seconds" -timeout=10 -rss_limit_mb=2048 \
            -verbosity=0 -print_final_stats=1 -artifact_prefix="$findings/$name-" \
            "build/fuzz/corpus/$name" "tests/fuzz/seeds/$name" || status=1
    done
    return "$status"
}

tidy() {  # PRESET PATTERN ARGUMENTS...
    local preset=$1 log
    log=build/$preset/findings.log
    build "$preset"  # for the sources that it makes
    tests/tidy.py "$@" >"$log" && return
    grep -E '(error|warning): ' "$log" | sort -u || tail "$log"
    return 1
}

# The paths through a test are those of its macros, which are many, and it is run.
shallow=(-extra-arg={-Xclang,-analyzer-config,-Xclang,mode=shallow})

static_checks() {
    local status=0
    tidy release '(?!tests/)' || status=1
    tidy release tests/ "${shallow[@]}" || status=1
    tidy fuzz tests/fuzz/ "${shallow[@]}" || status=1
    return "$status"
}

stage 'tests' tests_of release
stage 'several servers, many objects' shared_archive
stage 'the largest objects' largest_objects
stage 'kills' server_kills
stage 'hostile peers beside an honest one' hostile_peers
stage 'address and undefined-behaviour sanitizers' tests_of asan
stage 'thread sanitizer' tests_of tsan
stage 'fuzz targets' fuzz
stage 'static checks' static_checks

printf '\n'
if ((${#failed[@]} > 0)); then
    (IFS=,; echo "./test --long FAILED: ${failed[*]}; passed: ${passed[*]:-nothing}")
    exit 1
fi
(IFS=,; echo "./test --long passed: ${passed[*]}")
