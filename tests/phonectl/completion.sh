#!/bin/bash
# What Tab offers. usage: completion.sh FOLDER PHONECTL KOVA_SIMULATOR
phonectl=$2 simulator=$3
. "$1/phonectl" || exit 1
. "$1/kova-simulator" || exit 1

KOVA_CONTACTS_DB=$(mktemp -d)/contacts.db
export KOVA_CONTACTS_DB
trap 'rm -r "${KOVA_CONTACTS_DB%/*}"' EXIT
"$phonectl" contacts add +4912345 Anna >/dev/null || exit 1
"$phonectl" contacts add 110 >/dev/null || exit 1

# expect FUNCTION PROGRAM "OFFERED..." WORD...
failed=0
expect() {
    local function=$1 program=$2 wanted=$3
    COMP_WORDS=("$program" "${@:4}")
    COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
    COMPREPLY=()
    "$function" "$program" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
    [ "${COMPREPLY[*]}" = "$wanted" ] && return
    echo "after '${*:4}': offered '${COMPREPLY[*]}', wanted '$wanted'"
    failed=1
}

expect _phonectl "$phonectl" "call call-loop contacts" c
expect _phonectl "$phonectl" "list add remove" contacts ""
expect _phonectl "$phonectl" "on off" --json force-off ""
expect _phonectl "$phonectl" "--wait" sms --w
expect _phonectl "$phonectl" "" status --w
expect _phonectl "$phonectl" "+4912345" call-loop 110 +
expect _phonectl "$phonectl" "" call 110 ""
expect _phonectl "$phonectl" "$1/phonectl" apn x y --password-file "$1/ph"
expect _kova_simulator "$simulator" "send" se
expect _kova_simulator "$simulator" "--power-up --power-down" --pow
exit $failed
