#!/usr/bin/env bash
# check-gsmd has nothing to report of the simulated GSM daemon, and reports each fault that is injected into it.
# usage: check-gsmd.sh BUILD
set -euo pipefail
cd "$(dirname "$0")/../.."
. shell-lib/session.sh
SPEED=10
start_session "$1"

fast "$build/kova-simulator" --power-up 100 --register 100 --power-down 100 </dev/null >"$scratch/device.log" &
processes+=($!)
await $! "$scratch/device.log" grep -qx ready "$scratch/device.log"

check() {
    report=$(fast "$build/kova-simulator" check-gsmd call +4930 sms +4930)
}
check || { echo "$report"; exit 1; }

while IFS='|' read -r fault named; do
    "$build/kova-simulator" send fault $fault
    if check || [ "$(grep -c '^MEND' <<<"$report")" -ne 1 ] || ! grep -q "^MEND.*$named" <<<"$report"; then
        echo "after: fault $fault"
        echo "$report"
        exit 1
    fi
    "$build/kova-simulator" send fault "${fault%% *}" clear
done <<'END'
PingRegistration error org.example.Failed|PingRegistration(): error org.example.Failed
IsSimPresent status 3|IsSimPresent(): status 3, not 0
SendSms silent|SendSms.*without an answer; the service waits 20000 ms
SignalStrength delay 3500|SignalStrength.*without an answer; the service waits 3000 ms
Call status 5 times 1|Call("+4930"): status 5
END
