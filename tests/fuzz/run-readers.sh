#!/bin/bash
# Fuzzes what reads files and lines, each reader for so many seconds, or for a fixed number of inputs if none are given.
# usage: tests/fuzz/run-readers.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/../.."
. scripts/need.sh
need "${BUILD_PACKAGES[@]}" clang libclang-rt-14-dev sqlite3

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -- --quiet

seeds=build-fuzz/seeds
rm -rf $seeds
mkdir -p $seeds/contacts
cp -r tests/fuzz/readers/corpus/. $seeds
sqlite3 $seeds/contacts/each "PRAGMA page_size = 512;
    CREATE TABLE contacts (id INTEGER PRIMARY KEY, name TEXT NOT NULL, phone_number TEXT NOT NULL, flags INTEGER NOT NULL);
    INSERT INTO contacts VALUES (2, 'b', '+2', 16), (1, 'a', '+1', 127)"

# The short run is the same each time; a long one goes on where the last one ended.
if [ $# -eq 0 ]; then
    found=build-fuzz/found-short
    limits=(-runs=1000 -seed=1)
    rm -rf $found
else
    found=build-fuzz/found
    limits=(-max_total_time="$1")
fi

# The settings reach the disk with each write: in memory that costs nothing.
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm

for reader in ini contacts commands scenario; do
    mkdir -p $found/$reader
    echo "== $reader"
    dbus-run-session -- build-fuzz/fuzz_$reader -verbosity=0 -print_funcs=0 -max_len=4096 -timeout=10 -close_fd_mask=1 \
        -artifact_prefix=build-fuzz/$reader- "${limits[@]}" $found/$reader $seeds/$reader
done
