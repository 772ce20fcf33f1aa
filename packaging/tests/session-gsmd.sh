#!/bin/sh
# What the installed GSM daemon must do with a stock oFono, under the system bus's own policy: oFono runs as root, the
# session is that of the user named, on a private bus; another user must not reach it. Run as root.
# usage: session-gsmd.sh USER OTHER_USER
set -eu

port=21012
if [ "${1-}" != --in-session ]; then
    mkdir -p /run/dbus
    dbus-daemon --system --fork --nopidfile
    printf '[phonesim]\nDriver=phonesim\nAddress=127.0.0.1\nPort=%s\n' $port >/etc/ofono/phonesim.conf
    ofonod -n 2>/dev/null &
    until dbus-send --system --print-reply --dest=org.ofono / org.ofono.Manager.GetModems >/dev/null 2>&1; do sleep 0.1; done
    ! runuser --user "$2" -- dbus-send --system --print-reply --dest=org.ofono / org.ofono.Manager.GetModems \
        >/dev/null 2>&1 || { echo "FAILED: anybody may use the modem" >&2; exit 1; }
    exec runuser --login "$1" --command "timeout 300 dbus-run-session -- sh $0 --in-session"
fi

work=$(mktemp -d)
fail() {
    echo "FAILED: $*" >&2
    tail -n 50 "$work"/* >&2
    exit 1
}
# ask METHOD [ARGUMENT...]: asks the GSM daemon
ask() {
    dbus-send --session --print-reply=literal --dest=com.quillmark.kova.gsmmanager \
        /com/quillmark/kova/gsmmanager/gsmobj "com.quillmark.kova.gsminterface.$@"
}

kova-simulator --at-tcp $port --register 500 </dev/null >"$work/simulator" 2>&1 &
simulator=$!
ask ModemGetStatus | grep -q 'int32 0' || fail "the first request does not start the GSM daemon"
phonectl enable --wait --timeout 180 >"$work/enable" 2>&1 || fail "the modem does not register"
phonectl call --wait --timeout 120 +493023125001 >"$work/call" 2>&1 &
call=$!
until grep -q answered "$work/call"; do
    kill -0 $call || fail "the call ended"
    sleep 0.2
done
kova-simulator send hangup
wait $call || fail "the call did not end well"
cat "$work/call"
kill $simulator
rm -r "$work"
