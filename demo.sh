#!/usr/bin/env bash
# Shows the phone service at work with a simulated device, on a private bus, and draws the phone's history to
# build/demo.html.
# --shell opens a shell instead, in which to try both. --stock runs the service on a stock oFono, --stock modemmanager on
# ModemManager; both use the simulated modem through an AT port.
set -euo pipefail
cd "$(dirname "$0")"
. shell-lib/need.sh
. shell-lib/build.sh
. shell-lib/session.sh
. shell-lib/stock.sh

mode=play
programs=(phonemanager kova-simulator phonectl)
packages=("${BUILD_PACKAGES[@]}" faketime sqlite3)
case "$*" in
    '') ;;
    --shell) mode=shell ;;
    --stock | '--stock ofono') mode=stock stack=ofonod programs+=(kova-gsmd) packages+=(ofono) ;;
    '--stock modemmanager') mode=stock stack=modemmanager programs+=(kova-gsmd) packages+=(modemmanager) ;;
    *) echo "usage: ./demo.sh [--shell | --stock [ofono | modemmanager]]" >&2; exit 2 ;;
esac

need "${packages[@]}"
build release "${programs[@]}"
start_session build

if [ $mode != shell ]; then
    echo "Time runs $SPEED times as fast. The clock shows the device's seconds."
    if [ $mode = stock ]; then
        start_system_bus
        play_stock $stack
    else
        play_scenario simulator/scenarios/demo.scenario
    fi
    printf '%11s  The service receives SIGTERM and stops in order.\n' ''
    "$build/phonectl" timeline "$scratch/service.log" --output "$build/demo.html" >/dev/null
    echo "The timeline is drawn in build/demo.html."
    exit
fi

start_phone
cat <<END

The service and a simulated device run on a private bus. They log to
  $scratch/service.log
  $scratch/device.log
Try these commands; Tab completes them:

  phonectl enable --wait                   switch the phone on and wait until it has registered
  phonectl status
  phonectl call --wait +493023125007
  phonectl monitor &                       print the service's signals
  phonectl hangup
  phonectl doctor                          check step by step what a call needs
  kova-simulator send ring +493023125001   a contact calls and is answered; other numbers are hung up
  kova-simulator send help                 list the simulator's commands

"exit" ends both programs.

END
cat >"$scratch/bashrc" <<END
[ ! -f ~/.bashrc ] || . ~/.bashrc
. "$PWD/packaging/bash-completion/phonectl"
. "$PWD/packaging/bash-completion/kova-simulator"
PATH=$build:\$PATH
PS1='(phone) \w\\$ '
END
PATH=$build:$PATH bash --rcfile "$scratch/bashrc" || true
