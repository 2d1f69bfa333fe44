#!/usr/bin/env bash
# package.sh BUILD_DIR: installs the build into a temporary prefix, builds
# examples/consumer against the installed package and runs it in a temporary log tree.
set -euo pipefail
work=$(mktemp -d "${TMPDIR:-/tmp}/userlog-package-XXXXXX")
trap 'rm -rf "$work"' EXIT
cmake --install "$1" --prefix "$work/prefix" >/dev/null
cmake -S "$(dirname "$0")/../examples/consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
mkdir -p "$work/tree/app/bin" && cd "$work/tree/app/bin" && "$work/build/consumer"
grep -xF '**12:00:00** <CONSUMER> <info> linked against the installed package' \
    "$work/tree/log/offline/user_print_file_off"
