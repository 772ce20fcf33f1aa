#!/bin/sh
# Tests the installed GSM daemon on a stock modem stack, with the policy of the real system bus. The stack runs as root,
# the daemon in a session of USER with a private bus; OTHER_USER must not reach the modem. Run as root. EMULATOR, if set,
# runs the programs.
# usage: session-gsmd.sh ofono|modemmanager USER OTHER_USER
set -eu
. "$(dirname "$0")/program.sh"

port=21012
session=/tmp/session-gsmd

fail() {
    echo "FAILED: $*" >&2
    tail -n 50 $session/* >&2
    exit 1
}

# on_system_bus SERVICE OBJECT INTERFACE.METHOD [ARGUMENT...]: calls a method as root, or as the user in $as
on_system_bus() {
    service=$1
    shift
    ${as:+runuser --user "$as" --} dbus-send --system --print-reply=literal --dest="$service" "$@" 2>&1
}

start_ofono() {
    printf '[phonesim]\nDriver=phonesim\nAddress=127.0.0.1\nPort=%s\n' $port >/etc/ofono/phonesim.conf
    ofonod -n 2>$session/stack &
    until on_system_bus org.ofono / org.ofono.Manager.GetModems >/dev/null; do sleep 0.1; done
    denied="org.ofono /phonesim org.ofono.Modem.SetProperty string:Powered variant:boolean:false"
}

start_modemmanager() {
    mm=org.freedesktop.ModemManager1
    ModemManager --test-enable --no-auto-scan 2>$session/stack &
    until [ -e $session/port ] && on_system_bus $mm /org/freedesktop/ModemManager1 $mm.Test.SetProfile \
        string:kova string:generic array:string:abstract:kova-$port >/dev/null; do sleep 0.1; done &
    denied="$mm /org/freedesktop/ModemManager1/Modem/0 $mm.Modem.Enable boolean:false"
}

# ask METHOD: calls a method of the GSM daemon
ask() {
    dbus-send --session --print-reply=literal --dest=com.quillmark.kova.gsmmanager \
        /com/quillmark/kova/gsmmanager/gsmobj "com.quillmark.kova.gsminterface.$1"
}

in_session() {
    program kova-simulator --at-tcp $port --at-abstract kova-$port --register 500 </dev/null >$session/simulator 2>&1 &
    until grep -qx ready $session/simulator; do sleep 0.1; done
    touch $session/port
    ask ModemGetStatus | grep -q 'int32 0' || fail "the first request does not start the GSM daemon"
    program phonectl enable --wait --timeout 300 >$session/enable 2>&1 || fail "the modem does not register"
    program phonectl call --wait --timeout 300 +493023125001 >$session/call 2>&1 &
    call=$!
    until grep -q answered $session/call; do
        kill -0 $call || fail "the call has ended"
        sleep 0.2
    done
    program kova-simulator send hangup
    wait $call || fail "the call has failed"
    cat $session/call
}

if [ "$1" = --in-session ]; then
    in_session
    exit
fi
stack=$1 user=$2 other=$3
rm -rf $session
mkdir $session
chown "$user:" $session
mkdir -p /run/dbus
dbus-daemon --system --fork --nopidfile
"start_$stack"
runuser --login "$user" --command "EMULATOR='${EMULATOR-}' timeout 900 dbus-run-session -- sh $0 --in-session"
if refusal=$(as=$other on_system_bus $denied); then
    fail "another user may switch the modem"
fi
case $refusal in *AccessDenied* | *Unauthorized*) ;; *) fail "the refusal has another reason: $refusal" ;; esac
