#!/usr/bin/env bash
# usage: ./run.sh COMMAND [ARG...]
# Each command first installs what it lacks (apt-get), configures and builds.
#   demo                 replay examples/shift.scenario (build/) and summarise its log files
#   test                 every test with CTest, against Qt 5 (build/) and Qt 6 (build-qt6/)
#   sanitize [thread]    the tests under AddressSanitizer + UBSan (build-asan/), or under
#                        ThreadSanitizer (build-tsan/)
#   bench [5|6]          the benchmarks against Qt 5 (build-bench/) or Qt 6 (build-bench-qt6/)
#   view [ROOT] [OPT...] a log tree (default: the last demo's) in lnav, as one timeline
#   view --install       the lnav format into your own lnav
#   windows              cross-build for Windows x64 (build-windows/), run the tests under Wine
#   package              the .debs of both Qt builds, the fleet .deb and the Windows SDK zip,
#                        each linked by consumers (build-package*/, build-windows-package/)
#   fleet [N]            one collector and N pendants (3) shipping logs under faults (build-fleet/)
set -euo pipefail
cd "$(dirname "$0")"
. tools/common.sh
. cmake/windows.sh

base_packages=(build-essential cmake qtbase5-dev qtbase5-dev-tools)
# Debian 12's Qt 6.4: Core, Network and Test, the tools and qmake6.
qt6_packages=(qt6-base-dev)
fleet_packages=(rsyslog rsyslog-relp openssl)
jobs=$(nproc 2>/dev/null || echo 2)

usage() { sed -n '2,/^set /s/^# \{0,1\}//p' "$0"; }

configure_and_build() {
    local dir=$1
    shift
    say "configuring $dir"
    cmake -S . -B "$dir" "$@" >/dev/null
    say "building $dir"
    cmake --build "$dir" -j "$jobs"
}

# run_tests DIR [CTEST_ARG...]. The tests compare bytes written through the
# locale's codec, so they run under C.UTF-8; under Wine (WINEPREFIX set) the
# caller's locale stays, since Wine derives the ANSI code page from it. Twice
# as many at once as there are cores: the long tests mostly wait on probe
# timers, scenario pauses and child programs.
run_tests() {
    local dir=$1 locale=()
    shift
    [ -n "${WINEPREFIX:-}" ] || locale=(env LC_ALL=C.UTF-8)
    say "running tests in $dir"
    "${locale[@]}" ctest --test-dir "$dir" --output-on-failure -j "$((jobs * 2))" --timeout 300 "$@"
}

# build_windows DIR [CMAKE_ARG...]: against the cached Qt for Windows.
build_windows() {
    local dir=$1 args
    shift
    apt_install "${windows_packages[@]}"
    args=$(windows_cmake_args "$dir")
    readarray -t args <<<"$args"
    configure_and_build "$dir" "${args[@]}" "$@"
}

cmd_demo() {
    apt_install "${base_packages[@]}"
    configure_and_build build
    exec ./tools/demo.sh build
}

cmd_test() {
    # lnav for tst_lnav, which checks the format in tools/lnav; rsyslog for the fleet test.
    apt_install "${base_packages[@]}" "${qt6_packages[@]}" lnav "${fleet_packages[@]}"
    configure_and_build build
    # tst_parity replays scenarios through both builds' hosts.
    configure_and_build build-qt6 -DUSERLOG_QT_MAJOR_VERSION=6 \
        -DUSERLOG_OTHER_HOST="$PWD/build/tools/userlog-host"
    run_tests build
    run_tests build-qt6
}

cmd_sanitize() {
    apt_install "${base_packages[@]}"
    if [ "${1:-}" = thread ]; then
        local tsan=-fsanitize=thread
        configure_and_build build-tsan -DCMAKE_BUILD_TYPE=Debug -DCMAKE_CXX_FLAGS=$tsan \
            -DCMAKE_EXE_LINKER_FLAGS=$tsan -DCMAKE_SHARED_LINKER_FLAGS=$tsan
        # Qt itself is not instrumented: tests/tsan.supp says what that hides. The
        # install test's consumer is not instrumented either.
        TSAN_OPTIONS="suppressions=$PWD/tests/tsan.supp:halt_on_error=1" \
            run_tests build-tsan -E '^install$'
        return
    fi
    configure_and_build build-asan -DCMAKE_BUILD_TYPE=Debug -DUSERLOG_SANITIZE=ON
    ASAN_OPTIONS=detect_leaks=0:abort_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
        run_tests build-asan
}

cmd_bench() {
    local qt=${1:-5} dir=build-bench extra=()
    case "$qt" in
    5) ;;
    6) dir=build-bench-qt6 extra=("${qt6_packages[@]}") ;;
    *) usage >&2 && exit 2 ;;
    esac
    apt_install "${base_packages[@]}" "${extra[@]}" libspdlog-dev strace
    configure_and_build "$dir" -DCMAKE_BUILD_TYPE=Release -DUSERLOG_BUILD_BENCH=ON \
        -DUSERLOG_BUILD_TESTS=OFF -DUSERLOG_BUILD_TOOLS=OFF -DUSERLOG_QT_MAJOR_VERSION="$qt"
    exec ./bench/run_bench.sh "$dir"
}

cmd_view() {
    apt_install lnav
    exec ./tools/lnav/view.sh "$@"
}

cmd_windows() {
    build_windows build-windows
    wine_env build-windows
    run_tests build-windows
}

cmd_package() {
    apt_install "${base_packages[@]}" "${qt6_packages[@]}" dpkg-dev file gzip lintian pkg-config \
        qt5-qmake unzip
    local options=(-DCMAKE_BUILD_TYPE=Release -DUSERLOG_BUILD_TESTS=OFF -DUSERLOG_BUILD_TOOLS=OFF)
    local qt dir
    for qt in 5 6; do
        dir=build-package
        [ $qt = 5 ] || dir=build-package-qt$qt
        configure_and_build $dir -DCMAKE_INSTALL_PREFIX=/usr -DUSERLOG_QT_MAJOR_VERSION=$qt \
            "${options[@]}"
        rm -f $dir/*.deb
        (cd $dir && cpack >/dev/null)
    done
    mkdir -p build-package-fleet
    ./tools/fleet/make-deb.sh build-package-fleet # architecture-independent, no build needed
    for dir in build-package build-package-qt6 build-package-fleet; do
        say "lintian $dir"
        lintian --fail-on error $dir/*.deb
    done
    build_windows build-windows-package "${options[@]}"
    rm -f build-windows-package/*.zip
    (cd build-windows-package && cpack >/dev/null)
    wine_env build-windows-package
    ./tests/debs_and_zip_test.sh build-package build-package-qt6 build-windows-package/*.zip \
        "$PWD/cmake/mingw-w64-x86_64.cmake" "$PWD/build-windows-package/qt"
    say "packages:"
    ls -1 "$PWD"/build-package*/*.deb "$PWD"/build-windows-package/*.zip
}

cmd_fleet() {
    apt_install "${base_packages[@]}" "${fleet_packages[@]}"
    configure_and_build build
    exec ./tools/fleet/demo-fleet.sh build "${1:-3}" build-fleet
}

case "${1:-}" in
demo | test | sanitize | bench | view | windows | package | fleet) "cmd_$1" "${@:2}" ;;
*) usage >&2 && exit 2 ;;
esac
