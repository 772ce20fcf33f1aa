#!/usr/bin/env bash
# Installs what is missing, builds and runs every test, on Qt 6 and again with sanitizers.
# With --all also on Qt 5.15, and the checks of the sources' format.
set -euo pipefail
cd "$(dirname "$0")"
. scripts/need.sh

all=no
case "${1-}" in
    '') ;;
    --all) all=yes ;;
    *) echo "usage: ./test.sh [--all]" >&2; exit 2 ;;
esac

need "${BUILD_PACKAGES[@]}" faketime sqlite3 binutils mandoc

# run PRESET
run() {
    echo "== $1"
    cmake --preset "$1" >/dev/null
    cmake --build --preset "$1" -- --quiet
    ctest --preset "$1"
}

run release
run sanitize
if [ $all = yes ]; then
    need qtbase5-dev qtbase5-dev-tools libqt5sql5-sqlite clang-format
    run qt5
    echo "== format"
    git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
fi
