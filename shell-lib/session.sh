# Sourced by scripts that show or test the real programs: gives them a private session bus, settings and contacts of
# their own, and time that runs 20 times as fast. All of it ends with the sourcing shell.

SPEED=20

# start_session BUILD: prepares to run the programs in that build folder. Sets build, scratch (a temporary folder) and
# processes (those to be ended with the session).
start_session() {
    build=$(cd "$1" && pwd)
    processes=()
    scratch=$(mktemp -d)
    trap end_session EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
    export KOVA_CONFIG_FILE=$scratch/config.ini KOVA_CONTACTS_DB=$scratch/contacts.db
    sqlite3 "$KOVA_CONTACTS_DB" "
        CREATE TABLE contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, phone_number TEXT NOT NULL,
                               flags INTEGER NOT NULL);
        INSERT INTO contacts (name, phone_number, flags) VALUES ('Ada', '+493023125001', 16);"

    export DBUS_SESSION_BUS_ADDRESS=unix:path=$scratch/bus
    dbus-daemon --session --nofork --nopidfile --address="$DBUS_SESSION_BUS_ADDRESS" 2>"$scratch/bus.log" &
    processes+=($!)
    await $! "$scratch/bus.log" test -S "$scratch/bus"
}

# Ends the processes in reverse order, so that the bus is last.
end_session() {
    local i
    for ((i = ${#processes[@]} - 1; i >= 0; --i)); do
        kill "${processes[i]}" 2>/dev/null || true
        wait "${processes[i]}" 2>/dev/null || true
    done
    rm -rf "$scratch"
}

# await PID LOG COMMAND...: waits until the command succeeds. Fails and prints the log if the process ends first.
await() {
    local pid=$1 log=$2
    shift 2
    until "$@" >/dev/null 2>&1; do
        kill -0 "$pid" 2>/dev/null || { cat "$log" >&2; return 1; }
        sleep 0.05
    done
}

# on_bus NAME: succeeds if the name has an owner on the session bus.
on_bus() {
    dbus-send --print-reply=literal --dest=org.freedesktop.DBus / org.freedesktop.DBus.NameHasOwner "string:$1" |
        grep -q true
}

# fast PROGRAM [ARGUMENT...]: turns this process into the program, with accelerated time.
fast() {
    local faketime
    faketime=$(echo /usr/lib/*/faketime/libfaketimeMT.so.1)
    LD_PRELOAD=${faketime%% *} FAKETIME="+0 x$SPEED" FAKETIME_DISABLE_SHM=1 exec "$@"
}

# start_phone [fast]: starts the simulated device and the service, in real or accelerated time, and waits until both are
# on the bus.
start_phone() {
    "$@" "$build/kova-simulator" --quiet </dev/null >"$scratch/device.log" &
    processes+=($!)
    await $! "$scratch/device.log" on_bus com.quillmark.kova.simulator
    "$@" "$build/phonemanager" 2>"$scratch/service.log" &
    processes+=($!)
    await $! "$scratch/service.log" on_bus com.quillmark.kova.phonemanager
}

# finish_scenario DEVICE SERVICE LOG...: waits until the device has played its scenario, then stops the service. Fails and
# prints the logs if the scenario failed or the service did not exit in order.
finish_scenario() {
    local device=$1 service=$2
    shift 2
    if wait "$device" && kill "$service" && wait "$service"; then
        return
    fi
    tail -n 40 "$@" >&2
    return 1
}

# play_scenario FILE: plays a scenario with the service.
play_scenario() {
    fast "$build/kova-simulator" --quiet play "$1" &
    local device=$!
    processes+=($device)
    fast "$build/phonemanager" 2>"$scratch/service.log" &
    processes+=($!)
    finish_scenario $device $! "$scratch/service.log"
}
