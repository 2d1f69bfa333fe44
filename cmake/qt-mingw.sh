#!/usr/bin/env bash
# qt-mingw.sh DEST: makes DEST a Qt for Windows x64 (Core, Network, Test), built
# with MinGW-w64's posix-thread compilers. Debian ships no such Qt, so the first
# run cross-builds Debian's own qtbase source (the README's Windows section says how
# long) and keeps the installed prefix as a tarball in the cache; later runs only
# unpack it.
#   cache: ${USERLOG_CACHE:-~/.cache/varnor-userlog}, rebuilt when missing
set -euo pipefail
. "$(dirname "$0")/../tools/common.sh"

dest=$1
qt_version=5.15.8
cache=${USERLOG_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/varnor-userlog}
cross=x86_64-w64-mingw32-

# sql, xml and concurrent are disabled because nothing here uses them, and
# Debian's source tarball lacks the bundled sqlite anyway.
qt_options=(-xplatform win32-g++ -device-option "CROSS_COMPILE=$cross"
    -release -shared -opensource -confirm-license -nomake examples -nomake tests
    -no-gui -no-widgets -no-opengl -no-dbus -no-icu -no-openssl -qt-pcre -qt-zlib
    -no-feature-sql -no-feature-concurrent -no-feature-xml -no-feature-bearermanagement
    -no-compile-examples)

# Debian's compiler calls itself "12-posix"; the thread model is in the name already.
gcc_version=$(${cross}gcc-posix -dumpfullversion)
gcc_version=${gcc_version%-posix}
flags_hash=$(printf '%s\n' "${qt_options[@]}" | sha256sum | cut -c1-8)
name=qt-$qt_version-mingw$gcc_version-posix-$flags_hash
tarball=$cache/$name.tar.gz

if [ -f "$dest/.qt-build" ] && [ "$(cat "$dest/.qt-build")" = "$name" ]; then
    exit 0
fi

# Fetches Debian's qtbase source package into the current directory through a
# deb-src entry that exists only for the download, so the system's sources end
# as they were. Runs in a subshell: the trap is its own.
fetch_source() {
    local list=/etc/apt/sources.list.d/varnor-userlog-qt-src.sources
    trap 'as_root rm -f '"$list"'; as_root apt-get update -qq || true' EXIT
    # The first stanza of the system's deb822 sources (URIs, suites, components,
    # key), as deb-src.
    awk 'BEGIN { RS = "" } NR == 1 { print; exit }' /etc/apt/sources.list.d/debian.sources |
        grep -v '^#' | sed 's/^Types:.*/Types: deb-src/' | as_root tee "$list" >/dev/null
    as_root apt-get update -qq
    # Into a scratch directory that apt's sandbox user cannot reach.
    apt-get source --download-only -qq -o APT::Sandbox::User=root qtbase-opensource-src
}

# logged STEP COMMAND...: runs COMMAND with its output in $log, and shows the
# end of that log if it fails.
logged() {
    local step=$1
    shift
    say "Qt: $step"
    if ! "$@" >>"$log" 2>&1; then
        tail -n 40 "$log" >&2
        echo "Qt $step failed" >&2
        exit 1
    fi
}

build_cache() {
    local work
    work=$(mktemp -d "${TMPDIR:-/tmp}/userlog-qt-XXXXXX")
    # shellcheck disable=SC2064 # expand now: $work is local
    trap "rm -rf '$work'" EXIT
    cd "$work"
    say "fetching Debian's qtbase source"
    mkdir src
    (
        cd src
        fetch_source
    )
    local orig
    orig=$(echo src/qtbase-opensource-src_"$qt_version"*.orig.tar.*)
    if [ ! -f "$orig" ]; then
        echo "Debian's qtbase source is not Qt $qt_version:" src/*.orig.tar.* >&2
        exit 1
    fi
    mkdir qtbase
    tar -C qtbase --strip-components=1 -xf "$orig"

    # Qt's mkspec calls ${CROSS_COMPILE}gcc and g++; point those at the posix
    # compilers without touching the system's alternatives.
    mkdir bin
    ln -s "$(command -v ${cross}gcc-posix)" bin/${cross}gcc
    ln -s "$(command -v ${cross}g++-posix)" bin/${cross}g++
    export PATH=$work/bin:$PATH

    mkdir build && cd build
    log=$work/qt-build.log
    logged configure ../qtbase/configure -prefix "$work/prefix" "${qt_options[@]}"
    logged build make -j"${JOBS:-2}"
    logged install make install

    mkdir -p "$cache"
    tar -C "$work/prefix" -czf "$tarball.part" .
    mv "$tarball.part" "$tarball"
    say "cached $tarball"
}

if [ ! -f "$tarball" ]; then
    # In a subshell so that its trap and directory changes stay there.
    (build_cache)
fi
say "unpacking $name into $dest"
rm -rf "$dest"
mkdir -p "$dest"
tar -C "$dest" -xzf "$tarball"
printf '%s\n' "$name" >"$dest/.qt-build"
