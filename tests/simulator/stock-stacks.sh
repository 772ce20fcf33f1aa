#!/usr/bin/env bash
# Tests the AT port with the stock oFono and ModemManager: registration, calls in both directions, messages in both
# directions.
# usage: stock-stacks.sh BUILD ofono|modemmanager
set -euo pipefail
cd "$(dirname "$0")/../.."
. shell-lib/session.sh
. shell-lib/stock.sh
start_session "$1"
start_system_bus
start_at_device --power-up 100 --register 100 --power-down 100 --answer 1000

export LC_ALL=C.UTF-8
LONG="Grüße an {alle} €$(printf '.%.0s' {1..200})"
send() { "$build/kova-simulator" send "$@"; }
state() { send state | grep -qx "$1: $2"; }
happened() { grep -qF -- "$1" "$scratch/device.log"; }

# soon COMMAND...: waits until it succeeds.
soon() {
    local end=$((SECONDS + 20))
    until "$@" >/dev/null 2>&1; do
        [ $SECONDS -lt $end ] || { echo "did not happen: $*" >&2; tail -n 30 "$scratch"/*.log >&2; exit 1; }
        sleep 0.05
    done
}

ofono() {
    local object=$1 method=$2
    shift 2
    gdbus call --address "$DBUS_SYSTEM_BUS_ADDRESS" --dest org.ofono --object-path "$object" --method "org.ofono.$method" "$@"
}
ofono_says() { ofono /phonesim "$1" | grep -q -- "$2"; }
ofono_online() {
    ofono /phonesim Modem.SetProperty Powered '<true>'
    soon ofono_says Modem.GetProperties org.ofono.SimManager
    ofono /phonesim Modem.SetProperty Online '<true>'
    soon ofono_says NetworkRegistration.GetProperties "<'registered'>"
    soon ofono_says Modem.GetProperties org.ofono.MessageManager
}

drive_ofono() {
    start_ofonod
    ofono_online
    ofono /phonesim VoiceCallManager.Dial +4930 default
    soon ofono_says VoiceCallManager.GetCalls "<'active'>"
    ofono /phonesim VoiceCallManager.HangupAll
    soon state call '"none"'
    send ring withheld
    soon ofono_says VoiceCallManager.GetCalls "<'withheld'>"
    ofono /phonesim/voicecall01 VoiceCall.Answer
    soon state call '"active"'
    soon ofono_says VoiceCallManager.GetCalls "<'active'>"
    send ring +4931
    soon ofono_says VoiceCallManager.GetCalls "<'waiting'>"
    send hangup
    soon ofono_says VoiceCallManager.GetCalls "<'incoming'>"
    ofono /phonesim VoiceCallManager.HangupAll

    ofono /phonesim MessageManager.SendMessage +4930 "$LONG"
    soon happened "SendSms(\"+4930\", \"$LONG\")"
    gdbus monitor --address "$DBUS_SYSTEM_BUS_ADDRESS" --dest org.ofono >"$scratch/signals.log" &
    processes+=($!)
    soon grep -q 'name org.ofono is owned' "$scratch/signals.log"
    send sms +4931 "$LONG"
    soon grep -qF "IncomingMessage ('$LONG'" "$scratch/signals.log"

    send sim out
    soon ofono_says SimManager.GetProperties "'Present': <false>"
    send sim in
    ofono_online
    send modem drop
    soon ofono_says Modem.GetProperties "'Powered': <false>"
    ofono_online
    send modem silent # the stack does not see it, and can only switch it off
    ofono /phonesim Modem.SetProperty Powered '<false>'
    soon state modem '"off"'
}

mm() {
    local object=$1 method=$2
    shift 2
    gdbus call --session --dest org.freedesktop.ModemManager1 --object-path "/org/freedesktop/ModemManager1/$object" \
        --method "org.freedesktop.$method" "$@"
}
mm_says() { mm "$1" DBus.Properties.GetAll "org.freedesktop.ModemManager1.$2" | grep -q -- "$3"; }

# States of a modem: 3 disabled, 8 registered; of a call: 3 ringing in, 4 active, 7 ended; of a message: 3 received.
drive_modemmanager() {
    start_modemmanager
    soon mm_says Modem/0 Modem "'State': <3>"
    mm Modem/0 ModemManager1.Modem.Enable true
    soon mm_says Modem/0 Modem "'State': <8>"
    mm Modem/0 ModemManager1.Modem.Voice.CreateCall "{'number': <'+4930'>}"
    mm Call/0 ModemManager1.Call.Start
    soon mm_says Call/0 Call "'State': <4>"
    send hangup
    soon mm_says Call/0 Call "'State': <7>"
    send ring +4931
    soon mm_says Call/1 Call "'Number': <'+4931'>"
    mm Call/1 ModemManager1.Call.Accept
    soon state call '"active"'
    mm Call/1 ModemManager1.Call.Hangup
    soon state call '"none"'

    mm Modem/0 ModemManager1.Modem.Messaging.Create "{'number': <'+4930'>, 'text': <'$LONG'>}"
    mm SMS/0 ModemManager1.Sms.Send
    soon happened "SendSms(\"+4930\", \"$LONG\")"
    send sms +4931 "$LONG"
    soon mm_says SMS/1 Sms "'State': <uint32 3>"
    mm_says SMS/1 Sms "'Text': <'$LONG'>"
    mm Modem/0 ModemManager1.Modem.Enable false
    soon state modem '"off"'
}

"drive_$2" >/dev/null
