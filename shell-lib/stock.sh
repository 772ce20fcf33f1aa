# Sourced after session.sh by scripts that run stock modem stacks: starts a private system bus, the simulated modem behind
# an AT port, and oFono or ModemManager on that port. All of it ends with the session.

# start_system_bus: starts a system bus without restrictions. Sets DBUS_SYSTEM_BUS_ADDRESS.
start_system_bus() {
    export DBUS_SYSTEM_BUS_ADDRESS=unix:path=$scratch/system-bus
    cat >"$scratch/system-bus.conf" <<END
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>$DBUS_SYSTEM_BUS_ADDRESS</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*" eavesdrop="true"/>
    <allow send_type="method_call"/>
    <allow send_type="signal"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow receive_type="method_call"/>
    <allow receive_type="method_return"/>
    <allow receive_type="error"/>
    <allow receive_type="signal"/>
  </policy>
</busconfig>
END
    dbus-daemon --config-file="$scratch/system-bus.conf" --nofork --nopidfile 2>"$scratch/system-bus.log" &
    processes+=($!)
    await $! "$scratch/system-bus.log" test -S "$scratch/system-bus"
}

# Sets AT_PORT, a free TCP port, and AT_NAME, a name in the abstract namespace, for the simulated modem.
choose_at_port() {
    export AT_NAME=kova-$$ AT_PORT
    for AT_PORT in $(shuf -n 20 -i 20000-32000); do
        (: <>"/dev/tcp/127.0.0.1/$AT_PORT") 2>/dev/null || return 0
    done
}

# start_at_device [OPTION...]: starts the simulated modem behind an AT port. "kova-simulator send" controls it; its events
# are in $scratch/device.log.
start_at_device() {
    choose_at_port
    "$build/kova-simulator" --at-tcp "$AT_PORT" --at-abstract "$AT_NAME" "$@" </dev/null >"$scratch/device.log" 2>&1 &
    processes+=($!)
    await $! "$scratch/device.log" grep -qx ready "$scratch/device.log"
}

# prepare_ofono: configures every ofonod of this shell to use the AT port as the modem /phonesim and to store its state in
# $scratch. In the machine's own folder it would find messages that another run has left, and send them again.
prepare_ofono() {
    export OFONO_PHONESIM_CONFIG=$scratch/phonesim.conf
    printf '[phonesim]\nDriver=phonesim\nAddress=127.0.0.1\nPort=%s\n' "$AT_PORT" >"$OFONO_PHONESIM_CONFIG"

    # A user without the right to mount cannot write to the machine's folder either.
    unshare --mount true 2>/dev/null || return 0
    mkdir "$scratch/bin" "$scratch/ofono"
    cat >"$scratch/bin/ofonod" <<END
#!/bin/sh
exec unshare --mount sh -c 'mount --bind $scratch/ofono /var/lib/ofono && exec $(command -v ofonod) "\$@"' sh "\$@"
END
    chmod +x "$scratch/bin/ofonod"
    PATH=$scratch/bin:$PATH
}

# on_system_bus SERVICE OBJECT INTERFACE.METHOD [ARGUMENT...]: makes one call on the private system bus and prints the
# answer.
on_system_bus() {
    local service=$1 object=$2 method=$3
    shift 3
    dbus-send --bus="$DBUS_SYSTEM_BUS_ADDRESS" --print-reply=literal --dest="$service" "$object" "$method" "$@"
}

# The command in run_fast, if set, runs the stacks.

# start_ofonod: sets OFONOD to the process ID. The log, with all AT traffic, is $scratch/ofonod.log.
start_ofonod() {
    prepare_ofono
    OFONO_AT_DEBUG=1 ${run_fast:-} ofonod -n -d >>"$scratch/ofonod.log" 2>&1 &
    OFONOD=$!
    processes+=($OFONOD)
    await $OFONOD "$scratch/ofonod.log" on_system_bus org.ofono / org.ofono.Manager.GetModems
}

# start_modemmanager: starts it with the AT port as its only modem and sets MODEMMANAGER to the process ID. The log is
# $scratch/modemmanager.log.
start_modemmanager() {
    ${run_fast:-} ModemManager --test-session --test-enable --no-auto-scan --debug >>"$scratch/modemmanager.log" 2>&1 &
    MODEMMANAGER=$!
    processes+=($MODEMMANAGER)
    await $MODEMMANAGER "$scratch/modemmanager.log" show_virtual_modem
}

# show_virtual_modem: makes ModemManager forget the modem behind the AT port and look for it again.
show_virtual_modem() {
    dbus-send --session --print-reply --dest=org.freedesktop.ModemManager1 /org/freedesktop/ModemManager1 \
        org.freedesktop.ModemManager1.Test.SetProfile string:kova string:generic array:string:"abstract:$AT_NAME"
}

# follow_virtual_modem: notifies ModemManager when the modem is plugged or unplugged, as the kernel does for a real one.
follow_virtual_modem() {
    local shown=plugged now
    while sleep 0.05; do
        now=plugged
        "$build/kova-simulator" send state 2>/dev/null | grep -q '"unplugged"' && now=unplugged
        [ $now = $shown ] || { shown=$now; show_virtual_modem; }
    done
}

# play_stock ofonod|modemmanager: plays the demonstration with the service and kova-gsmd on that stack. The scenario is
# adapted: instead of the simulated GSM daemon, which does not run here, the modem disappears.
play_stock() {
    local device service
    sed -e '/^expect gsm /d' -e 's/^daemon leave$/modem unplug/' -e 's/^daemon return$/modem plug/' \
        -e 's/The GSM daemon dies/The modem is unplugged/' -e 's/The daemon is back/The modem is back/' \
        -e 's/0 2 3 71 /0 2 3 70 /' -e 's/strength, 71/strength, 70/' \
        simulator/scenarios/demo.scenario >"$scratch/stock.scenario"
    choose_at_port
    fast "$build/kova-simulator" --quiet --at-tcp "$AT_PORT" --at-abstract "$AT_NAME" play "$scratch/stock.scenario" &
    device=$!
    processes+=($device)
    await $device /dev/null on_bus com.quillmark.kova.simulator

    run_fast=fast "start_$1"
    if [ "$1" = modemmanager ]; then
        export DBUS_SYSTEM_BUS_ADDRESS=$DBUS_SESSION_BUS_ADDRESS # In test mode it uses the session bus.
        follow_virtual_modem >/dev/null 2>&1 &
        processes+=($!)
    fi
    fast "$build/kova-gsmd" 2>"$scratch/gsmd.log" &
    processes+=($!)
    await $! "$scratch/gsmd.log" on_bus com.quillmark.kova.gsmmanager
    fast "$build/phonemanager" 2>"$scratch/service.log" &
    service=$!
    processes+=($service)

    finish_scenario $device $service "$scratch/service.log" "$scratch/gsmd.log"
}
