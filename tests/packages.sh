#!/usr/bin/env bash
# packages.sh DEB_DIR [ZIP TOOLCHAIN_FILE QT_PREFIX]: unpacks the Debian packages in
# DEB_DIR into a throwaway root and links examples/consumer against them three ways
# (CMake, pkg-config, qmake); each consumer runs in a fresh log tree and must leave
# its line in the user log. With a zip, the consumer is also cross-built with CMake
# against the unpacked Windows SDK and run under Wine (environment from run.sh), its
# line ending in CRLF.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
consumer=$here/examples/consumer
work=$(mktemp -d "${TMPDIR:-/tmp}/userlog-packages-XXXXXX")
trap 'rm -rf "$work"' EXIT
say() { printf '==> %s\n' "$*"; }

# check NAME LINE_END PROGRAM...: runs the consumer in <tree>/app/bin.
check() {
    local name=$1 eol=$2
    shift 2
    mkdir -p "$work/tree-$name/app/bin"
    (cd "$work/tree-$name/app/bin" && "$@")
    grep -qxF "**12:00:00** <CONSUMER> <info> linked against the installed package$eol" \
        "$work/tree-$name/log/offline/user_print_file_off"
    say "$name consumer: its line is in the user log"
}

root=$work/root
for deb in "$1"/*.deb; do dpkg-deb -x "$deb" "$root"; done
libdir=$(dirname "$(cd "$root/usr" && echo lib/*/libvarnor.userlog.so)")
export LD_LIBRARY_PATH=$root/usr/$libdir

cmake -S "$consumer" -B "$work/cmake" -DCMAKE_PREFIX_PATH="$root/usr" >/dev/null
cmake --build "$work/cmake" >/dev/null
check CMake "" "$work/cmake/consumer"

read -ra flags <<<"$(PKG_CONFIG_PATH=$root/usr/$libdir/pkgconfig pkg-config --cflags --libs varnor-userlog)"
# -fPIC: Debian's Qt is built with -reduce-relocations, and its .pc files do not say so.
g++ -std=c++17 -fPIC "$consumer/main.cpp" -o "$work/pkg-config-consumer" "${flags[@]}"
check pkg-config "" "$work/pkg-config-consumer"

mkdir "$work/qmake"
(cd "$work/qmake" && QMAKEFEATURES=$root/usr/$libdir/qt5/mkspecs/features qmake "$consumer" >/dev/null &&
    make -s >/dev/null)
check qmake "" "$work/qmake/consumer"

[ $# -ge 4 ] || exit 0
mkdir "$work/sdk" && unzip -q "$2" -d "$work/sdk"
sdk=$(echo "$work"/sdk/*)
# The consumer goes beside the SDK's DLLs; Windows looks there first.
cmake -S "$consumer" -B "$work/windows" -DCMAKE_TOOLCHAIN_FILE="$3" -DUSERLOG_QT_PREFIX="$4" \
    -DVarnorUserLog_DIR="$sdk/lib/cmake/VarnorUserLog" \
    -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$sdk/bin" >/dev/null
cmake --build "$work/windows" >/dev/null
check Windows $'\r' "$here/cmake/wine-run.sh" "$sdk/bin/consumer.exe"
