#!/usr/bin/env bash
# Shows the phone service at work beside a simulated device, on a private bus, and leaves a drawing of it in the build
# folder.
# With --shell opens a shell in which to try both instead. With --stock the service works on a stock oFono, which has the
# simulated modem at an AT port.
set -euo pipefail
cd "$(dirname "$0")"
. shell-lib/need.sh
. shell-lib/build.sh
. shell-lib/stage.sh
. shell-lib/stock.sh

mode=play
programs=(phonemanager kova-simulator phonectl)
packages=("${BUILD_PACKAGES[@]}" faketime sqlite3)
case "$*" in
    '') ;;
    --shell) mode=shell ;;
    --stock) mode=stock programs+=(kova-gsmd) packages+=(ofono) ;;
    *) echo "usage: ./demo.sh [--shell | --stock]" >&2; exit 2 ;;
esac

need "${packages[@]}"
build release "${programs[@]}"
stage build

if [ $mode != shell ]; then
    echo "Time runs $SPEED times as fast; the clock counts the device's seconds."
    if [ $mode = stock ]; then
        start_system_bus
        play_stock ofonod
    else
        play simulator/scenarios/demo.scenario
    fi
    printf '%11s  The service is told to stop, and does so in order.\n' ''
    "$build/phonectl" timeline "$scene/service.log" --output "$build/demo.html" >/dev/null
    echo "What has happened is drawn in build/demo.html."
    exit
fi

start_players
cat <<END

The service and a simulated device run on a bus of this shell's own. They log to
  $scene/service.log
  $scene/device.log
Things to try, with Tab for what may come next:

  phonectl enable --wait                   switch the phone on, and follow it until it is registered
  phonectl status
  phonectl call --wait +493023125007
  phonectl monitor &                       see the service's signals as they come
  phonectl hangup
  phonectl doctor                          see whether all is in place
  kova-simulator send ring +493023125001   a contact calls, and is answered; other numbers are hung up
  kova-simulator send help                 what else can happen to the device

"exit" ends both.

END
cat >"$scene/bashrc" <<END
[ ! -f ~/.bashrc ] || . ~/.bashrc
. "$PWD/packaging/bash-completion/phonectl"
. "$PWD/packaging/bash-completion/kova-simulator"
PATH=$build:\$PATH
PS1='(phone) \w\\$ '
END
PATH=$build:$PATH bash --rcfile "$scene/bashrc" || true
