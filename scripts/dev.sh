#!/bin/sh
# Builds, tests and demonstrates kelvo-filesystem on Debian 12, first installing whatever Debian packages are missing.
#
#   scripts/dev.sh demo   build the library and kelvo-fs (default preset) and run the demo
#   scripts/dev.sh test   the whole check, as CI runs it:
#                         - the default build (g++) and every test, as this user
#                           and, when run as root, again as an ordinary user
#                         - the sanitize build (clang, AddressSanitizer and
#                           UndefinedBehaviorSanitizer) and every test
#                         - the thread tests under ThreadSanitizer (tsan preset)
#                         - each fuzz target for KELVO_FUZZ_SECONDS (30) seconds
#                         - configuring without tests (no GoogleTest needed;
#                           the tool's CLI11 and nlohmann-json are), without
#                           the tool (only a compiler, CMake and ICU needed) and
#                           without the Unicode test data (its test skipped)
#                         - the release build with the benchmarks, installed into
#                           a temporary prefix: the installed kelvo-fs run with a
#                           clean environment, the example built against it with
#                           CMake and, as C++20, with pkg-config
set -eu

cd "$(dirname "$0")/.."

PACKAGES="cmake make g++ clang libclang-rt-14-dev pkg-config libicu-dev libgtest-dev libbenchmark-dev libboost-filesystem-dev libcli11-dev nlohmann-json3-dev unicode-data bzip2 util-linux doxygen"
JOBS=$(nproc 2>/dev/null || echo 2)
FUZZ_SECONDS=${KELVO_FUZZ_SECONDS:-30}
# The ordinary user the suite runs as when this script runs as root.
ORDINARY_USER=65534

install_missing() {
    missing=""
    for package in $PACKAGES; do
        if ! dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed"; then
            missing="$missing $package"
        fi
    done
    [ -z "$missing" ] && return 0
    echo "Installing:$missing"
    sudo=""
    if [ "$(id -u)" -ne 0 ]; then
        sudo="sudo -n"
    fi
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -qq </dev/null
    # shellcheck disable=SC2086
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing </dev/null
}

build_preset() {
    cmake --preset "$1"
    cmake --build --preset "$1" -j "$JOBS"
}

run_demo() {
    # Only the library and the tool: the tests wait for the test command.
    cmake --preset default
    cmake --build --preset default --target kelvo-fs -j "$JOBS"
    build/default/tools/kelvo-fs demo
}

# ---- bookkeeping: how long each step took, and how many tests ran -----------

CI_START=$(date +%s)
STEP_START=$CI_START
STEP_NAME=""
TIMES=""
PASSED=0
SKIPPED=0
LOGS=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-ci-XXXXXX")
CLEANUP="$LOGS"
trap 'rm -rf $CLEANUP' EXIT

step() {
    now=$(date +%s)
    if [ -n "$STEP_NAME" ]; then
        TIMES="$TIMES$(printf '%6ss  %s' "$((now - STEP_START))" "$STEP_NAME")
"
    fi
    STEP_NAME="$1"
    STEP_START=$now
    [ -n "$1" ] && printf '\n==== %s\n' "$1"
    return 0
}

# Runs ctest with the given arguments, shows its output and adds its counts.
counted_ctest() {
    log="$LOGS/ctest.log"
    status=0
    "$@" >"$log" 2>&1 || status=$?
    cat "$log"
    [ "$status" -eq 0 ] || return "$status"
    total=$(sed -n 's/.*tests failed out of \([0-9][0-9]*\).*/\1/p' "$log" | tail -n 1)
    skipped=$(grep -c '(Skipped)$' "$log" || true)
    PASSED=$((PASSED + ${total:-0} - skipped))
    SKIPPED=$((SKIPPED + skipped))
}

# ---- the suite as an ordinary user -------------------------------------------

# Runs the already built default suite as uid $ORDINARY_USER, with its own
# writable temporary directory and an environment of its own.
run_as_ordinary_user() {
    if [ "$(id -u)" -ne 0 ]; then
        echo "Not root: the default pass above already ran as an ordinary user."
        return 0
    fi
    build="$PWD/build/default"
    as_user="setpriv --reuid=$ORDINARY_USER --regid=$ORDINARY_USER --clear-groups"
    if ! $as_user test -r "$build/CTestTestfile.cmake" -a -r "$PWD/include/kelvo/filesystem.h" 2>/dev/null; then
        # The checkout lies where that user cannot reach (under /root, say):
        # build a copy of the sources where it can.
        copy=$(mktemp -d /tmp/kelvo-user-source-XXXXXX)
        CLEANUP="$CLEANUP $copy"
        echo "The checkout is out of that user's reach; building a copy in $copy"
        tar --exclude=./build --exclude=./.git -cf - . | tar -C "$copy" -xf -
        cmake -S "$copy" -B "$copy/build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DKELVO_BUILD_TESTS=ON -DKELVO_BUILD_TOOLS=ON
        cmake --build "$copy/build" -j "$JOBS"
        chmod -R a+rX "$copy"
        build="$copy/build"
    fi
    home=$(mktemp -d /tmp/kelvo-user-home-XXXXXX)
    CLEANUP="$CLEANUP $home"
    chown "$ORDINARY_USER:$ORDINARY_USER" "$home"
    chmod 700 "$home"
    # CTest keeps its records in the build tree.
    mkdir -p "$build/Testing"
    chown -R "$ORDINARY_USER:$ORDINARY_USER" "$build/Testing"
    counted_ctest $as_user env -i PATH=/usr/local/bin:/usr/bin:/bin HOME="$home" TMPDIR="$home" LANG=C.UTF-8 \
        ctest --test-dir "$build" --output-on-failure -j "$JOBS"
}

# ---- configurations that need less -------------------------------------------

check_lean_configurations() {
    echo "== without tests: a compiler, CMake and ICU suffice, and CLI11 and nlohmann-json for the tool"
    rm -rf build/lean
    cmake -S . -B build/lean -DKELVO_BUILD_TESTS=OFF -DKELVO_BUILD_TOOLS=ON \
        -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON \
        -DKELVO_UNICODE_DATA_DIR=/nonexistent >"$LOGS/lean.log" 2>&1 || { cat "$LOGS/lean.log"; return 1; }
    echo "configured"

    echo "== without the tool: a compiler, CMake and ICU suffice"
    rm -rf build/notool
    cmake -S . -B build/notool -DKELVO_BUILD_TESTS=OFF -DKELVO_BUILD_TOOLS=OFF \
        -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DCMAKE_DISABLE_FIND_PACKAGE_benchmark=ON \
        -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON \
        -DKELVO_UNICODE_DATA_DIR=/nonexistent >"$LOGS/notool.log" 2>&1 || { cat "$LOGS/notool.log"; return 1; }
    echo "configured"

    echo "== the tool without CLI11 and nlohmann-json: configuring stops and names them"
    rm -rf build/nodeps
    if cmake -S . -B build/nodeps -DKELVO_BUILD_TESTS=OFF -DKELVO_BUILD_TOOLS=ON \
        -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON -DCMAKE_DISABLE_FIND_PACKAGE_nlohmann_json=ON \
        -DKELVO_UNICODE_DATA_DIR=/nonexistent >"$LOGS/nodeps.log" 2>&1; then
        cat "$LOGS/nodeps.log"
        echo "configuring the tool without its packages succeeded" >&2
        return 1
    fi
    grep -q "libcli11-dev" "$LOGS/nodeps.log" && grep -q "nlohmann-json3-dev" "$LOGS/nodeps.log" \
        || { cat "$LOGS/nodeps.log"; return 1; }
    echo "stopped, naming libcli11-dev and nlohmann-json3-dev"

    echo "== without the Unicode test data: the conformance test is skipped"
    rm -rf build/nodata
    cmake -S . -B build/nodata -DKELVO_UNICODE_DATA_DIR=/nonexistent >"$LOGS/nodata.log" 2>&1 \
        || { cat "$LOGS/nodata.log"; return 1; }
    grep -q "Unicode conformance test is skipped" "$LOGS/nodata.log"
    ctest --test-dir build/nodata -N | grep -q "unicode_conformance_test.skipped"
    echo "configured, with the skip in place"
    rm -rf build/lean build/notool build/nodeps build/nodata
}

# ---- fuzzing -----------------------------------------------------------------

run_fuzzers() {
    cmake --preset fuzz -DKELVO_FUZZ_SECONDS="$FUZZ_SECONDS"
    cmake --build --preset fuzz -j "$JOBS"
    for target in build/fuzz/fuzz/*_fuzz; do
        name=$(basename "$target")
        corpus="$LOGS/corpus-$name"
        cp -r "fuzz/corpus/$name" "$corpus"
        echo "== $name for $FUZZ_SECONDS s"
        if ! "$target" -max_total_time="$FUZZ_SECONDS" -max_len=4096 -timeout=10 -rss_limit_mb=2048 \
            -print_final_stats=1 -artifact_prefix="build/fuzz/$name-" "$corpus" >"$LOGS/$name.log" 2>&1; then
            tail -n 60 "$LOGS/$name.log"
            echo "$name found a failing input: build/fuzz/$name-*" >&2
            return 1
        fi
        grep -E '^(stat::number_of_executed_units|stat::peak_rss_mb)|^Done' "$LOGS/$name.log"
    done
}

# ---- the installed package ---------------------------------------------------

check_installed_package() {
    prefix=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-install-XXXXXX")
    CLEANUP="$CLEANUP $prefix"
    cmake --install build/release --prefix "$prefix"

    echo "== the installed kelvo-fs, with a clean environment"
    version=$(sed -n 's/^#define KELVO_FILESYSTEM_VERSION_\(MAJOR\|MINOR\|PATCH\) \([0-9]*\)$/\2/p' \
        include/kelvo/filesystem/Version.h | paste -sd. -)
    said=$(env -i "$prefix/bin/kelvo-fs" --version)
    echo "$said"
    [ "$said" = "kelvo-fs $version" ] || { echo "expected: kelvo-fs $version" >&2; return 1; }

    echo "== example through find_package(KelvoFilesystem)"
    rm -rf build/example
    cmake -S examples -B build/example -DCMAKE_PREFIX_PATH="$prefix"
    cmake --build build/example -j "$JOBS"
    env -i build/example/kelvo-example

    echo "== example through pkg-config, as C++20, with no run path of its own"
    pcdir=$(dirname "$(find "$prefix" -name kelvo-filesystem.pc | head -n 1)")
    # shellcheck disable=SC2046
    g++ -std=c++20 -Wall -Wextra -Wpedantic -Werror -o build/example/kelvo-example-pc examples/example.cpp \
        $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs kelvo-filesystem)
    env -i build/example/kelvo-example-pc

    echo "== the installed library loaded late with dlopen"
    KELVO_DLOPEN_LIBRARY=$(find "$prefix" -name 'libkelvo_filesystem.so.*' | head -n 1) \
        build/default/tests/library_dlopen_test
}

run_tests() {
    step "default build (g++) and its tests"
    build_preset default
    counted_ctest ctest --preset default -j "$JOBS"

    step "the default build's tests as an ordinary user (uid $ORDINARY_USER)"
    run_as_ordinary_user

    step "sanitize build (clang, ASan and UBSan) and its tests"
    build_preset sanitize
    counted_ctest ctest --preset sanitize -j "$JOBS"

    step "thread tests under ThreadSanitizer"
    cmake --preset tsan
    # Only what the thread tests need.
    threads=$(sed -n 's/^set(KELVO_THREAD_TESTS \(.*\))$/\1/p' tests/CMakeLists.txt)
    for source in tests/*thread*_test.cpp; do
        threads="$threads $(basename "$source" .cpp)"
    done
    # shellcheck disable=SC2086
    cmake --build --preset tsan -j "$JOBS" --target $threads
    counted_ctest ctest --preset tsan -j "$JOBS"

    step "fuzz targets (clang, libFuzzer, ASan and UBSan), $FUZZ_SECONDS s each"
    run_fuzzers

    step "configurations without tests or without the Unicode test data"
    check_lean_configurations

    step "release build with the benchmarks, installed and used"
    build_preset release
    check_installed_package

    step ""
    total=$(($(date +%s) - CI_START))
    printf '\nTime taken:\n%s%6ss  in all\n' "$TIMES" "$total"
    echo "All checks passed."
    echo "tests: $PASSED passed, 0 failed, $SKIPPED skipped"
}

case "${1:-}" in
    demo) install_missing; run_demo ;;
    test) install_missing; run_tests ;;
    *) echo "usage: scripts/dev.sh demo|test" >&2; exit 2 ;;
esac
