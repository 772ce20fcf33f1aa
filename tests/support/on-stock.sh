#!/usr/bin/env bash
# Runs a program beside a stock modem stack: a private session bus, a private system bus, the simulated modem behind an
# AT port, and oFono (modem /phonesim) or ModemManager (on the session bus, as its test mode has it) that uses it. The
# program finds the buses in their usual variables, the port in AT_PORT and AT_NAME, and the logs in the folder SCENE;
# ofonod can be started again with "ofonod -n".
# usage: on-stock.sh BUILD ofono|modemmanager|none PROGRAM [ARGUMENT...]
# The simulator's options are taken from DEVICE_OPTIONS.
set -euo pipefail
top=$(cd "$(dirname "$0")/../.." && pwd)
. "$top/shell-lib/stage.sh"
. "$top/shell-lib/stock.sh"

build_folder=$1 stack=$2
shift 2
stage "$build_folder"
start_system_bus
# shellcheck disable=SC2086 # options are words
start_at_device ${DEVICE_OPTIONS:-}
write_ofono_config
case $stack in
    ofono) start_ofonod ;;
    modemmanager) start_modemmanager ;;
    none) ;;
    *) echo "no stack \"$stack\"" >&2; exit 2 ;;
esac
export SCENE=$scene
export OFONOD=${OFONOD:-} MODEMMANAGER=${MODEMMANAGER:-}
"$@"
