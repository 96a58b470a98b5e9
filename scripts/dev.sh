#!/bin/sh
# Builds, tests and demonstrates kelvo-filesystem on Debian 12, first installing whatever Debian packages are missing.
#
#   scripts/dev.sh demo   build everything (default preset) and run the kelvo-fs demo
#   scripts/dev.sh test   every test in the default and the sanitizer builds, the
#                         benchmarks' build, an install into a temporary prefix and
#                         the example built against it with CMake and pkg-config
set -eu

cd "$(dirname "$0")/.."

PACKAGES="cmake make g++ pkg-config libicu-dev libgtest-dev libbenchmark-dev libboost-filesystem-dev unicode-data bzip2"
JOBS=$(nproc 2>/dev/null || echo 2)

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
    build_preset default
    build/default/tools/kelvo-fs demo
}

check_installed_package() {
    prefix=$(mktemp -d "${TMPDIR:-/tmp}/kelvo-install-XXXXXX")
    trap 'rm -rf "$prefix"' EXIT
    cmake --install build/release --prefix "$prefix"

    echo "== example through find_package(KelvoFilesystem)"
    rm -rf build/example
    cmake -S examples -B build/example -DCMAKE_PREFIX_PATH="$prefix"
    cmake --build build/example -j "$JOBS"
    build/example/kelvo-example

    echo "== example through pkg-config"
    pcdir=$(dirname "$(find "$prefix" -name kelvo-filesystem.pc | head -n 1)")
    libdir=$(PKG_CONFIG_PATH="$pcdir" pkg-config --variable=libdir kelvo-filesystem)
    # shellcheck disable=SC2046
    g++ -Wall -Wextra -Wpedantic -Werror -o build/example/kelvo-example-pc examples/example.cpp \
        $(PKG_CONFIG_PATH="$pcdir" pkg-config --cflags --libs kelvo-filesystem) -Wl,-rpath,"$libdir"
    build/example/kelvo-example-pc

    echo "== the installed library loaded late with dlopen"
    KELVO_DLOPEN_LIBRARY=$(find "$prefix" -name 'libkelvo_filesystem.so.*' | head -n 1) \
        build/default/tests/library_dlopen_test
}

run_tests() {
    build_preset default
    ctest --preset default -j "$JOBS"

    build_preset sanitize
    ctest --preset sanitize -j "$JOBS"

    build_preset release
    check_installed_package
    echo "All tests passed."
}

case "${1:-}" in
    demo) install_missing; run_demo ;;
    test) install_missing; run_tests ;;
    *) echo "usage: scripts/dev.sh demo|test" >&2; exit 2 ;;
esac
