# shellcheck shell=bash
# A collector and its shippers on loopback, with the throwaway certificates of
# fleet-certs: what the fleet test and the demo share. Sourced after
# tools/common.sh, in a work directory holding certs/. The caller sets fleet
# (this directory), port and pids (every process started, for its exit trap).
# The work directory gets central/ (the copies), state/ROLE (rsyslog's state,
# the collector's refused.log and fleet-writer.log) and ROLE.log (stderr).

tls() { echo --tls-ca certs/ca.pem --tls-cert "certs/$1.pem" --tls-key "certs/$1.key"; }

collector_pid=""
start_collector() {
    # shellcheck disable=SC2046
    "$fleet/userlog-fleet" collector --dir central --port "$port" --state state/collector \
        $(tls localhost) 2>>collector.log &
    collector_pid=$!
    pids+=("$collector_pid")
    wait_for 300 "the collector on port $port" listening "$port"
}

# start_shipper NAME [CERT]: ships devices/NAME, with the certificate of CERT (NAME).
declare -A shipper_pid
start_shipper() {
    local name=$1 cert=${2:-$1}
    # shellcheck disable=SC2046
    "$fleet/userlog-fleet" shipper --device "$name" --root "devices/$name" \
        --to "localhost:$port" --state "state/$name" $(tls "$cert") 2>>"shipper-$name.log" &
    shipper_pid[$name]=$!
    pids+=("$!")
}

# stop SIGNAL PID: and reaped, since rsyslogd refuses to start while its pid
# file names a process that still exists, even as a zombie.
stop() {
    kill "-$1" "$2"
    wait "$2" 2>/dev/null || true
}

# central_lines [DEVICE]: the lines of DEVICE's copies (every device's).
central_lines() {
    local device=${1:-*}
    # shellcheck disable=SC2086 # the device may be the glob
    cat central/$device/*/* 2>/dev/null | wc -l
}
# more_lines_than N [DEVICE]
more_lines_than() { [ "$(central_lines "${2:-}")" -gt "$1" ]; }
