#!/usr/bin/env bash
# Installs a built tree into a temporary prefix, builds the consumer project
# against the installed package and runs it in a temporary log tree.
#   check.sh BUILD_DIR
set -euo pipefail
build=$(cd "$1" && pwd)
consumer=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d "${TMPDIR:-/tmp}/userlog-package-XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "==> installing $build into $work/prefix"
cmake --install "$build" --prefix "$work/prefix" >/dev/null
echo "==> configuring and building the consumer"
cmake -S "$consumer" -B "$work/build" -DCMAKE_PREFIX_PATH="$work/prefix" >/dev/null
cmake --build "$work/build" >/dev/null
echo "==> running the consumer in $work/tree/app/bin"
mkdir -p "$work/tree/app/bin"
(cd "$work/tree/app/bin" && "$work/build/consumer")
line='**12:00:00** <CONSUMER> <info> linked against the installed package'
if ! grep -qxF "$line" "$work/tree/log/offline/user_print_file_off"; then
    echo "the consumer's line is missing from the offline log" >&2
    exit 1
fi
echo "==> the consumer's line is in the log"
