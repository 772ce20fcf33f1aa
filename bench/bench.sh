#!/usr/bin/env bash
# Installs what is missing, builds and measures the service beside its floors; see bench/README.md.
# With --quick a rougher measurement. Leaves results.json and results.svg in build/bench.
set -euo pipefail
cd "$(dirname "$0")/.."
. shell-lib/need.sh

case "$*" in
    '' | --quick) ;;
    -h | --help) echo "usage: bench/bench.sh [--quick]"; exit ;;
    *) echo "usage: bench/bench.sh [--quick]" >&2; exit 2 ;;
esac

need "${BUILD_PACKAGES[@]}" dbus-bin libsystemd-dev pkgconf python3 valgrind
cmake --preset release -DKOVA_BENCH=ON >/dev/null
cmake --build --preset release -- --quiet
exec dbus-run-session -- python3 bench/run.py build "$@"
