#!/usr/bin/env bash
# Runs the example clients against the service and the simulated device. usage: examples.sh SOURCE_DIR BUILD_DIR PHONE_CALL
set -euo pipefail
. "$1/shell-lib/session.sh"
start_session "$2"
PATH=$build:$PATH

start_phone fast

# expect STATUS OUTPUT COMMAND...: runs a client and compares. The far end hangs up once it has answered.
expect() {
    local status=0 wanted=$1 output=$2
    shift 2
    timeout 60 "$@" >"$scratch/output" 2>&1 &
    local client=$!
    until ! kill -0 $client 2>/dev/null; do
        ! grep -q answered "$scratch/output" || kova-simulator send hangup >/dev/null 2>&1 || true
        sleep 0.1
    done
    wait $client || status=$?
    [ "$status:$(tr '\n' ' ' <"$scratch/output")" = "$wanted:$output" ] && return
    echo "$*: exit status $status, wanted $wanted '$output'"
    cat "$scratch/output"
    tail -n 40 "$scratch/service.log"
    exit 1
}

clients=("$3" "$1/docs/examples/call.py")
for client in "${clients[@]}"; do
    expect 1 "no SIM card, or not yet checked: wait for SimPresent(true) " "$client" +4912345
done
phonectl enable --wait >/dev/null
kova-simulator send "number 110 reject"
for client in "${clients[@]}"; do
    expect 0 "dialling answered ended " "$client" +4912345
    expect 1 "dialling not answered " "$client" 110
done
