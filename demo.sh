#!/usr/bin/env bash
# Shows the phone service at work beside a simulated device, on a private bus, and leaves nothing behind.
# With --shell opens a shell in which to try both instead.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/need.sh
. scripts/stage.sh

shell=no
programs=(phonemanager kova-simulator)
case "$*" in
    '') ;;
    --shell) shell=yes programs+=(phonectl) ;;
    *) echo "usage: ./demo.sh [--shell]" >&2; exit 2 ;;
esac

need "${BUILD_PACKAGES[@]}" faketime sqlite3
echo "Building"
cmake --preset release >/dev/null
output=$(cmake --build --preset release --target "${programs[@]}" 2>&1) || { echo "$output" >&2; exit 1; }
stage build

if [ $shell = no ]; then
    echo "Time runs $SPEED times as fast; the clock counts the device's seconds."
    play simulator/scenarios/demo.scenario
    printf '%11s  The service is told to stop, and does so in order.\n' ''
    exit
fi

start_players
cat <<'END'

The service and a simulated device run on a bus of this shell's own. Things to try:

  phonectl enable --wait                   switch the phone on, and follow it until it is registered
  phonectl status
  phonectl call --wait +493023125007
  phonectl monitor &                       see the service's signals as they come
  kova-simulator send ring +493023125001   a contact calls, and is answered; other numbers are hung up
  kova-simulator send help                 what else can happen to the device

"exit" ends both.

END
PATH=$build:$PATH "${SHELL:-bash}" || true
