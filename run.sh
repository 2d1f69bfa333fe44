#!/usr/bin/env bash
# One entry point for building, testing and demonstrating the library.
#   ./run.sh demo      build, then run the example host scenario and show its files
#   ./run.sh test      build, then run every test with CTest
#   ./run.sh sanitize  the same tests under AddressSanitizer + UBSan (build-asan/)
#   ./run.sh sanitize thread   the same tests under ThreadSanitizer (build-tsan/)
#   ./run.sh bench     build and run the benchmarks (build-bench/)
#   ./run.sh view [ROOT] [LNAV_OPTION...]
#                      read a log tree (default: the last demo's) as one timeline in lnav,
#                      with tools/lnav's format and a throwaway lnav home
#   ./run.sh view --install   install that format into your own lnav (lnav -i)
set -euo pipefail
cd "$(dirname "$0")"

say() { printf '==> %s\n' "$*"; }

apt_install() {
    local missing=()
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" ||
            missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    say "installing ${missing[*]}"
    local sudo=""
    [ "$(id -u)" -ne 0 ] && sudo="sudo"
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -q
    $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -q --no-install-recommends "$@"
}

base_packages=(build-essential cmake qtbase5-dev qtbase5-dev-tools)
jobs=$(nproc 2>/dev/null || echo 2)

configure_and_build() {
    local dir=$1
    shift
    say "configuring $dir"
    cmake -S . -B "$dir" "$@" >/dev/null
    say "building $dir"
    cmake --build "$dir" -j "$jobs"
}

run_tests() {
    local dir=$1
    say "running tests in $dir"
    # The tests compare bytes written through the locale's text codec.
    LC_ALL=C.UTF-8 ctest --test-dir "$dir" --output-on-failure -j "$jobs" --timeout 300
}

# Opens ROOT/log/*/* in lnav with the format from tools/lnav. lnav gets a home of
# its own for the run: it finds the format there and keeps its session state
# there, and the user's own lnav configuration is neither read nor written.
view_tree() {
    local root=""
    if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
        root=$1
        shift
    elif [ -f build/last-demo-root ]; then
        root=$(cat build/last-demo-root)
    else
        echo "no demo tree yet: run ./run.sh demo first, or name a tree: $0 view ROOT" >&2
        exit 2
    fi
    if [ ! -d "$root/log" ]; then
        echo "$root has no log/ directory" >&2
        exit 2
    fi
    apt_install lnav
    lnav_home=$(mktemp -d "${TMPDIR:-/tmp}/userlog-lnav-XXXXXX")
    trap 'rm -rf "$lnav_home"' EXIT
    mkdir -p "$lnav_home/.lnav/formats/varnor_userlog"
    cp tools/lnav/varnor_userlog.json "$lnav_home/.lnav/formats/varnor_userlog/"
    say "opening '$root/log/*/*' in lnav (format tools/lnav/varnor_userlog.json, lnav home $lnav_home)"
    # One quoted glob: lnav expands it itself and loads every file of the tree.
    HOME=$lnav_home TMPDIR=$lnav_home lnav "$@" "$root/log/*/*"
}

cmd=${1:-}
case "$cmd" in
demo)
    apt_install "${base_packages[@]}"
    configure_and_build build
    say "running the demo"
    exec ./tools/demo.sh build
    ;;
test)
    # lnav for tst_lnav, which checks the format in tools/lnav.
    apt_install "${base_packages[@]}" lnav
    configure_and_build build
    run_tests build
    ;;
sanitize)
    apt_install "${base_packages[@]}"
    if [ "${2:-}" = thread ]; then
        # Qt itself is not instrumented; tests/tsan.supp says what that hides.
        tsan=-fsanitize=thread
        configure_and_build build-tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=$tsan \
            -DCMAKE_EXE_LINKER_FLAGS=$tsan -DCMAKE_SHARED_LINKER_FLAGS=$tsan
        say "running tests in build-tsan (not the package test: its consumer is uninstrumented)"
        LC_ALL=C.UTF-8 TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1" \
            ctest --test-dir build-tsan --output-on-failure -j "$jobs" --timeout 300 -E '^package$'
        exit
    fi
    configure_and_build build-asan -DCMAKE_BUILD_TYPE=Debug -DUSERLOG_SANITIZE=ON
    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        run_tests build-asan
    ;;
bench)
    apt_install "${base_packages[@]}" libspdlog-dev
    configure_and_build build-bench -DCMAKE_BUILD_TYPE=Release -DUSERLOG_BUILD_BENCH=ON \
        -DUSERLOG_BUILD_TESTS=OFF -DUSERLOG_BUILD_TOOLS=OFF
    exec ./bench/run_bench.sh build-bench
    ;;
view)
    shift
    if [ "${1:-}" = --install ]; then
        apt_install lnav
        say "installing tools/lnav/varnor_userlog.json into your lnav configuration"
        lnav -i tools/lnav/varnor_userlog.json
        say "open a log tree with: lnav 'ROOT/log/*/*'"
        exit
    fi
    view_tree "$@"
    ;;
*)
    echo "usage: $0 demo|test|sanitize|bench|view" >&2
    exit 2
    ;;
esac
