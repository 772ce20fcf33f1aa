# Sourced by the sessions that test the packages.

# program NAME [ARGUMENT...]: runs an installed program, with the emulator in EMULATOR if that is set
program() {
    name=$1
    shift
    ${EMULATOR-} "/usr/bin/$name" "$@"
}
