#!/usr/bin/env bash
# Installs missing packages, builds on Qt 6 and runs every quick test.
# --all adds the slow tests, the quick ones with sanitizers and on Qt 5.15, a short run of the fuzzers, clang-format and
# clang-tidy.
set -euo pipefail
cd "$(dirname "$0")"
. shell-lib/need.sh

all=no
case "$*" in
    '') ;;
    --all) all=yes ;;
    *) echo "usage: ./test.sh [--all]" >&2; exit 2 ;;
esac

need "${BUILD_PACKAGES[@]}" faketime sqlite3 binutils mandoc libglib2.0-bin systemd python3-dbusmock python3-gi

# run PRESET [CTEST_OPTION...]
run() {
    local preset=$1
    shift
    echo "== $preset"
    cmake --preset "$preset" >/dev/null
    cmake --build --preset "$preset" -- --quiet
    ctest --preset "$preset" "$@"
}

slow=(-LE slow)
if [ $all = yes ]; then
    need qtbase5-dev qtbase5-dev-tools libqt5sql5-sqlite clang-format clang-tidy-16 \
        pulseaudio pulseaudio-utils pipewire pipewire-pulse wireplumber callaudiod ofono modemmanager
    slow=()
    echo "== format"
    git ls-files '*.cpp' '*.h' | xargs clang-format --dry-run --Werror
fi
run release "${slow[@]}"
if [ $all = yes ]; then
    echo "== clang-tidy"
    # Check the files of the unity build, so that each header is parsed once for a whole folder. Exclude generated code.
    run-clang-tidy-16 -quiet -p build -header-filter="^$PWD/([^b/][^/]*/)*[^/]*\$" '/build/(?!tests/|bench/|dbus/).*/Unity/' \
        >build/clang-tidy.log 2>&1 || { grep -a -E -A 5 '(error|warning):' build/clang-tidy.log; exit 1; }
    run sanitize -LE slow
    run qt5 -LE slow
    tests/fuzz/run-readers.sh
fi
echo "All tests passed."
