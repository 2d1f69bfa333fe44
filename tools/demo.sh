#!/usr/bin/env bash
# Runs the demo host in a fresh temporary tree and prints the files it produced.
set -euo pipefail
build=${1:-build}
root=$(mktemp -d)
mkdir -p "$root/app/bin"
echo "log tree: $root"
(cd "$root/app/bin" && "$OLDPWD/$build/tools/userlog-demo")
find "$root/log" -type f | sort | while read -r f; do
    echo "---- ${f#$root/}"
    cat "$f"
done
