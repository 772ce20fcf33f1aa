#!/bin/sh
# Tests the installed packages in a user's session with a private bus: the first request starts the service, the modem
# registers, and calls are made in both directions. EMULATOR, if set, runs the programs.
set -eu
. "$(dirname "$0")/program.sh"

number=+493023125001
work=$(mktemp -d)

on_bus() {
    dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner \
        string:com.quillmark.kova.phonemanager | grep -q true
}

fail() {
    echo "FAILED: $*" >&2
    tail -n 50 "$work"/* >&2
    exit 1
}

# await TEXT FILE: waits until the text is in the file
await() {
    tries=0
    until grep -q -e "$1" "$work/$2"; do
        tries=$((tries + 1))
        [ $tries -lt 300 ] || fail "no \"$1\" in $2"
        sleep 0.2
    done
}

! on_bus || fail "the service runs before the first request"
program phonectl status || fail "the first request does not start the service"
on_bus || fail "the service does not own its name"

program kova-simulator --register 500 </dev/null >"$work/simulator" &
await '^ready' simulator
program phonectl enable --wait --timeout 180 || fail "the modem does not register"
grep -qx 'enabled=1' "$HOME/.config/kova/config.ini" || fail "the setting was not written"

program phonectl call --wait --timeout 120 "$number" >"$work/call" 2>&1 &
call=$!
await answered call
program kova-simulator send hangup
wait $call || fail "the call has failed"
cat "$work/call"

program phonectl contacts add "$number" Anna --may-call-in || fail "the contact was not added"
program kova-simulator send "ring $number"
await 'CallAnswer()' simulator
program kova-simulator send hangup
program phonectl status
rm -r "$work"
