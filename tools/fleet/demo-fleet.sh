#!/usr/bin/env bash
# One collector and N devices on loopback, with TLS: each device is a
# userlog-host replaying a generated shift, with its shipper. While they write,
# the collector is killed and back after 1 s, killed and back after 10 s,
# stopped for a minute, and one shipper is killed and restarted. Then the
# collector's rate and delay are measured, and every device file is compared
# with its central copy. The trees stay in OUT.
#   tools/fleet/demo-fleet.sh BUILD_DIR [N] [OUT]     (N: 3, OUT: build-fleet)
set -euo pipefail
cd "$(dirname "$0")/../.."
host_program=$PWD/${1:?build directory}/tools/userlog-host
devices=${2:-3}
out=${3:-build-fleet}
fleet=$PWD/tools/fleet
. tools/common.sh
[[ $devices =~ ^[1-9][0-9]*$ ]] || { echo "N must be a positive number: $devices" >&2; exit 2; }

# Steps carry the seconds since the start: the faults are timed.
step() { say "$(printf '[%3ds]' "$SECONDS") $*"; }
rm -rf "$out"
mkdir -p "$out"
out=$(cd "$out" && pwd)
cd "$out"
pids=()
trap 'for p in "${pids[@]}"; do kill "$p" 2>/dev/null || true; done; wait 2>/dev/null || true' EXIT

port=$(free_port)

names=()
for ((d = 1; d <= devices; d++)); do names+=("cell$d"); done
step "certificates (throwaway CA) for the collector and ${names[*]}"
"$fleet/fleet-certs" certs localhost "${names[@]}"
. "$fleet/loopback.sh"

# A shift of about 90 s: every second a few dozen entries, a batch report with
# print entries, and now and then the controller lost and found again.
{
    echo 'entry PENDANT now info "Pendant started"'
    echo 'controller connected'
    for ((s = 0; s < 90; s++)); do
        for ((i = 0; i < 40; i++)); do
            printf 'entry WELD_SEAM now info "cycle %d seam %d\twire 80%%, \\"ok\\" Schweißnaht"\n' "$s" "$i"
        done
        printf 'batch\nentry REPORT now printinfo "Batch %d: 17 parts"\nentry REPORT now info "Report %d sent"\nend\n' "$s" "$s"
        echo 'entry PALLET now print "Parts on pallet: 17"'
        if ((s % 15 == 14)); then
            printf 'controller lost\nentry MAIN now error "Program stopped: no controller"\ncontroller connected\n'
        fi
        echo 'wait 1000'
    done
} >shift.scenario

step "devices start before their collector: ${names[*]} write, their shippers wait"
host_pids=()
for name in "${names[@]}"; do
    # A second apart: lnav takes a file's first line as its identity, and devices
    # started in the same second would hide each other's files in one view.
    [ ${#host_pids[@]} -eq 0 ] || sleep 1.1
    start_shipper "$name"
    "$host_program" --root "devices/$name" --custom-log-name "${name}_print" shift.scenario \
        >"host-$name.log" 2>&1 &
    host_pids+=("$!")
    pids+=("$!")
done
sleep 2
step "collector up (port $port)"
start_collector
wait_for 30 "the first lines on the collector" more_lines_than 0

step "collector killed (SIGKILL), back after 1 s"
stop KILL "$collector_pid"
sleep 1
start_collector
n=$(central_lines)
wait_for 60 "shipping to resume" more_lines_than "$n"

step "collector killed (SIGKILL), back after 10 s"
stop KILL "$collector_pid"
sleep 10
start_collector
n=$(central_lines)
wait_for 60 "shipping to resume" more_lines_than "$n"

step "collector stopped (SIGTERM) for a minute; the devices go on writing"
stop TERM "$collector_pid"
sleep 60
start_collector
n=$(central_lines)
wait_for 60 "shipping to resume" more_lines_than "$n"

step "shipper of ${names[0]} killed (SIGKILL) and restarted"
stop KILL "${shipper_pid[${names[0]}]}"
start_shipper "${names[0]}"

for pid in "${host_pids[@]}"; do wait "$pid"; done
caught_up() {
    local name lost
    for name in "${names[@]}"; do
        read -r _ _ _ lost _ < <("$fleet/fleet-compare" "devices/$name" "central/$name" || true)
        [ "$lost" -eq 0 ] || return 1
    done
}
step "devices done; waiting for the collector to catch up"
wait_for 300 "the collector to catch up" caught_up || true

# Rate: the shippers stopped, every device writes a backlog, the shippers start
# again, and the backlog is timed until it is whole on the collector.
step "rate: a backlog of 20,000 entries per device, shipped at once"
for name in "${names[@]}"; do stop TERM "${shipper_pid[$name]}"; done
for ((i = 0; i < 20000; i++)); do echo "entry MAIN now info \"backlog entry $i of the rate test\""; done \
    >backlog.scenario
host_pids=()
for name in "${names[@]}"; do
    "$host_program" --root "devices/$name" backlog.scenario >>"host-$name.log" 2>&1 &
    host_pids+=("$!")
done
for pid in "${host_pids[@]}"; do wait "$pid"; done
backlog=$((devices * 20000))
start=$(date +%s.%N)
for name in "${names[@]}"; do start_shipper "$name"; done
wait_for 600 "the backlog on the collector" caught_up || true
rate=$(echo "$backlog $start $(date +%s.%N)" | awk '{ printf "%d", $1 / ($3 - $2) }')

# Delay: one entry written (the host has flushed it when it exits) until it
# is in the central copy; ten samples on an idle fleet.
step "delay: ten single entries from write to central copy"
delays=()
for ((i = 0; i < 10; i++)); do
    name=${names[i % devices]}
    "$host_program" --root "devices/$name" - <<<"entry MAIN now info \"delay probe $i\"" >/dev/null 2>&1
    t0=$(date +%s%N)
    wait_for 60 "delay probe $i" grep -qs "delay probe $i\$" "central/$name/offline/${name}_print_off"
    delays+=($((($(date +%s%N) - t0) / 1000000)))
done
delay_stats=$(printf '%s\n' "${delays[@]}" | sort -n | awk '{ v[NR] = $1 } END { printf "median %d ms, max %d ms", v[int((NR + 1) / 2)], v[NR] }')

for name in "${names[@]}"; do stop TERM "${shipper_pid[$name]}"; done
stop TERM "$collector_pid"
pids=()

files=0 identical=0 lines=0 lost=0 duplicated=0
for name in "${names[@]}"; do
    read -r f i l x d < <("$fleet/fleet-compare" "devices/$name" "central/$name" || true)
    files=$((files + f)) identical=$((identical + i)) lines=$((lines + l))
    lost=$((lost + x)) duplicated=$((duplicated + d))
    [ "$i" -eq "$f" ] || echo "  $name: $((f - i)) of $f files differ ($x lines lost, $d duplicated)"
done
resent=$(grep -c 'sent again' state/collector/fleet-writer.log 2>/dev/null || true)
commas() { echo "$1" | sed ':a;s/\B[0-9]\{3\}\>/,&/;ta'; }
step "rate through one collector: $(commas "$rate") lines/s ($(commas "$backlog") backlog lines)"
step "delay from write to central copy: $delay_stats"
step "lines RELP delivered twice after the kills, dropped by the collector: ${resent:-0}"
step "trees: $out/devices/NAME (the devices), $out/central/NAME (the collector's copy)"
step "read the central copy in lnav: ./run.sh view $out/central"
echo "fleet: $devices devices, $(commas "$lines") lines, $(commas "$lost") lost," \
    "$(commas "$duplicated") duplicated, $identical of $files files identical"
[ "$lost" -eq 0 ]
