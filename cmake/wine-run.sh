#!/usr/bin/env bash
# wine-run.sh PROGRAM [ARG...]: runs a Windows program of this build under Wine;
# CTest's emulator for the cross build. ./run.sh windows sets up the environment
# (WINEPREFIX, WINEPATH and the rest).
# Wine's helper processes outlive the program and inherit its output: a pipe
# would stay open until CTest's timeout. A file does not keep anyone waiting.
set -u
out=$(mktemp "${TMPDIR:-/tmp}/userlog-wine-XXXXXX")
wine "$@" </dev/null >"$out" 2>&1
status=$?
cat "$out"
rm -f "$out"
exit $status
