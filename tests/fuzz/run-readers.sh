#!/bin/bash
# Fuzzes the readers of input from other programs: the settings file, AT commands and message PDUs. Runs each for so many
# seconds, or for a fixed number of inputs if none are given.
# usage: tests/fuzz/run-readers.sh [SECONDS]
set -euo pipefail
cd "$(dirname "$0")/../.."
. shell-lib/need.sh
need "${BUILD_PACKAGES[@]}" clang-16 libclang-rt-16-dev

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -- --quiet

# The short run is the same each time. A long run continues from the inputs that earlier runs have found.
if [ $# -eq 0 ]; then
    found=build-fuzz/found-short
    limits=(-runs=1000 -seed=1)
    rm -rf $found
else
    found=build-fuzz/found
    limits=(-max_total_time="$1")
fi

# Each write of the settings waits for the disk, so use a file system in memory.
[ ! -w /dev/shm ] || export TMPDIR=/dev/shm

for reader in ini at pdu; do
    mkdir -p $found/$reader
    echo "== $reader"
    dbus-run-session -- build-fuzz/fuzz_$reader -verbosity=0 -print_funcs=0 -max_len=4096 -timeout=10 -close_fd_mask=1 \
        -artifact_prefix=build-fuzz/$reader- "${limits[@]}" $found/$reader tests/fuzz/readers/corpus/$reader
done
