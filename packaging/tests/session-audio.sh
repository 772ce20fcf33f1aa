#!/bin/sh
# Tests the installed audio services in a user's session with a private bus: the first request starts them, and they route
# a call on PulseAudio. EMULATOR, if set, runs the programs.
set -eu

work=$(mktemp -d)
touch "$work/log"
export XDG_RUNTIME_DIR="$work"
sound= daemon=
trap 'kill $sound $daemon 2>/dev/null || true; wait; rm -r "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    cat "$work"/log >&2
    exit 1
}

# ask NAME OBJECT INTERFACE METHOD [ARGUMENT...]: calls a method and prints the answer
ask() {
    dbus-send --session --print-reply=literal --dest="com.quillmark.kova.$1" "/com/quillmark/kova/$1/$2" \
        "com.quillmark.kova.$3.$4" | tr -s ' \n' ' '
}

# bus METHOD: calls a method of the bus about the audio services' name
bus() {
    dbus-send --session --print-reply=literal --dest=org.freedesktop.DBus / "org.freedesktop.DBus.$1" \
        string:com.quillmark.kova.audioinctlmanager
}

on_bus() { bus NameHasOwner | grep -q true; }

sound_manager() { ask soundmanager soundobj soundinterface "$@"; }

[ "$(ask audiooutctlmanager audiooutctlobj audiooutctlinterface GetOutputType)" = ' int32 0 uint32 1 ' ] ||
    fail "the first request does not start the audio services"
[ "$(sound_manager PlayGsmVoice)" = ' int32 0 ' ] || fail "a call fails without a sound server"
kill "$(bus GetConnectionUnixProcessID | sed 's/.* //')"
while on_bus; do sleep 0.1; done

pulseaudio -n --daemonize=no --exit-idle-time=-1 --load=module-native-protocol-unix --load="module-null-sink sink_name=speaker" \
    --load="module-null-sink sink_name=mic" --load="module-null-sink sink_name=modem" 2>"$work/log" &
sound=$!
until pactl info >/dev/null 2>&1; do
    kill -0 $sound || fail "PulseAudio does not start"
    sleep 0.1
done
pactl set-default-sink speaker
pactl set-default-source mic.monitor
${EMULATOR-} /usr/bin/kova-audiod --modem-source modem.monitor --modem-sink modem 2>>"$work/log" &
daemon=$!
until on_bus; do
    kill -0 $daemon || fail "the audio services do not run"
    sleep 0.1
done
[ "$(sound_manager PlayGsmVoice)" = ' int32 0 ' ] || fail "a call fails"
[ "$(pactl list short modules | grep -c kova.voice=1)" = 2 ] || fail "a call has no route"
kill $daemon
wait $daemon || fail "the audio services do not stop in order"
! pactl list short modules | grep kova.voice=1 || fail "the audio services leave the route behind"
