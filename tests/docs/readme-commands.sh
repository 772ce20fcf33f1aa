#!/usr/bin/env bash
# Runs all commands in the README's sh blocks, in order, with the service and the simulated device.
# usage: readme-commands.sh SOURCE_DIR BUILD_DIR
set -euo pipefail
. "$1/shell-lib/session.sh"
start_session "$2"
PATH=$build:$PATH
sqlite3 "$KOVA_CONTACTS_DB" 'DELETE FROM contacts'

start_phone fast

# run COMMAND
run() {
    local limit=(timeout 60)
    # The monitor runs until it is interrupted.
    case $1 in *' monitor'*) limit=(timeout --preserve-status --signal=INT 1) ;; esac
    "${limit[@]}" bash -c "$1" </dev/null >"$scratch/output" 2>&1
}

count=0
failed=0
while IFS= read -r command; do
    count=$((count + 1))
    status=0
    run "$command" || status=$?
    if [ $status -ne 0 ]; then
        echo "exit status $status: $command"
        cat "$scratch/output"
        failed=1
    fi
done < <(sed -n '/^```sh$/,/^```$/p' "$1/README.md" | grep -v '^```')

echo "$count commands"
[ $failed -eq 0 ] || tail -n 40 "$scratch/service.log"
[ $count -gt 10 ] && [ $failed -eq 0 ]
