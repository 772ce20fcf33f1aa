# Sourced by what shows or tests the real programs: a private session bus, settings and contacts of its own, and time
# that runs 20 times as fast. Everything is gone when the sourcing shell ends.

SPEED=20

# stage BUILD: sets the stage for the programs in that build folder.
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
    until [ -S "$scene/bus" ]; do
        kill -0 "${players[0]}" 2>/dev/null || { cat "$scene/bus.log" >&2; return 1; }
        sleep 0.05
    done
}

# The bus, first of all players, goes last.
clear_stage() {
    local i
    for ((i = ${#players[@]} - 1; i >= 0; --i)); do
        kill "${players[i]}" 2>/dev/null || true
        wait "${players[i]}" 2>/dev/null || true
    done
    rm -rf "$scene"
}

# fast PROGRAM [ARGUMENT...]: becomes the program, whose time runs fast.
fast() {
    local faketime
    faketime=$(echo /usr/lib/*/faketime/libfaketimeMT.so.1)
    LD_PRELOAD=${faketime%% *} FAKETIME="+0 x$SPEED" FAKETIME_DISABLE_SHM=1 exec "$@"
}

# start_players: device and service, at the pace of the world, and waits until they are on the bus.
start_players() {
    "$build/kova-simulator" --quiet </dev/null >"$scene/device.log" &
    players+=($!)
    "$build/phonemanager" 2>"$scene/service.log" &
    players+=($!)
    until dbus-send --print-reply --dest=com.quillmark.kova.phonemanager /com/quillmark/kova/phonemanager/phoneobj \
        org.freedesktop.DBus.Peer.Ping >/dev/null 2>&1; do
        kill -0 $! 2>/dev/null || { cat "$scene/service.log" >&2; return 1; }
        sleep 0.05
    done
}

# play SCENARIO: plays it against the service, which has to stop in order at the end.
play() {
    local device service
    fast "$build/kova-simulator" --quiet play "$1" &
    device=$!
    players+=($device)
    fast "$build/phonemanager" 2>"$scene/service.log" &
    service=$!
    players+=($service)

    if wait $device && kill $service && wait $service; then
        return
    fi
    echo "The end of the service's log:" >&2
    tail -n 40 "$scene/service.log" >&2
    return 1
}
