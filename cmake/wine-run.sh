#!/usr/bin/env bash
# wine-run.sh PROGRAM [ARG...]: runs a Windows program of this build under Wine;
# CTest's emulator for the cross build. ./run.sh windows sets up the environment
# (WINEPREFIX, WINEPATH and the rest, cmake/windows.sh).
# Wine's helper processes outlive the program and inherit its output: a pipe
# would stay open until CTest's timeout. A file does not keep anyone waiting.
set -euo pipefail
out=$(mktemp "${TMPDIR:-/tmp}/userlog-wine-XXXXXX")
trap 'rm -f "$out"' EXIT
status=0
wine "$@" </dev/null >"$out" 2>&1 || status=$?
cat "$out"
exit $status
