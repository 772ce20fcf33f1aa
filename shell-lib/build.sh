# Sourced by other scripts: builds and shows the progress.

# build PRESET [TARGET...]: configures and builds. Prints the whole output if that fails.
build() {
    local preset=$1 output line
    shift
    output=$(mktemp)
    echo "Building, which takes a few minutes the first time"
    if { cmake --preset "$preset" && cmake --build --preset "$preset" ${1:+--target "$@"}; } 2>&1 | tee "$output" |
        while IFS= read -r line; do
            case $line in '['*/*']'*) [ ! -t 1 ] || printf '\r%s \033[K' "${line%%]*}]" ;; esac
        done; then
        [ ! -t 1 ] || printf '\r\033[K'
        rm "$output"
    else
        cat "$output" >&2
        rm "$output"
        return 1
    fi
}
