#!/usr/bin/env bash
# install_test.sh BUILD_DIR QT_MAJOR [TOOLCHAIN_FILE QT_PREFIX]: installs the build into a
# temporary prefix, builds examples/consumer against the installed package (of the
# build's Qt major version) and runs it in a temporary log tree. With a toolchain
# file the consumer is cross-built as the build was and runs under Wine.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/userlog-package-XXXXXX")
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >/dev/null
# The consumer goes beside the installed library: Windows loads a DLL from the
# program's directory before the search path, which holds the build's own.
configure=(-DCMAKE_RUNTIME_OUTPUT_DIRECTORY="$work/prefix/bin" -DUSERLOG_QT_MAJOR_VERSION="$2")
run=() exe="" eol=""
if [ $# -ge 4 ]; then
    # The toolchain confines find_package to its root paths: name the package's directory.
    configure+=(-DCMAKE_TOOLCHAIN_FILE="$3" -DUSERLOG_QT_PREFIX="$4"
        -DVarnorUserLog_DIR="$work/prefix/lib/cmake/VarnorUserLog")
    run=("$here/../cmake/wine-run.sh") exe=.exe eol=$'\r'
else
    configure+=(-DCMAKE_PREFIX_PATH="$work/prefix")
fi
cmake -S "$here/../examples/consumer" -B "$work/build" "${configure[@]}" >/dev/null
cmake --build "$work/build" >/dev/null
mkdir -p "$work/tree/app/bin" && cd "$work/tree/app/bin" && "${run[@]}" "$work/prefix/bin/consumer$exe"
# Written in text mode: the platform's line end.
grep -xF "**12:00:00** <CONSUMER> <info> linked against the installed package$eol" \
    "$work/tree/log/offline/user_print_file_off"
