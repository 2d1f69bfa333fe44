#!/usr/bin/env bash
# view.sh [ROOT] [LNAV_OPTION...]: opens a log tree in lnav as one timeline, with
# this directory's format. ROOT is a device's tree (ROOT/log/DIR/FILE) or a
# collector's (ROOT/DEVICE/DIR/FILE); default: the last demo's tree. lnav gets a
# home of its own for the run: it finds the format there and keeps its session
# state there, and the user's own lnav configuration is neither read nor written.
# view.sh --install: installs the format into the user's own lnav instead.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
. "$here/../common.sh"
format=$here/varnor_userlog.json

if [ "${1:-}" = --install ]; then
    say "installing $format into your lnav configuration"
    lnav -i "$format"
    say "open a log tree with: lnav 'ROOT/log/*/*'"
    exit
fi

last_demo=$here/../../build/last-demo-root
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
    root=$1
    shift
elif [ -f "$last_demo" ]; then
    root=$(cat "$last_demo")
else
    echo "no demo tree yet: run ./run.sh demo first, or name a tree: ./run.sh view ROOT" >&2
    exit 2
fi
glob="$root/log/*/*"
if [ ! -d "$root/log" ]; then
    compgen -G "$root/*/*/*" >/dev/null || { echo "$root has no log/ directory" >&2 && exit 2; }
    glob="$root/*/*/*"
fi

lnav_home=$(mktemp -d "${TMPDIR:-/tmp}/userlog-lnav-XXXXXX")
trap 'rm -rf "$lnav_home"' EXIT
mkdir -p "$lnav_home/.lnav/formats/varnor_userlog"
cp "$format" "$lnav_home/.lnav/formats/varnor_userlog/"
say "opening '$glob' in lnav (lnav home $lnav_home)"
# One quoted glob: lnav expands it itself and loads every file of the tree.
HOME=$lnav_home TMPDIR=$lnav_home lnav "$@" "$glob"
