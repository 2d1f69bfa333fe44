#!/usr/bin/env bash
# Runs the example shift through userlog-host in a fresh temporary tree, then
# shows each log directory's files with their line counts and last lines (in a
# fresh tree every file is still the current one of its kind). The tree's path
# goes to BUILD_DIR/last-demo-root, where ./run.sh view finds it.
#   tools/demo.sh [BUILD_DIR]     (default: build)
set -euo pipefail
. "$(dirname "$0")/../tools/common.sh"
cd "$(dirname "$0")/.."
build=${1:-build}
root=$(mktemp -d "${TMPDIR:-/tmp}/userlog-demo-XXXXXX")

say "replaying examples/shift.scenario"
"$build/tools/userlog-host" --root "$root" examples/shift.scenario

for dir in "$root"/log/*; do
    echo
    say "${dir#"$root"/}"
    for file in "$dir"/*; do
        printf '  %s: %d lines, ending\n' "${file##*/}" "$(wc -l <"$file")"
        tail -n 3 "$file" | sed 's/^/    /'
    done
done
printf '%s\n' "$root" >"$build/last-demo-root"
echo
say "the whole tree stays in $root"
say "to read it as one timeline in lnav: ./run.sh view"
