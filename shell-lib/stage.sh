# Sourced by scripts that show or test the real programs: gives them a private session bus, settings and contacts of
# their own, and time that runs 20 times as fast. All of it ends with the sourcing shell.

SPEED=20

# stage BUILD: prepares to run the programs in that build folder. Sets build, scene (a scratch folder) and players (the
# processes to end).
stage() {
    build=$(cd "$1" && pwd)
    players=()
    scene=$(mktemp -d)
    trap clear_stage EXIT
    trap 'exit 129' HUP
    trap 'exit 130' INT
    trap 'exit 143' TERM
    export KOVA_CONFIG_FILE=$scene/config.ini KOVA_CONTACTS_DB=$scene/contacts.db
    sqlite3 "$KOVA_CONTACTS_DB" "
        CREATE TABLE contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, phone_number TEXT NOT NULL,
                               flags INTEGER NOT NULL);
        INSERT INTO contacts (name, phone_number, flags) VALUES ('Ada', '+493023125001', 16);"

    export DBUS_SESSION_BUS_ADDRESS=unix:path=$scene/bus
    dbus-daemon --session --nofork --nopidfile --address="$DBUS_SESSION_BUS_ADDRESS" 2>"$scene/bus.log" &
    players+=($!)
    await $! "$scene/bus.log" test -S "$scene/bus"
}

# Ends the players in reverse order, so that the bus is last.
clear_stage() {
    local i
    for ((i = ${#players[@]} - 1; i >= 0; --i)); do
        kill "${players[i]}" 2>/dev/null || true
        wait "${players[i]}" 2>/dev/null || true
    done
    rm -rf "$scene"
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

# start_players [fast]: starts device and service, in real or accelerated time, and waits until both are on the bus.
start_players() {
    "$@" "$build/kova-simulator" --quiet </dev/null >"$scene/device.log" &
    players+=($!)
    await $! "$scene/device.log" on_bus com.quillmark.kova.simulator
    "$@" "$build/phonemanager" 2>"$scene/service.log" &
    players+=($!)
    await $! "$scene/service.log" on_bus com.quillmark.kova.phonemanager
}

# finish_play DEVICE SERVICE LOG...: waits until the device has played its scenario, then stops the service. Fails and
# prints the logs if the scenario failed or the service did not exit in order.
finish_play() {
    local device=$1 service=$2
    shift 2
    if wait "$device" && kill "$service" && wait "$service"; then
        return
    fi
    tail -n 40 "$@" >&2
    return 1
}

# play SCENARIO: plays it against the service.
play() {
    fast "$build/kova-simulator" --quiet play "$1" &
    local device=$!
    players+=($device)
    fast "$build/phonemanager" 2>"$scene/service.log" &
    players+=($!)
    finish_play $device $! "$scene/service.log"
}
