# Sourced by the sessions that try the packages.

# program NAME [ARGUMENT...]: runs an installed program, through the command in EMULATOR if that is set
program() {
    name=$1
    shift
    ${EMULATOR-} "/usr/bin/$name" "$@"
}
