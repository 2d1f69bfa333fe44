#!/usr/bin/env bash
# The fleet (tools/fleet) on loopback, with TLS: devices written by userlog-host,
# shipped by rsyslog over RELP to a collector, under the faults of a plant
# network. Every wait polls for an event; the loops are bounded only against a
# hang. Exit 77 (skipped) when rsyslog or its RELP module is missing.
#   fleet_test.sh USERLOG_HOST
set -euo pipefail
host_program=$(readlink -f "$1")
fleet=$(cd "$(dirname "$0")/../tools/fleet" && pwd)
. "$fleet/../common.sh"

skip() {
    echo "SKIP: $*"
    exit 77
}
command -v rsyslogd >/dev/null || skip "rsyslogd not installed (apt install rsyslog rsyslog-relp)"
modules=$(dirname "$(find /usr/lib -name imfile.so -path '*rsyslog*' -print -quit)")
for module in imrelp omrelp mmjsonparse; do
    [ -f "$modules/$module.so" ] || skip "rsyslog module $module not installed (apt install rsyslog-relp)"
done
command -v openssl >/dev/null || skip "openssl not installed"

tmp=$(mktemp -d "${TMPDIR:-/tmp}/fleet-test-XXXXXX")
pids=()
cleanup() {
    local pid
    for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
    wait 2>/dev/null || true
    [ -n "${FLEET_TEST_KEEP:-}" ] && echo "kept $tmp" || rm -rf "$tmp"
}
trap cleanup EXIT
cd "$tmp"
fail() {
    echo "FAIL: $*"
    exit 1
}

say "certificates for the collector (localhost), the devices and a rogue device"
"$fleet/fleet-certs" certs localhost cellA cellB cellX-rogue
port=$(free_port)
. "$fleet/loopback.sh"

# "FILES IDENTICAL LINES LOST DUPLICATED" of one device against its copy.
compare() { "$fleet/fleet-compare" "devices/$1" "central/$1" || true; }
caught_up() { read -r _ _ _ lost _ < <(compare "$1") && [ "$lost" -eq 0 ]; }

# Lines that a plain syslog transport would mangle: tabs, CR, quotes, a
# backslash, UTF-8, leading blanks; the print name holds a blank and UTF-8.
say "cell A: a device started before its collector, writing while faults come"
{
    echo 'controller connected'
    for ((round = 0; round < 60; round++)); do
        for ((i = 0; i < 100; i++)); do
            printf 'entry MAIN now info "cycle %d.%d\tseam \\"ok\\" \\\\ Schweißnaht\r done"\n' "$round" "$i"
        done
        echo 'entry REPORT now print "  parts: 17"'
        echo 'entry REPORT now info "a message of two paragraphs\n\nthe second after an empty line"'
        echo 'wait 40'
    done
} >load.scenario
mkdir -p devices
start_shipper cellA
"$host_program" --root devices/cellA --custom-log-name "Zelle A – Schweißen" load.scenario \
    >cellA.host 2>&1 &
host_pid=$!
pids+=("$host_pid")
wait_for 300 "cell A's first lines written" test -d devices/cellA/log/online

say "collector up after the device: the lines written meanwhile arrive"
start_collector
wait_for 300 "cell A's first lines on the collector" more_lines_than 0 cellA

say "collector killed (SIGKILL) while lines flow, back after 1 s"
stop KILL "$collector_pid"
before=$(central_lines cellA)
sleep 1 # the outage itself
start_collector
wait_for 300 "shipping to resume after the collector's restart" more_lines_than "$before" cellA

say "collector killed again and stopped for 3 s"
stop KILL "$collector_pid"
before=$(central_lines cellA)
sleep 3
start_collector
wait_for 300 "shipping to resume" more_lines_than "$before" cellA

wait "$host_pid" || fail "userlog-host failed: $(cat cellA.host)"
wait_for 300 "cell A caught up" caught_up cellA
read -r files identical lines lost duplicated < <(compare cellA)
say "cell A: $files files, $lines lines, $lost lost, $duplicated duplicated, $identical identical"
[ "$files" -ge 3 ] || fail "expected the online, useronline and offline files, got $files"
[ "$identical" -eq "$files" ] || fail "after collector faults every file must be identical"
[ -n "$(find central/cellA/useronline -name 'Zelle A – Schweißen_*')" ] ||
    fail "the print file with the custom name is missing: $(ls central/cellA/*)"

say "shipper killed (SIGKILL) while lines flow, then restarted"
"$host_program" --root devices/cellA load.scenario >cellA.host 2>&1 &
host_pid=$!
pids+=("$host_pid")
before=$(central_lines cellA)
wait_for 300 "new lines of cell A on the collector" more_lines_than $((before + 500)) cellA
stop KILL "${shipper_pid[cellA]}"
start_shipper cellA
wait "$host_pid" || fail "userlog-host failed: $(cat cellA.host)"
wait_for 300 "cell A caught up after the shipper's restart" caught_up cellA
read -r files identical lines lost duplicated < <(compare cellA)
say "cell A: $files files, $lines lines, $lost lost, $duplicated duplicated, $identical identical"
# The shipper goes back 256 lines in every file when it starts; the collector
# drops what it already holds, so nothing is lost and nothing doubled.
[ "$identical" -eq "$files" ] || fail "after a shipper kill every file must be identical"

say "cell B: a file deleted (as retention does) while the shipper reads it"
mkdir -p devices/cellB/log/online
awk 'BEGIN { for (i = 0; i < 60000; i++)
    printf "-- 2025-06-02 08:00:01 -- <MAIN> <info> line %d of a file retention deletes\n", i }' \
    >devices/cellB/log/online/user_log_file_0.txt
cp devices/cellB/log/online/user_log_file_0.txt expected-cellB
start_shipper cellB
wait_for 300 "cell B's file on the collector" more_lines_than 0 cellB
rm devices/cellB/log/online/user_log_file_0.txt
[ "$(central_lines cellB)" -lt 60000 ] || echo "note: the file was read whole before it was deleted"
"$host_program" --root devices/cellB - <<<'entry MAIN now info written after the deletion' >/dev/null 2>&1
wait_for 300 "cell B's newer file on the collector" caught_up cellB
wait_for 300 "the deleted file complete on the collector" \
    cmp -s expected-cellB central/cellB/online/user_log_file_0.txt
say "cell B: the deleted file is kept whole on the collector"

say "a device whose certificate another CA signed gets nothing written"
mkdir -p devices/cellX/log/online
echo "must not arrive" >devices/cellX/log/online/user_log_file_0.txt
start_shipper cellX cellX-rogue
wait_for 300 "the collector to refuse cell X's certificate" grep -q 'subject = /CN=cellX-rogue' collector.log
stop KILL "${shipper_pid[cellX]}"
[ ! -e central/cellX ] || fail "the rogue device wrote $(find central/cellX)"

say "names that try to leave the central directory are refused"
mkdir -p devices/evil
cat >devices/evil/messages <<'EOF'
{"device":"..","offset":"0","file":"online/escape.txt","line":"x"}
{"device":"../escape","offset":"0","file":"online/escape.txt","line":"x"}
{"device":"\u002e\u002e","offset":"0","file":"online/escape.txt","line":"x"}
{"device":".hidden","offset":"0","file":"online/escape.txt","line":"x"}
{"device":"","offset":"0","file":"online/escape.txt","line":"x"}
{"device":"cell\nZ","offset":"0","file":"online/escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"../escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"online/../../escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"online\/..\/..\/escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"/tmp/escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"online/.escape.txt","line":"x"}
{"device":"cellZ","offset":"0","file":"a/b/escape.txt","line":"x"}
{"device":"cellZ","offset":"-1","file":"online/escape.txt","line":"x"}
not json at all
{"device":"cellZ","offset":"0","file":"online/accepted.txt","line":"accepted"}
EOF
# A hand-made client: each line of the file goes out as the whole message.
cat >evil.conf <<EOF
global(workDirectory="$tmp/devices/evil")
module(load="imfile")
module(load="omrelp" tls.tlslib="openssl")
input(type="imfile" file="$tmp/devices/evil/messages" tag="evil" ruleset="send")
template(name="raw" type="string" string="%msg%")
ruleset(name="send" queue.type="Direct") {
    action(type="omrelp" target="localhost" port="$port" template="raw"
           tls="on" tls.caCert="$tmp/certs/ca.pem" tls.myCert="$tmp/certs/cellB.pem"
           tls.myPrivKey="$tmp/certs/cellB.key" tls.authMode="name"
           tls.permittedPeer=["localhost"] action.resumeRetryCount="-1")
}
EOF
rsyslogd -n -f evil.conf -i "$tmp/devices/evil/pid" 2>evil.err &
evil_pid=$!
pids+=("$evil_pid")
wait_for 300 "the accepted line" grep -qsx accepted central/cellZ/online/accepted.txt
refusals() { [ "$(cat state/collector/refused.log 2>/dev/null | wc -l)" -eq "$1" ]; }
wait_for 300 "15 refusals" refusals 15
kill "$evil_pid"
wait "$evil_pid" || true
escaped=$(find "$tmp" -name '*escape*' ! -path "$tmp/devices/evil/*" ! -path "$tmp/state/collector/*")
[ -z "$escaped" ] || fail "a refused name was written: $escaped"
[ "$(find central -path '*cellZ*' -type f)" = central/cellZ/online/accepted.txt ] ||
    fail "cell Z holds more than the accepted line: $(find central/cellZ)"
say "15 of 15 bad names refused, the good one written"

say "SIGTERM stops collector and shippers cleanly"
for pid in "$collector_pid" "${shipper_pid[cellA]}" "${shipper_pid[cellB]}"; do
    kill -TERM "$pid"
    status=0
    wait "$pid" || status=$?
    [ "$status" -eq 0 ] || fail "process $pid ended with status $status after SIGTERM"
done
pids=()
# Lines RELP delivered twice after a kill, dropped by the collector's writer.
resent=$(grep -c 'sent again' state/collector/fleet-writer.log 2>/dev/null || true)
echo "fleet test: passed (cell A $lines lines, ${resent:-0} resent lines dropped by the collector)"
