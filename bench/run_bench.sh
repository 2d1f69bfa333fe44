#!/usr/bin/env bash
# Runs the benchmark program in a fresh temporary tree and prints its table of
# ratios; the tree is removed afterwards.
#   bench/run_bench.sh build-bench
set -euo pipefail
. "$(dirname "$0")/../tools/common.sh"
build=$(cd "${1:?usage: $0 <build dir>}" && pwd)
program="$build/bench/userlog-bench"
root=$(mktemp -d)
trap 'rm -rf "$root"' EXIT
mkdir -p "$root/app/bin"

cpu=$(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2 | sed 's/^ *//')
say "machine: $(nproc) cores, ${cpu:-unknown CPU}, $(uname -sr)"
say "scratch tree: $root ($(df -T "$root" | awk 'NR == 2 { print $2 }'))"
say "running $program"
cd "$root/app/bin"
# Every tree the program makes lands under the scratch tree.
TMPDIR="$root" LC_ALL=C.UTF-8 "$program"
