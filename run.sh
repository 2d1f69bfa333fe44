#!/usr/bin/env bash
# One entry point for building, testing and demonstrating the library.
#   ./run.sh demo      build, then run the example host scenario and show its files
#   ./run.sh test      build against Qt 5 (build/) and Qt 6 (build-qt6/), then run every
#                      test of both with CTest
#   ./run.sh sanitize  the same tests under AddressSanitizer + UBSan (build-asan/)
#   ./run.sh sanitize thread   the same tests under ThreadSanitizer (build-tsan/)
#   ./run.sh bench [5|6]   build and run the benchmarks against Qt 5 (build-bench/, the
#                      default) or Qt 6 (build-bench-qt6/)
#   ./run.sh view [ROOT] [LNAV_OPTION...]
#                      read a log tree (default: the last demo's) as one timeline in lnav,
#                      with tools/lnav's format and a throwaway lnav home
#   ./run.sh view --install   install that format into your own lnav (lnav -i)
#   ./run.sh windows   cross-build for Windows x64 (build-windows/) and run the tests
#                      under Wine; the first run also builds Qt for Windows, kept in
#                      ~/.cache/varnor-userlog (cmake/qt-mingw.sh)
#   ./run.sh package   the Debian packages of both Qt builds (build-package/,
#                      build-package-qt6/), the fleet package (build-package-fleet/) and the
#                      Windows SDK zip (build-windows-package/, Qt 5), each linked by consumers
#   ./run.sh fleet [N] one collector and N devices (default 3) shipping their logs over
#                      RELP/TLS under faults, compared file by file (build-fleet/)
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
fleet_packages=(rsyslog rsyslog-relp openssl)
# Debian 12's Qt 6.4: Core, Network and Test, the tools and qmake6.
qt6_packages=(qt6-base-dev)
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
    # A device's tree (ROOT/log/DIR/FILE) or a collector's (CENTRAL/DEVICE/DIR/FILE).
    local glob="$root/log/*/*"
    if [ ! -d "$root/log" ]; then
        compgen -G "$root/*/*/*" >/dev/null || { echo "$root has no log/ directory" >&2; exit 2; }
        glob="$root/*/*/*"
    fi
    apt_install lnav
    lnav_home=$(mktemp -d "${TMPDIR:-/tmp}/userlog-lnav-XXXXXX")
    trap 'rm -rf "$lnav_home"' EXIT
    mkdir -p "$lnav_home/.lnav/formats/varnor_userlog"
    cp tools/lnav/varnor_userlog.json "$lnav_home/.lnav/formats/varnor_userlog/"
    say "opening '$glob' in lnav (format tools/lnav/varnor_userlog.json, lnav home $lnav_home)"
    # One quoted glob: lnav expands it itself and loads every file of the tree.
    HOME=$lnav_home TMPDIR=$lnav_home lnav "$@" "$glob"
}

# The Windows name of a host path: Wine maps the host's / to Z:.
winpath() { printf 'Z:%s' "${1//\//\\}"; }

# Exports what Wine needs to run this build's programs: a prefix of its own in
# BUILD_DIR, initialised once, and the Qt, MinGW runtime and library DLLs on its
# search path. The tests and the package test run through cmake/wine-run.sh.
wine_env() {
    local dir=$PWD/$1 dll search=""
    export WINEPREFIX=$dir/wine WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
    # Wine hands WINEQT_X to the program as QT_X: QtTest's output then goes to
    # stderr rather than the debugger channel that Wine has with no console.
    export WINEQT_FORCE_STDERR_LOGGING=1
    unset DISPLAY
    for dll in libstdc++-6.dll libgcc_s_seh-1.dll libwinpthread-1.dll; do
        dll=$(x86_64-w64-mingw32-g++-posix -print-file-name=$dll)
        search+=";$(winpath "$(dirname "$dll")")"
    done
    WINEPATH="$(winpath "$dir");$(winpath "$dir/qt/bin")$search"
    export WINEPATH
    if [ ! -f "$WINEPREFIX/system.reg" ]; then
        say "initialising the Wine prefix $WINEPREFIX"
        wineboot -i >"$dir/wineboot.log" 2>&1
        # Temporary files in the build directory rather than in the prefix's
        # C:\users: one place to look, and gone with the build.
        local var
        for var in TEMP TMP; do
            wine reg add 'HKCU\Environment' /v $var /t REG_SZ /d "$(winpath "$dir/wine-tmp")" /f \
                >>"$dir/wineboot.log" 2>&1
        done
        wineserver -w
    fi
    rm -rf "$dir/wine-tmp"
    mkdir -p "$dir/wine-tmp"
}

# Cross-builds DIR for Windows x64 against the cached Qt for Windows, with more
# CMake arguments if given.
build_windows() {
    local dir=$1
    shift
    apt_install build-essential cmake xz-utils g++-mingw-w64-x86-64-posix wine wine64
    JOBS=$jobs ./cmake/qt-mingw.sh "$dir/qt"
    # The toolchain file counts at the first configure only; passed again, CMake
    # would warn that it went unused.
    local toolchain=()
    [ -f "$dir/CMakeCache.txt" ] ||
        toolchain=(-DCMAKE_TOOLCHAIN_FILE="$PWD/cmake/mingw-w64-x86_64.cmake")
    configure_and_build "$dir" "${toolchain[@]}" -DUSERLOG_QT_PREFIX="$PWD/$dir/qt" "$@"
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
    # lnav for tst_lnav, which checks the format in tools/lnav; rsyslog for the fleet test.
    apt_install "${base_packages[@]}" "${qt6_packages[@]}" lnav "${fleet_packages[@]}"
    configure_and_build build
    # tst_parity replays scenarios through both builds' hosts.
    configure_and_build build-qt6 -DUSERLOG_QT_MAJOR_VERSION=6 \
        -DUSERLOG_OTHER_HOST="$PWD/build/tools/userlog-host"
    run_tests build
    run_tests build-qt6
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
    case "${2:-5}" in
    5) bench_dir=build-bench bench_packages=() ;;
    6) bench_dir=build-bench-qt6 bench_packages=("${qt6_packages[@]}") ;;
    *)
        echo "usage: $0 bench [5|6]" >&2
        exit 2
        ;;
    esac
    apt_install "${base_packages[@]}" "${bench_packages[@]}" libspdlog-dev strace
    configure_and_build "$bench_dir" -DCMAKE_BUILD_TYPE=Release -DUSERLOG_BUILD_BENCH=ON \
        -DUSERLOG_BUILD_TESTS=OFF -DUSERLOG_BUILD_TOOLS=OFF -DUSERLOG_QT_MAJOR_VERSION="${2:-5}"
    exec ./bench/run_bench.sh "$bench_dir"
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
windows)
    build_windows build-windows
    wine_env build-windows
    say "running tests in build-windows under Wine"
    ctest --test-dir build-windows --output-on-failure -j "$jobs" --timeout 300
    ;;
package)
    apt_install "${base_packages[@]}" "${qt6_packages[@]}" dpkg-dev file gzip lintian pkg-config \
        qt5-qmake unzip
    package_options=(-DCMAKE_BUILD_TYPE=Release -DUSERLOG_BUILD_TESTS=OFF -DUSERLOG_BUILD_TOOLS=OFF)
    for qt in 5 6; do
        dir=build-package
        [ $qt = 5 ] || dir=build-package-qt$qt
        configure_and_build $dir -DCMAKE_INSTALL_PREFIX=/usr -DUSERLOG_QT_MAJOR_VERSION=$qt \
            "${package_options[@]}"
        rm -f $dir/*.deb
        (cd $dir && cpack >/dev/null)
        say "lintian $dir"
        lintian --fail-on error $dir/*.deb
    done
    mkdir -p build-package-fleet
    ./tools/fleet/make-deb.sh build-package-fleet # architecture-independent, no build needed
    say "lintian build-package-fleet"
    lintian --fail-on error build-package-fleet/*.deb
    build_windows build-windows-package "${package_options[@]}"
    rm -f build-windows-package/*.zip
    (cd build-windows-package && cpack >/dev/null)
    wine_env build-windows-package
    ./tests/packages.sh build-package build-package-qt6 build-windows-package/*.zip \
        "$PWD/cmake/mingw-w64-x86_64.cmake" "$PWD/build-windows-package/qt"
    say "packages:"
    ls -1 "$PWD"/build-package/*.deb "$PWD"/build-package-qt6/*.deb "$PWD"/build-package-fleet/*.deb \
        "$PWD"/build-windows-package/*.zip
    ;;
fleet)
    apt_install "${base_packages[@]}" "${fleet_packages[@]}"
    configure_and_build build
    exec ./tools/fleet/demo-fleet.sh build "${2:-3}" build-fleet
    ;;
*)
    echo "usage: $0 demo|test|sanitize|bench|view|windows|package|fleet" >&2
    exit 2
    ;;
esac
