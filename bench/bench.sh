#!/usr/bin/env bash
# Installs missing packages, builds, and measures the service beside minimal programs; see bench/README.md.
# --quick measures less precisely. The results are build/bench/results.json and results.svg.
set -euo pipefail
cd "$(dirname "$0")/.."
. shell-lib/need.sh

case "$*" in
    '' | --quick) ;;
    -h | --help) echo "usage: bench/bench.sh [--quick]"; exit ;;
    *) echo "usage: bench/bench.sh [--quick]" >&2; exit 2 ;;
esac

need "${BUILD_PACKAGES[@]}" dbus-bin libsystemd-dev pkgconf pulseaudio python3 valgrind
cmake --preset release -DKOVA_BENCH=ON >/dev/null
cmake --build --preset release -- --quiet
exec dbus-run-session -- python3 bench/run.py build "$@"
