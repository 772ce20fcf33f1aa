#!/bin/bash
# Tests what Tab completes. usage: completion.sh FOLDER PHONECTL KOVA_SIMULATOR
. "$1/phonectl" && . "$1/kova-simulator" || exit 1
KOVA_CONTACTS_DB=$(mktemp -d)/contacts.db
export KOVA_CONTACTS_DB
trap 'rm -r "${KOVA_CONTACTS_DB%/*}"' EXIT
"$2" contacts add +4912345 Anna >/dev/null || exit 1

# expect FUNCTION PROGRAM "OFFERED..." WORD...
expect() {
    COMP_WORDS=("${@:2:1}" "${@:4}")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    "$1" "$2" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    [ "${COMPREPLY[*]}" = "$3" ] && return
    echo "after '${*:4}': offered '${COMPREPLY[*]}', wanted '$3'"
    exit 1
}

expect _phonectl "$2" "list add remove" help contacts ""
expect _phonectl "$2" "on off" --json force-off ""
expect _phonectl "$2" "--wait" sms --w
expect _phonectl "$2" "+4912345" call-loop 110 +
expect _phonectl "$2" "$1/phonectl" apn x y --password-file "$1/ph"
expect _kova_simulator "$3" "--power-up --power-down" --pow

# The commands of the simulator come from the running one.
"$3" --quiet </dev/null >/dev/null &
device=$!
trap 'kill $device; rm -r "${KOVA_CONTACTS_DB%/*}"' EXIT
until "$3" send state >/dev/null 2>&1; do sleep 0.05; done
expect _kova_simulator "$3" "sim signal sms state" send s
expect _kova_simulator "$3" "CallAnswer" send fault CallA
expect _kova_simulator "$3" "status silent" send fault Call s
expect _kova_simulator "$3" "gsm sound audio-out audio-in" send daemon leave ""
