#!/bin/bash
# Builds the service without platform/, with installed device libraries, and starts it. The build has a path map of its
# own, as image builders use: the log must still name the source files.
# usage: prefix.sh SOURCE_DIR BUILD_DIR QT_VERSION
set -euo pipefail
work=$(mktemp -d)
trap 'kill $(jobs -p); rm -rf "$work"' EXIT

# configure FOLDER PREFIX QT_VERSION
configure() {
    cmake -S "$work/source" -B "$1" -G Ninja -DKOVA_PLATFORM_PREFIX="$2" -DKOVA_QT_VERSION="$3" \
        -DCMAKE_CXX_FLAGS="-ffile-prefix-map=$work/source=/usr/src/phone" \
        -DCMAKE_UNITY_BUILD=ON -DBUILD_TESTING=OFF 2>&1
}

# starts PROGRAM: expects that it runs, logs the right places and stops in order.
starts() {
    echo "Starting $1"
    "$1" 2>"$work/log" &
    until grep -q '\[main.cpp:[0-9]*\] int main(int, char\*\*): Phone Manager running' "$work/log" &&
        grep -q '\[controllers/[A-Z]' "$work/log" && grep -q '\[../../include/common_qdbus.h:' "$work/log"; do
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

export KOVA_CONFIG_FILE=$work/config.ini KOVA_LOG_LEVEL=9
printf '[PHONE]\nenabled=1\n' >"$KOVA_CONFIG_FILE"
"$work/device/bin/kova-simulator" --quiet </dev/null &
gdbus wait --session --timeout 30 com.quillmark.kova.gsmmanager
starts "$work/device/bin/phonemanager"
starts "$work/build/phonemanager"
