#!/usr/bin/env bash
# debs_and_zip_test.sh QT5_DEB_DIR QT6_DEB_DIR [ZIP TOOLCHAIN_FILE QT_PREFIX]: checks that the
# Debian packages of both Qt builds own no path in common, unpacks them all into one
# throwaway root, and links examples/consumer against each build three ways (CMake,
# pkg-config, qmake); each consumer must load its own build's library and Qt, and
# leave its line in the user log of a fresh tree. With a zip, the consumer is also
# cross-built with CMake against the unpacked Windows SDK (Qt 5) and run under Wine
# (environment from run.sh), its line ending in CRLF.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
. "$here/tools/common.sh"
consumer=$here/examples/consumer
work=$(mktemp -d "${TMPDIR:-/tmp}/userlog-packages-XXXXXX")
trap 'rm -rf "$work"' EXIT

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

# links PROGRAM LIBRARY...: the program needs exactly these of the two builds' and Qts' libraries.
links() {
    local program=$1 needed
    shift
    needed=$(readelf -d "$program" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' |
        grep -E '^lib(varnor|Qt[56]Core)' | sort | tr '\n' ' ')
    [ "$needed" = "$(printf '%s\n' "$@" | sort | tr '\n' ' ')" ] ||
        { echo "$program needs $needed, not $*" >&2 && return 1; }
}

debs=("$1"/*.deb "$2"/*.deb)
say "no path owned by two of: ${debs[*]##*/}"
for deb in "${debs[@]}"; do dpkg-deb -c "$deb" | awk '$6 !~ /\/$/ { print $6 }'; done |
    sort | uniq -d >"$work/shared-paths"
if [ -s "$work/shared-paths" ]; then
    cat "$work/shared-paths" >&2
    exit 1
fi

root=$work/root
for deb in "${debs[@]}"; do dpkg-deb -x "$deb" "$root"; done
libdir=$(dirname "$(cd "$root/usr" && echo lib/*/libvarnor.userlog.so)")
export LD_LIBRARY_PATH=$root/usr/$libdir

for qt in 5 6; do
    suffix="" qmake=qmake
    [ $qt = 5 ] || suffix=-qt$qt qmake=qmake$qt
    expected=("libvarnor.userlog$suffix.so.1" "libQt${qt}Core.so.$qt")

    cmake -S "$consumer" -B "$work/cmake$qt" -DCMAKE_PREFIX_PATH="$root/usr" \
        -DUSERLOG_QT_MAJOR_VERSION=$qt >/dev/null
    cmake --build "$work/cmake$qt" >/dev/null
    links "$work/cmake$qt/consumer" "${expected[@]}"
    check "Qt$qt-CMake" "" "$work/cmake$qt/consumer"

    read -ra flags <<<"$(PKG_CONFIG_PATH=$root/usr/$libdir/pkgconfig \
        pkg-config --cflags --libs "varnor-userlog$suffix")"
    # -fPIC: Debian's Qt is built with -reduce-relocations, and its .pc files do not say so.
    g++ -std=c++17 -fPIC "$consumer/main.cpp" -o "$work/pkg-config-consumer$qt" "${flags[@]}"
    links "$work/pkg-config-consumer$qt" "${expected[@]}"
    check "Qt$qt-pkg-config" "" "$work/pkg-config-consumer$qt"

    mkdir "$work/qmake$qt"
    (cd "$work/qmake$qt" && QMAKEFEATURES=$root/usr/$libdir/qt$qt/mkspecs/features \
        $qmake "$consumer" >/dev/null && make -s >/dev/null)
    links "$work/qmake$qt/consumer" "${expected[@]}"
    check "Qt$qt-qmake" "" "$work/qmake$qt/consumer"
done

[ $# -ge 5 ] || exit 0
mkdir "$work/sdk" && unzip -q "$3" -d "$work/sdk"
sdk=$(echo "$work"/sdk/*)
# The consumer goes beside the SDK's DLLs; Windows looks there first.
cmake -S "$consumer" -B "$work/windows" -DCMAKE_TOOLCHAIN_FILE="$4" -DUSERLOG_QT_PREFIX="$5" \
    -DVarnorUserLog_DIR="$sdk/lib/cmake/VarnorUserLog" \
    -DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$sdk/bin" >/dev/null
cmake --build "$work/windows" >/dev/null
check Windows $'\r' "$here/cmake/wine-run.sh" "$sdk/bin/consumer.exe"
