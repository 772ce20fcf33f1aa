#!/usr/bin/env bash
# Runs a program with a stock modem stack: starts private session and system buses, the simulated modem behind an AT
# port, and oFono (with the modem /phonesim) or ModemManager (in test mode, on the session bus) on that port. The program
# inherits the buses in their usual variables, the port in AT_PORT and AT_NAME, and the folder of the logs in LOG_FOLDER. It
# can restart ofonod with "ofonod -n".
# usage: on-stock.sh BUILD ofono|modemmanager|none PROGRAM [ARGUMENT...]
# DEVICE_OPTIONS has options for the simulator.
set -euo pipefail
top=$(cd "$(dirname "$0")/../.." && pwd)
. "$top/shell-lib/session.sh"
. "$top/shell-lib/stock.sh"

build_folder=$1 stack=$2
shift 2
start_session "$build_folder"
start_system_bus
# shellcheck disable=SC2086 # options are words
start_at_device ${DEVICE_OPTIONS:-}
case $stack in
    ofono) start_ofonod ;;
    modemmanager) start_modemmanager ;;
    none) prepare_ofono ;;
    *) echo "no stack \"$stack\"" >&2; exit 2 ;;
esac
export LOG_FOLDER=$scratch
export OFONOD=${OFONOD:-} MODEMMANAGER=${MODEMMANAGER:-}
"$@"
