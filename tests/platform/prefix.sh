#!/bin/bash
# Builds the service without platform/, against device libraries that are installed, and starts it.
# usage: prefix.sh SOURCE_DIR BUILD_DIR QT_VERSION
set -euo pipefail
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# configure FOLDER PREFIX QT_VERSION
configure() {
    cmake -S "$work/source" -B "$1" -G Ninja -DKOVA_PLATFORM_PREFIX="$2" -DKOVA_QT_VERSION="$3" \
        -DCMAKE_UNITY_BUILD=ON -DBUILD_TESTING=OFF 2>&1
}

# starts PROGRAM: it comes to run and stops in order.
starts() {
    echo "Starting $1"
    "$1" 2>"$work/log" &
    until grep -q "Phone Manager running" "$work/log"; do
        kill -0 $! || { cat "$work/log"; return 1; }
        sleep 0.1
    done
    kill $!
    wait $!
}

mkdir "$work/source" "$work/empty"
tar -C "$1" --exclude='./build*' --exclude=./.git --exclude=./platform -c . | tar -C "$work/source" -x
cmake --install "$2" --prefix "$work/device" >/dev/null

configure "$work/refused" "$work/empty" "$3" >"$work/log" && exit 1
grep -q "include/kova/LogInterface.h" "$work/log"
grep -q "lib/libdbusproxy_qt.so" "$work/log"

configure "$work/build" "$work/device" "$3"
cmake --build "$work/build" --target phonemanager -- --quiet

export KOVA_CONFIG_FILE=$work/config.ini
starts "$work/device/bin/phonemanager"
starts "$work/build/phonemanager"
